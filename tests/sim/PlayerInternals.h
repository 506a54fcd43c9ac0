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
    std::string& currentItem() { return p.g_.currentItem_; }
    platform::GraphPtr& mainGraph() { return p.g_.MainGraphMan; }
    std::string& lastError() { return p.g_.LastError_; }
    bool& pipe2020() { return p.g_.Pipe2020_; }
    platform::FilterPtr& pipeSender() { return p.g_.fPipeSender; }
    platform::FilterPtr& pitchShifter() { return p.g_.fPitchShifter; }

    // ---- Graph object model and format chains ----
    int32_t errNumber() const { return p.g_.Err.number; }
    const std::string& errDescription() const { return p.g_.Err.description; }
    platform::FilterPtr& sourceFilter() { return p.g_.fSourceFilter; }
    platform::PinPtr& mainSourcePin() { return p.g_.MainSourcePin; }
    platform::FilterPtr& sampleGrabber() { return p.g_.fSampleGrabber; }
    platform::PinPtr& soundCardInPin() { return p.g_.SoundCardInPin; }
    platform::FilterPtr& surround() { return p.g_.fSurround; }
    platform::FilterPtr addFilterByName(const std::string& name) { return p.session_.AddFilterByName(name); }
    bool buildGraph(const std::string& file, bool mustUseAsfReader, bool canUseAutoRender) {
        return p.session_.BuildGraph(file, mustUseAsfReader, canUseAutoRender);
    }
    void clearErr() { p.g_.clearErr(); }
    platform::FilterPtr& mpegSplitter() { return p.g_.fMpegSplitter; }
    platform::FilterPtr& mpegDecoder() { return p.g_.fMpegDecoder; }
    platform::FilterPtr& wmaDecoder() { return p.g_.fWMADecoder; }
    platform::FilterPtr& waveParser() { return p.g_.fWaveParser; }
    platform::FilterPtr& chainAcmWrapper() { return p.g_.fChainACMWrapper; }
    platform::FilterPtr& vorbisDecoder() { return p.g_.fVorbisDecoder; }
    platform::FilterPtr& mp4Parser() { return p.g_.fMp4Parser; }
    platform::PinPtr& surroundInPin() { return p.g_.SurroundInPin; }
    platform::PinPtr& surroundOutPin() { return p.g_.SurroundOutPin; }
    std::string& surroundRenderName() { return p.g_.SurroundRenderName_; }
    int16_t& bufferingPercent() { return p.g_.bufferingPercent_; }
    double& bufferingStart() { return p.g_.bufferingStart_; }
    int16_t& bufferingRestarts() { return p.g_.bufferingRestarts_; }
    TimerClass1* playTimeStopwatch() { return p.g_.playTimeStopwatch_.get(); }

    bool addSoundCard(const std::string& name) { return p.routing_.AddSoundCard(name, false); }
    bool addSourceFilter(const std::string& file) {
        bool mustUseAsfReader = false;
        return p.session_.AddSourceFilter(file, mustUseAsfReader);
    }
    static void getPins(platform::PinPtr& in, platform::PinPtr& out, const platform::FilterPtr& f) {
        FormatChains::GetPins(in, out, f);
    }
    bool connectMp3Filters(platform::PinPtr& source, platform::PinPtr& splitterIn,
                           platform::FilterPtr& splitter, platform::PinPtr& decoderIn,
                           platform::PinPtr& decoderOut, platform::PinPtr& sgIn,
                           platform::PinPtr& sgOut, platform::PinPtr& renderIn,
                           platform::FilterPtr& grabber, bool& usingWM, const std::string& file) {
        return p.chains_.ConnectMp3Filters(source, splitterIn, splitter, decoderIn, decoderOut, sgIn, sgOut,
                                   renderIn, grabber, usingWM, file);
    }
    bool connectWaveFilters(platform::PinPtr& source, platform::PinPtr& parserIn,
                            platform::FilterPtr& parser, platform::PinPtr& sgIn,
                            platform::PinPtr& sgOut, platform::PinPtr& renderIn,
                            platform::FilterPtr& grabber, const std::string& file) {
        return p.chains_.ConnectWaveFilters(source, parserIn, parser, sgIn, sgOut, renderIn, grabber, file);
    }
    bool connectWMAFilters(platform::PinPtr& source, platform::PinPtr& sgIn, platform::PinPtr& sgOut,
                           platform::PinPtr& renderIn, const std::string& file) {
        return p.chains_.ConnectWMAFilters(source, sgIn, sgOut, renderIn, file);
    }
    bool connectOggFilters(platform::PinPtr& source, platform::PinPtr& sgIn, platform::PinPtr& sgOut,
                           platform::PinPtr& renderIn, const std::string& file) {
        return p.chains_.ConnectOggFilters(source, sgIn, sgOut, renderIn, file);
    }
    bool connectMp4Filters(platform::PinPtr& source, platform::PinPtr& sgIn, platform::PinPtr& sgOut,
                           platform::PinPtr& renderIn, platform::FilterPtr& grabber,
                           const std::string& file) {
        return p.chains_.ConnectMp4Filters(source, sgIn, sgOut, renderIn, grabber, file);
    }
    bool connectStreamFilters(platform::PinPtr& source, platform::PinPtr& decoderIn,
                              platform::PinPtr& decoderOut, platform::PinPtr& sgIn,
                              platform::PinPtr& sgOut, platform::PinPtr& renderIn,
                              platform::FilterPtr& grabber, const std::string& file) {
        return p.chains_.ConnectStreamFilters(source, decoderIn, decoderOut, sgIn, sgOut, renderIn, grabber,
                                      file);
    }
    bool addVorbisFilters(bool force) {
        bool ok = false;
        p.chains_.AddVorbisFilters(force, ok);
        return ok;
    }
    void insertSurroundFilter(platform::PinPtr& renderIn) { p.chains_.InsertSurroundFilter(renderIn); }

    void log(const std::string& text) { p.Log(text); }
    void writeLog(const std::string& text) { p.RaiseWriteLog(text); }

    // ---- Transport ----
    bool& seeking() { return p.seeking_; }
    bool& pflGraphFlag() { return p.pflGraph_; }
    platform::StreamSourceControl*& streamControl() { return p.g_.streamControl_; }

    // ---- Cue and segue ----
    bool& seguePending() { return p.seguePending_; }
    platform::GraphHelperPtr& cueHelper() { return p.g_.CueHelper; }
    bool& usingHaldenSource() { return p.g_.UsingHaldenSource_; }

    // ---- Graph session, sources, dispatch, inserts ----
    bool addSourceFilter(const std::string& file, bool& mustUseAsfReader) {
        return p.session_.AddSourceFilter(file, mustUseAsfReader);
    }
    bool connectGraphFilters(const std::string& file, bool canUseAutoRender, bool mustUseAsfReader) {
        return p.session_.ConnectGraphFilters(file, canUseAutoRender, mustUseAsfReader);
    }
    void destroyGraph(bool keep = false) { p.session_.DestroyGraph(keep); }
    void disconnectAllFilters() { p.session_.DisconnectAllFilters(p.g_.MainGraphMan); }
    void removeSourceFilter() { p.session_.RemoveSourceFilter(); }
    platform::FilterPtr createSampleGrabber() { return p.session_.CreateSampleGrabber(); }
    void putSampleGrabberBeforeRender() { p.session_.PutSampleGrabberBeforeRender(); }
    bool insertFilterAfterFilter(const platform::FilterPtr& after, const platform::FilterPtr& insert,
                                 std::string& failure) {
        return p.session_.InsertFilterAfterFilter(after, insert, failure);
    }
    void setupPitchAndPipeSender() { p.session_.SetupPitchAndPipeSender(); }
    bool& addingSourceFilter() { return p.g_.AddingSourceFilter; }
    std::string& addingItemName() { return p.g_.addingItemName_; }
    bool& graphBuilt() { return p.g_.graphBuilt_; }
    platform::FilterPtr& soundCard() { return p.g_.fSoundCard; }
    platform::FilterPtr& pflSoundCard() { return p.g_.fPFLSoundCard; }
    platform::GraphPtr& pflGraph() { return p.g_.PFLGraphMan; }
    platform::GraphHelperPtr& helper() { return p.g_.Helper; }

    // ---- Routing ----
    std::string& pendingMainCard() { return p.routing_.pendingMainCard_; }
    bool addSoundCard(const std::string& name, bool forPfl) { return p.routing_.AddSoundCard(name, forPfl); }
    void applyPendingSoundCards() { p.routing_.ApplyPendingSoundCards(); }
    clsCards& cards() { return p.routing_.Cards(); }
};

} // namespace corvid
