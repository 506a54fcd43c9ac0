// Player: the host's surface. Every member hands over to the player's core, which owns the
// state and the parts that do the work.

#include <corvid/Player.h>

#include "control/PlayerCore.h"

namespace corvid {

Player::Player(platform::Platform& platform)
    : core_(std::make_unique<PlayerCore>(platform)), CanCueIn(core_->CanCueIn), UsesVu(core_->UsesVu),
      UseAutoCue(core_->UseAutoCue), ForCart(core_->ForCart), m_Endraised(core_->endRaised()),
      StateChangeVerify(core_->StateChangeVerify) {
    core_->controlThreadOnly("Player::Player");
}

Player::~Player() = default;

void Player::setEvents(PlayerEvents* events) { core_->setEvents(events); }
void Player::setRunMode(bool running) { core_->setRunMode(running); }
void Player::setSilenceDialogPresenter(std::function<void(dlgSilence&, void*)> presenter) {
    core_->setSilenceDialogPresenter(std::move(presenter));
}
platform::GraphPtr Player::mainGraph() const { return core_->mainGraph(); }

bool Player::get_PipeSenderDownstreamMute() { return core_->get_PipeSenderDownstreamMute(); }
void Player::put_PipeSenderDownstreamMute(bool& value) { core_->put_PipeSenderDownstreamMute(value); }
void Player::put_PipeSenderDownstreamMute(const bool& value) { bool copy = value; put_PipeSenderDownstreamMute(copy); }
bool Player::get_AutoRenderAllowed() { return core_->get_AutoRenderAllowed(); }
void Player::put_AutoRenderAllowed(bool& value) { core_->put_AutoRenderAllowed(value); }
void Player::put_AutoRenderAllowed(const bool& value) { bool copy = value; put_AutoRenderAllowed(copy); }
bool Player::IsMp4Capable(bool ForceRefresh) { return core_->chains().IsMp4Capable(ForceRefresh); }
bool Player::IsOggCapable(bool ForceRefresh) { return core_->chains().IsOggCapable(ForceRefresh); }
bool Player::get_LoggingEnabled() { return core_->get_LoggingEnabled(); }
void Player::put_LoggingEnabled(bool& value) { core_->put_LoggingEnabled(value); }
void Player::put_LoggingEnabled(const bool& value) { bool copy = value; put_LoggingEnabled(copy); }
bool Player::get_SilenceDetEnabled() { return core_->get_SilenceDetEnabled(); }
void Player::put_SilenceDetEnabled(bool& value) { core_->put_SilenceDetEnabled(value); }
void Player::put_SilenceDetEnabled(const bool& value) { bool copy = value; put_SilenceDetEnabled(copy); }
clsSilenceDet& Player::get_SilenceDet() { return core_->get_SilenceDet(); }
std::string Player::get_LastError() { return core_->get_LastError(); }
bool Player::get_UsingASFReaderAsFallback() { return core_->get_UsingASFReaderAsFallback(); }
bool Player::get_AutoSeg() { return core_->get_AutoSeg(); }
void Player::put_AutoSeg(bool& value) { core_->put_AutoSeg(value); }
void Player::put_AutoSeg(const bool& value) { bool copy = value; put_AutoSeg(copy); }
NameCollection& Player::get_FilterNamesWeNeed() { return core_->get_FilterNamesWeNeed(); }
void Player::putref_FilterNamesWeNeed(const NameCollection& value) { core_->putref_FilterNamesWeNeed(value); }
SoundCardCollection Player::QuerySoundCards(bool ForceEnum) { return core_->routing().QuerySoundCards(ForceEnum); }
void Player::StopPlaying() {
    core_->controlThreadOnly("Player::StopPlaying");
    core_->StopPlaying();
}
void Player::Play() {
    core_->controlThreadOnly("Player::Play");
    core_->Play();
}
void Player::Pause() {
    core_->controlThreadOnly("Player::Pause");
    core_->Pause();
}
float Player::get_Elapsed() { return core_->get_Elapsed(); }
void Player::put_ElapsedForcedChange(float& value) { core_->put_ElapsedForcedChange(value); }
void Player::put_ElapsedForcedChange(const float& value) { float copy = value; put_ElapsedForcedChange(copy); }
std::string Player::get_FileName() { return core_->get_FileName(); }
void Player::put_FileName(std::string& value) {
    core_->controlThreadOnly("Player::put_FileName");
    core_->put_FileName(value);
}
void Player::put_FileName(const std::string& value) { std::string copy = value; put_FileName(copy); }
double Player::get_Duration() { return core_->get_Duration(); }
bool Player::get_mute() { return core_->get_mute(); }
void Player::put_mute(bool& value) { core_->put_mute(value); }
void Player::put_mute(const bool& value) { bool copy = value; put_mute(copy); }
double Player::get_Rate() { return core_->get_Rate(); }
void Player::put_Rate(double& value) { core_->put_Rate(value); }
void Player::put_Rate(const double& value) { double copy = value; put_Rate(copy); }
int32_t Player::get_Volume() { return core_->get_Volume(); }
void Player::put_Volume(int32_t& value) { core_->put_Volume(value); }
void Player::put_Volume(const int32_t& value) { int32_t copy = value; put_Volume(copy); }
double Player::get_CurrentPosition() { return core_->get_CurrentPosition(); }
void Player::put_CurrentPosition(double& value) {
    core_->controlThreadOnly("Player::put_CurrentPosition");
    core_->put_CurrentPosition(value);
}
void Player::put_CurrentPosition(const double& value) { double copy = value; put_CurrentPosition(copy); }
std::string Player::get_ThisCartName() { return core_->get_ThisCartName(); }
void Player::put_ThisCartName(std::string& value) { core_->put_ThisCartName(value); }
void Player::put_ThisCartName(const std::string& value) { std::string copy = value; put_ThisCartName(copy); }
PlayCondition Player::get_Playstate() { return core_->get_Playstate(); }
double Player::get_GraphPosition() { return core_->get_GraphPosition(); }
double Player::get_GraphDuration() { return core_->get_GraphDuration(); }
void Player::putref_SetSoundCardCollection(const SoundCardCollection& value) { core_->routing().putref_SetSoundCardCollection(value); }
bool Player::SetSoundcard(std::string& NewSoundCardName) { return core_->routing().SetSoundcard(NewSoundCardName); }
bool Player::SetSoundcard(const std::string& NewSoundCardName) { std::string copy = NewSoundCardName; return SetSoundcard(copy); }
std::string Player::GetMainSoundcard() { return core_->routing().GetMainSoundcard(); }
std::string Player::GetPFLSoundcard() { return core_->routing().GetPFLSoundcard(); }
bool Player::SetPFLSoundcard(std::string& NewPFLCard) { return core_->routing().SetPFLSoundcard(NewPFLCard); }
bool Player::SetPFLSoundcard(const std::string& NewPFLCard) { std::string copy = NewPFLCard; return SetPFLSoundcard(copy); }
bool Player::DefaultSoundDeviceExists() { return core_->routing().DefaultSoundDeviceExists(); }
void Player::SoundCardRouterSet() { core_->routing().SoundCardRouterSet(); }
void Player::SoundCardNullSet() { core_->routing().SoundCardNullSet(); }
void Player::CreateNewGraph(bool MakinPFLGraph) { core_->CreateNewGraph(MakinPFLGraph); }
void Player::Init() {
    core_->controlThreadOnly("Player::Init");
    core_->Init();
}
NameCollection Player::get_Plugins() { return core_->get_Plugins(); }
void Player::AddPlugin(const std::string& FilterName) { core_->AddPlugin(FilterName); }
void Player::ShowPropPage(const std::string& filter, int32_t hwnd) { core_->ShowPropPage(filter, hwnd); }
void Player::RaiseEndOfStream() { core_->RaiseEndOfStream(); }
void Player::GetCurrentMainFilterGraph(std::vector<platform::FilterPtr>& CurrentFilterGraph) { core_->GetCurrentMainFilterGraph(CurrentFilterGraph); }
void Player::TestOpen(const std::string& FileToTest) { core_->TestOpen(FileToTest); }
void Player::ShowMainCardPage(int32_t hwnd) { core_->ShowMainCardPage(hwnd); }
std::string Player::PrintFilters(const platform::GraphPtr& GraphMan) { return core_->PrintFilters(GraphMan); }
bool Player::get_UseACM() { return core_->get_UseACM(); }
void Player::put_UseACM(bool& value) { core_->put_UseACM(value); }
void Player::put_UseACM(const bool& value) { bool copy = value; put_UseACM(copy); }
int32_t Player::get_AutoSegThresh() { return core_->get_AutoSegThresh(); }
void Player::put_AutoSegThresh(int32_t& value) { core_->put_AutoSegThresh(value); }
void Player::put_AutoSegThresh(const int32_t& value) { int32_t copy = value; put_AutoSegThresh(copy); }
int32_t Player::get_autoCueThresh() { return core_->get_autoCueThresh(); }
void Player::put_autoCueThresh(int32_t& value) { core_->put_autoCueThresh(value); }
void Player::put_autoCueThresh(const int32_t& value) { int32_t copy = value; put_autoCueThresh(copy); }
void Player::AutoSegSearch() { core_->AutoSegSearch(); }
void Player::AutoCueSearch(const std::string& sFile) { core_->AutoCueSearch(sFile); }
bool Player::FindConnectedFilter(const std::string& FilterName, const platform::GraphPtr& GraphMan, platform::FilterPtr& ParserFilter, platform::PinPtr& Inpin, platform::PinPtr& OutPin) { return core_->FindConnectedFilter(FilterName, GraphMan, ParserFilter, Inpin, OutPin); }
bool Player::get_UsePitchAdjuster() { return core_->get_UsePitchAdjuster(); }
void Player::put_UsePitchAdjuster(bool& value) { core_->put_UsePitchAdjuster(value); }
void Player::put_UsePitchAdjuster(const bool& value) { bool copy = value; put_UsePitchAdjuster(copy); }
std::string Player::get_WMAArtist() { return core_->get_WMAArtist(); }
std::string Player::get_WMATitle() { return core_->get_WMATitle(); }
std::string Player::get_WMAYear() { return core_->get_WMAYear(); }
std::string Player::get_WMAGenre() { return core_->get_WMAGenre(); }
bool Player::get_NewGraphEveryTime() { return core_->get_NewGraphEveryTime(); }
void Player::put_NewGraphEveryTime(bool& value) { core_->put_NewGraphEveryTime(value); }
void Player::put_NewGraphEveryTime(const bool& value) { bool copy = value; put_NewGraphEveryTime(copy); }
SoundCardCollection Player::EnumRenders(bool ForceRefresh) { return core_->routing().EnumRenders(ForceRefresh); }
std::string Player::get_SurroundRenderName() { return core_->get_SurroundRenderName(); }
void Player::IShoutcastCallback_StreamBuffering(int32_t BufferPercentFull) { core_->chains().IShoutcastCallback_StreamBuffering(BufferPercentFull); }
void Player::IShoutcastCallback_MetaChangeCallback(const std::string& sArtistTitle, const std::string& sURL, const std::string& sFullMeta) { core_->chains().IShoutcastCallback_MetaChangeCallback(sArtistTitle, sURL, sFullMeta); }
void Player::IShoutcastCallback_OdStreamSeg(double Seg) { core_->chains().IShoutcastCallback_OdStreamSeg(Seg); }
bool Player::get_isStreaming() { return core_->chains().get_isStreaming(); }
int16_t Player::get_StreamBufferingPercent() { return core_->chains().get_StreamBufferingPercent(); }
bool Player::get_TryingToPlay() { return core_->chains().get_TryingToPlay(); }
bool Player::get_StreamingCanCancelPlay() { return core_->chains().get_StreamingCanCancelPlay(); }
void Player::StreamingCancelPlay() { core_->chains().StreamingCancelPlay(); }
int32_t Player::get_LeftVUPeak() { return core_->get_LeftVUPeak(); }
int32_t Player::get_RightVuPeak() { return core_->get_RightVuPeak(); }
std::string Player::get_ID() { return core_->get_ID(); }
void Player::put_ID(std::string& value) { core_->put_ID(value); }
void Player::put_ID(const std::string& value) { std::string copy = value; put_ID(copy); }
bool Player::get_StreamingIsOnDemandFile() { return core_->chains().get_StreamingIsOnDemandFile(); }
void Player::SilenceDetShowUI(void* Ownerform, const std::string& Notes) { core_->SilenceDetShowUI(Ownerform, Notes); }
bool Player::get_UsingHaldenSource() { return core_->chains().get_UsingHaldenSource(); }
bool Player::get_UsingASFReader() { return core_->chains().get_UsingASFReader(); }
bool Player::get_HaldenSourcePrefer() { return core_->get_HaldenSourcePrefer(); }
void Player::put_HaldenSourcePrefer(bool& value) { core_->put_HaldenSourcePrefer(value); }
void Player::put_HaldenSourcePrefer(const bool& value) { bool copy = value; put_HaldenSourcePrefer(copy); }
double Player::get_AutoCuePos() { return core_->get_AutoCuePos(); }
double Player::get_AutoSegPos() { return core_->get_AutoSegPos(); }
void Player::put_AutoSegPos(double value) { core_->put_AutoSegPos(value); }
bool Player::get_AutoCueBusy() { return core_->get_AutoCueBusy(); }
bool Player::get_Pipe2020() { return core_->get_Pipe2020(); }
void Player::put_Pipe2020(bool& value) { core_->put_Pipe2020(value); }
void Player::put_Pipe2020(const bool& value) { bool copy = value; put_Pipe2020(copy); }
bool Player::get_ASFReaderBanned() { return core_->get_ASFReaderBanned(); }
void Player::put_ASFReaderBanned(bool& value) { core_->put_ASFReaderBanned(value); }
void Player::put_ASFReaderBanned(const bool& value) { bool copy = value; put_ASFReaderBanned(copy); }

} // namespace corvid
