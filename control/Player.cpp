// Player: the host's surface. Every member goes straight to the part that carries it; the
// members that change the player begin by checking that they run on the control thread.

#include <corvid/Player.h>

#include "control/PlayerCore.h"

namespace corvid {

Player::Player(platform::Platform& platform)
    : core_(std::make_unique<PlayerCore>(platform)), CanCueIn(core_->options.CanCueIn),
      UsesVu(core_->options.UsesVu), UseAutoCue(core_->options.UseAutoCue), ForCart(core_->options.ForCart),
      m_Endraised(core_->g.m_Endraised), StateChangeVerify(core_->options.StateChangeVerify) {
    core_->events.controlThreadOnly("Player::Player");
}

Player::~Player() = default;

void Player::setEvents(PlayerEvents* events) { core_->events.setEvents(events); }
void Player::setRunMode(bool running) { core_->setRunMode(running); }
void Player::setSilenceDialogPresenter(std::function<void(dlgSilence&, void*)> presenter) {
    core_->levels.setSilenceDialogPresenter(std::move(presenter));
}
platform::GraphPtr Player::mainGraph() const { return core_->g.MainGraphMan; }

// A single slot that nothing reads: the plug-ins the player uses are the catalogue's.
void Player::AddPlugin(const std::string&) {}
// Without a graph named, the player's own.
std::string Player::PrintFilters(const platform::GraphPtr& GraphMan) {
    return core_->events.PrintFilters(GraphMan ? GraphMan : core_->g.MainGraphMan);
}

bool Player::get_PipeSenderDownstreamMute() { return core_->options.get_PipeSenderDownstreamMute(); }
void Player::put_PipeSenderDownstreamMute(bool& value) { core_->options.put_PipeSenderDownstreamMute(value); }
bool Player::get_AutoRenderAllowed() { return core_->options.get_AutoRenderAllowed(); }
void Player::put_AutoRenderAllowed(bool& value) { core_->options.put_AutoRenderAllowed(value); }
bool Player::IsMp4Capable(bool ForceRefresh) { return core_->chains.IsMp4Capable(ForceRefresh); }
bool Player::IsOggCapable(bool ForceRefresh) { return core_->chains.IsOggCapable(ForceRefresh); }
bool Player::get_LoggingEnabled() { return core_->options.get_LoggingEnabled(); }
void Player::put_LoggingEnabled(bool& value) { core_->options.put_LoggingEnabled(value); }
bool Player::get_SilenceDetEnabled() { return core_->levels.get_SilenceDetEnabled(); }
void Player::put_SilenceDetEnabled(bool& value) { core_->levels.put_SilenceDetEnabled(value); }
clsSilenceDet& Player::get_SilenceDet() { return core_->levels.get_SilenceDet(); }
std::string Player::get_LastError() { return core_->get_LastError(); }
bool Player::get_UsingASFReaderAsFallback() { return core_->get_UsingASFReaderAsFallback(); }
bool Player::get_AutoSeg() { return core_->cueSegue.get_AutoSeg(); }
void Player::put_AutoSeg(bool& value) { core_->cueSegue.put_AutoSeg(value); }
NameCollection& Player::get_FilterNamesWeNeed() { return core_->options.get_FilterNamesWeNeed(); }
void Player::putref_FilterNamesWeNeed(const NameCollection& value) { core_->options.putref_FilterNamesWeNeed(value); }
SoundCardCollection Player::QuerySoundCards(bool ForceEnum) { return core_->routing.QuerySoundCards(ForceEnum); }
void Player::StopPlaying() {
    core_->events.controlThreadOnly("Player::StopPlaying");
    core_->transport.StopPlaying();
}
void Player::Play() {
    core_->events.controlThreadOnly("Player::Play");
    core_->transport.Play();
}
void Player::Pause() {
    core_->events.controlThreadOnly("Player::Pause");
    core_->transport.Pause();
}
float Player::get_Elapsed() { return core_->transport.get_Elapsed(); }
void Player::put_ElapsedForcedChange(float& value) { core_->transport.put_ElapsedForcedChange(value); }
std::string Player::get_FileName() { return core_->get_FileName(); }
void Player::put_FileName(std::string& value) {
    core_->events.controlThreadOnly("Player::put_FileName");
    core_->put_FileName(value);
}
double Player::get_Duration() { return core_->transport.get_Duration(); }
bool Player::get_mute() { return core_->transport.get_mute(); }
void Player::put_mute(bool& value) { core_->transport.put_mute(value); }
double Player::get_Rate() { return core_->transport.get_Rate(); }
void Player::put_Rate(double& value) { core_->transport.put_Rate(value); }
int32_t Player::get_Volume() { return core_->transport.get_Volume(); }
void Player::put_Volume(int32_t& value) { core_->transport.put_Volume(value); }
double Player::get_CurrentPosition() { return core_->transport.get_CurrentPosition(); }
void Player::put_CurrentPosition(double& value) {
    core_->events.controlThreadOnly("Player::put_CurrentPosition");
    core_->transport.put_CurrentPosition(value);
}
std::string Player::get_ThisCartName() { return core_->options.get_ThisCartName(); }
void Player::put_ThisCartName(std::string& value) { core_->options.put_ThisCartName(value); }
PlayCondition Player::get_Playstate() { return core_->transport.get_Playstate(); }
double Player::get_GraphPosition() { return core_->transport.get_GraphPosition(); }
double Player::get_GraphDuration() { return core_->transport.get_GraphDuration(); }
void Player::putref_SetSoundCardCollection(const SoundCardCollection& value) { core_->routing.putref_SetSoundCardCollection(value); }
bool Player::SetSoundcard(std::string& value) { return core_->routing.SetSoundcard(value); }
std::string Player::GetMainSoundcard() { return core_->routing.GetMainSoundcard(); }
std::string Player::GetPFLSoundcard() { return core_->routing.GetPFLSoundcard(); }
bool Player::SetPFLSoundcard(std::string& value) { return core_->routing.SetPFLSoundcard(value); }
bool Player::DefaultSoundDeviceExists() { return core_->routing.DefaultSoundDeviceExists(); }
void Player::SoundCardRouterSet() { core_->routing.SoundCardRouterSet(); }
void Player::SoundCardNullSet() { core_->routing.SoundCardNullSet(); }
void Player::CreateNewGraph(bool MakinPFLGraph) { core_->session.CreateNewGraph(MakinPFLGraph); }
void Player::Init() {
    core_->events.controlThreadOnly("Player::Init");
    core_->Init();
}
NameCollection Player::get_Plugins() { return core_->options.get_Plugins(); }
void Player::ShowPropPage(const std::string& filter, int32_t hwnd) { core_->ShowPropPage(filter, hwnd); }
void Player::RaiseEndOfStream() { core_->transport.RaiseEndOfStream(); }
void Player::GetCurrentMainFilterGraph(std::vector<platform::FilterPtr>& CurrentFilterGraph) { core_->GetCurrentMainFilterGraph(CurrentFilterGraph); }
void Player::TestOpen(const std::string& FileToTest) { core_->TestOpen(FileToTest); }
void Player::ShowMainCardPage(int32_t hwnd) { core_->ShowMainCardPage(hwnd); }
bool Player::get_UseACM() { return core_->options.get_UseACM(); }
void Player::put_UseACM(bool& value) { core_->options.put_UseACM(value); }
int32_t Player::get_AutoSegThresh() { return core_->cueSegue.get_AutoSegThresh(); }
void Player::put_AutoSegThresh(int32_t& value) { core_->cueSegue.put_AutoSegThresh(value); }
int32_t Player::get_autoCueThresh() { return core_->cueSegue.get_autoCueThresh(); }
void Player::put_autoCueThresh(int32_t& value) { core_->cueSegue.put_autoCueThresh(value); }
void Player::AutoSegSearch() { core_->cueSegue.AutoSegSearch(); }
void Player::AutoCueSearch(const std::string& sFile) { core_->cueSegue.AutoCueSearch(sFile); }
bool Player::FindConnectedFilter(const std::string& FilterName, const platform::GraphPtr& GraphMan, platform::FilterPtr& ParserFilter, platform::PinPtr& Inpin, platform::PinPtr& OutPin) { return core_->FindConnectedFilter(FilterName, GraphMan, ParserFilter, Inpin, OutPin); }
bool Player::get_UsePitchAdjuster() { return core_->options.get_UsePitchAdjuster(); }
void Player::put_UsePitchAdjuster(bool& value) { core_->options.put_UsePitchAdjuster(value); }
std::string Player::get_WMAArtist() { return core_->get_WMAArtist(); }
std::string Player::get_WMATitle() { return core_->get_WMATitle(); }
std::string Player::get_WMAYear() { return core_->get_WMAYear(); }
std::string Player::get_WMAGenre() { return core_->get_WMAGenre(); }
bool Player::get_NewGraphEveryTime() { return core_->options.get_NewGraphEveryTime(); }
void Player::put_NewGraphEveryTime(bool& value) { core_->options.put_NewGraphEveryTime(value); }
SoundCardCollection Player::EnumRenders(bool ForceRefresh) { return core_->routing.EnumRenders(ForceRefresh); }
std::string Player::get_SurroundRenderName() { return core_->options.get_SurroundRenderName(); }
void Player::IShoutcastCallback_StreamBuffering(int32_t BufferPercentFull) { core_->chains.IShoutcastCallback_StreamBuffering(BufferPercentFull); }
void Player::IShoutcastCallback_MetaChangeCallback(const std::string& sArtistTitle, const std::string& sURL, const std::string& sFullMeta) { core_->chains.IShoutcastCallback_MetaChangeCallback(sArtistTitle, sURL, sFullMeta); }
void Player::IShoutcastCallback_OdStreamSeg(double Seg) { core_->chains.IShoutcastCallback_OdStreamSeg(Seg); }
bool Player::get_isStreaming() { return core_->chains.get_isStreaming(); }
int16_t Player::get_StreamBufferingPercent() { return core_->chains.get_StreamBufferingPercent(); }
bool Player::get_TryingToPlay() { return core_->chains.get_TryingToPlay(); }
bool Player::get_StreamingCanCancelPlay() { return core_->chains.get_StreamingCanCancelPlay(); }
void Player::StreamingCancelPlay() { core_->chains.StreamingCancelPlay(); }
int32_t Player::get_LeftVUPeak() { return core_->levels.get_LeftVUPeak(); }
int32_t Player::get_RightVuPeak() { return core_->levels.get_RightVuPeak(); }
std::string Player::get_ID() { return core_->options.get_ID(); }
void Player::put_ID(std::string& value) { core_->options.put_ID(value); }
bool Player::get_StreamingIsOnDemandFile() { return core_->chains.get_StreamingIsOnDemandFile(); }
void Player::SilenceDetShowUI(void* Ownerform, const std::string& Notes) { core_->levels.SilenceDetShowUI(Ownerform, Notes); }
bool Player::get_UsingHaldenSource() { return core_->chains.get_UsingHaldenSource(); }
bool Player::get_UsingASFReader() { return core_->chains.get_UsingASFReader(); }
bool Player::get_HaldenSourcePrefer() { return core_->options.get_HaldenSourcePrefer(); }
void Player::put_HaldenSourcePrefer(bool& value) { core_->options.put_HaldenSourcePrefer(value); }
double Player::get_AutoCuePos() { return core_->cueSegue.get_AutoCuePos(); }
double Player::get_AutoSegPos() { return core_->cueSegue.get_AutoSegPos(); }
void Player::put_AutoSegPos(double value) { core_->cueSegue.put_AutoSegPos(value); }
bool Player::get_AutoCueBusy() { return core_->cueSegue.get_AutoCueBusy(); }
bool Player::get_Pipe2020() { return core_->options.get_Pipe2020(); }
void Player::put_Pipe2020(bool& value) { core_->options.put_Pipe2020(value); }
bool Player::get_ASFReaderBanned() { return core_->options.get_ASFReaderBanned(); }
void Player::put_ASFReaderBanned(bool& value) { core_->options.put_ASFReaderBanned(value); }

} // namespace corvid
