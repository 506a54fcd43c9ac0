#pragma once
// White-box access to a Player for its own tests: the state that the public surface does not
// show, and the private operations a test drives one at a time. Shared by every test file;
// add accessors here rather than in a test.

#include <corvid/Player.h>
#include "control/PlayerCore.h"

#include <string>

namespace corvid {

struct PlayerInternals {
    explicit PlayerInternals(Player& player) : p(*player.core_) {}
    PlayerCore& p;

    PlayCondition& storedPlaystate() { return p.playstate_; }
    bool& playingOverride() { return p.playingOverride_; }
    int32_t& leftPeak() { return p.leftPeak_; }
    int32_t& rightPeak() { return p.rightPeak_; }
    std::string& currentItem() { return p.currentItem_; }
    platform::GraphPtr& mainGraph() { return p.MainGraphMan; }
    std::string& lastError() { return p.LastError_; }
    bool& pipe2020() { return p.Pipe2020_; }
    platform::FilterPtr& pipeSender() { return p.fPipeSender; }
    platform::FilterPtr& pitchShifter() { return p.fPitchShifter; }

    // ---- Graph object model and format chains ----
    int32_t errNumber() const { return p.Err.number; }
    const std::string& errDescription() const { return p.Err.description; }
    platform::FilterPtr& sourceFilter() { return p.fSourceFilter; }
    platform::PinPtr& mainSourcePin() { return p.MainSourcePin; }
    platform::FilterPtr& sampleGrabber() { return p.fSampleGrabber; }
    platform::PinPtr& soundCardInPin() { return p.SoundCardInPin; }
    platform::FilterPtr& surround() { return p.fSurround; }
    platform::FilterPtr addFilterByName(const std::string& name) { return p.AddFilterByName(name); }
    bool buildGraph(const std::string& file, bool mustUseAsfReader, bool canUseAutoRender) {
        return p.BuildGraph(file, mustUseAsfReader, canUseAutoRender);
    }
    void clearErr() { p.clearErr(); }
    platform::FilterPtr& mpegSplitter() { return p.fMpegSplitter; }
    platform::FilterPtr& mpegDecoder() { return p.fMpegDecoder; }
    platform::FilterPtr& wmaDecoder() { return p.fWMADecoder; }
    platform::FilterPtr& waveParser() { return p.fWaveParser; }
    platform::FilterPtr& chainAcmWrapper() { return p.fChainACMWrapper; }
    platform::FilterPtr& vorbisDecoder() { return p.fVorbisDecoder; }
    platform::FilterPtr& mp4Parser() { return p.fMp4Parser; }
    platform::PinPtr& surroundInPin() { return p.SurroundInPin; }
    platform::PinPtr& surroundOutPin() { return p.SurroundOutPin; }
    std::string& surroundRenderName() { return p.SurroundRenderName_; }
    int16_t& bufferingPercent() { return p.bufferingPercent_; }
    double& bufferingStart() { return p.bufferingStart_; }
    int16_t& bufferingRestarts() { return p.bufferingRestarts_; }
    TimerClass1* playTimeStopwatch() { return p.playTimeStopwatch_.get(); }

    bool addSoundCard(const std::string& name) { return p.AddSoundCard(name, false); }
    bool addSourceFilter(const std::string& file) {
        bool mustUseAsfReader = false;
        return p.AddSourceFilter(file, mustUseAsfReader);
    }
    static void getPins(platform::PinPtr& in, platform::PinPtr& out, const platform::FilterPtr& f) {
        PlayerCore::GetPins(in, out, f);
    }
    bool connectMp3Filters(platform::PinPtr& source, platform::PinPtr& splitterIn,
                           platform::FilterPtr& splitter, platform::PinPtr& decoderIn,
                           platform::PinPtr& decoderOut, platform::PinPtr& sgIn,
                           platform::PinPtr& sgOut, platform::PinPtr& renderIn,
                           platform::FilterPtr& grabber, bool& usingWM, const std::string& file) {
        return p.ConnectMp3Filters(source, splitterIn, splitter, decoderIn, decoderOut, sgIn, sgOut,
                                   renderIn, grabber, usingWM, file);
    }
    bool connectWaveFilters(platform::PinPtr& source, platform::PinPtr& parserIn,
                            platform::FilterPtr& parser, platform::PinPtr& sgIn,
                            platform::PinPtr& sgOut, platform::PinPtr& renderIn,
                            platform::FilterPtr& grabber, const std::string& file) {
        return p.ConnectWaveFilters(source, parserIn, parser, sgIn, sgOut, renderIn, grabber, file);
    }
    bool connectWMAFilters(platform::PinPtr& source, platform::PinPtr& sgIn, platform::PinPtr& sgOut,
                           platform::PinPtr& renderIn, const std::string& file) {
        return p.ConnectWMAFilters(source, sgIn, sgOut, renderIn, file);
    }
    bool connectOggFilters(platform::PinPtr& source, platform::PinPtr& sgIn, platform::PinPtr& sgOut,
                           platform::PinPtr& renderIn, const std::string& file) {
        return p.ConnectOggFilters(source, sgIn, sgOut, renderIn, file);
    }
    bool connectMp4Filters(platform::PinPtr& source, platform::PinPtr& sgIn, platform::PinPtr& sgOut,
                           platform::PinPtr& renderIn, platform::FilterPtr& grabber,
                           const std::string& file) {
        return p.ConnectMp4Filters(source, sgIn, sgOut, renderIn, grabber, file);
    }
    bool connectStreamFilters(platform::PinPtr& source, platform::PinPtr& decoderIn,
                              platform::PinPtr& decoderOut, platform::PinPtr& sgIn,
                              platform::PinPtr& sgOut, platform::PinPtr& renderIn,
                              platform::FilterPtr& grabber, const std::string& file) {
        return p.ConnectStreamFilters(source, decoderIn, decoderOut, sgIn, sgOut, renderIn, grabber,
                                      file);
    }
    bool addVorbisFilters(bool force) {
        bool ok = false;
        p.AddVorbisFilters(force, ok);
        return ok;
    }
    void insertSurroundFilter(platform::PinPtr& renderIn) { p.InsertSurroundFilter(renderIn); }

    void log(const std::string& text) { p.Log(text); }
    void writeLog(const std::string& text) { p.RaiseWriteLog(text); }

    // ---- Transport ----
    bool& seeking() { return p.seeking_; }
    bool& pflGraphFlag() { return p.pflGraph_; }
    platform::StreamSourceControl*& streamControl() { return p.streamControl_; }

    // ---- Cue and segue ----
    bool& seguePending() { return p.seguePending_; }
    platform::GraphHelperPtr& cueHelper() { return p.CueHelper; }
    bool& usingHaldenSource() { return p.UsingHaldenSource_; }

    // ---- Graph session, sources, dispatch, inserts ----
    bool addSourceFilter(const std::string& file, bool& mustUseAsfReader) {
        return p.AddSourceFilter(file, mustUseAsfReader);
    }
    bool connectGraphFilters(const std::string& file, bool canUseAutoRender, bool mustUseAsfReader) {
        return p.ConnectGraphFilters(file, canUseAutoRender, mustUseAsfReader);
    }
    void destroyGraph(bool keep = false) { p.DestroyGraph(keep); }
    void disconnectAllFilters() { p.DisconnectAllFilters(p.MainGraphMan); }
    void removeSourceFilter() { p.RemoveSourceFilter(); }
    platform::FilterPtr createSampleGrabber() { return p.CreateSampleGrabber(); }
    void putSampleGrabberBeforeRender() { p.PutSampleGrabberBeforeRender(); }
    bool insertFilterAfterFilter(const platform::FilterPtr& after, const platform::FilterPtr& insert,
                                 std::string& failure) {
        return p.InsertFilterAfterFilter(after, insert, failure);
    }
    void setupPitchAndPipeSender() { p.SetupPitchAndPipeSender(); }
    bool& addingSourceFilter() { return p.AddingSourceFilter; }
    std::string& addingItemName() { return p.addingItemName_; }
    bool& graphBuilt() { return p.graphBuilt_; }
    platform::FilterPtr& soundCard() { return p.fSoundCard; }
    platform::FilterPtr& pflSoundCard() { return p.fPFLSoundCard; }
    platform::GraphPtr& pflGraph() { return p.PFLGraphMan; }
    platform::GraphHelperPtr& helper() { return p.Helper; }

    // ---- Routing ----
    std::string& pendingMainCard() { return p.pendingMainCard_; }
    bool addSoundCard(const std::string& name, bool forPfl) { return p.AddSoundCard(name, forPfl); }
    void applyPendingSoundCards() { p.ApplyPendingSoundCards(); }
    clsCards& cards() { return p.Cards(); }
};

} // namespace corvid
