#pragma once
// White-box access to a Player for its own tests: the state that the public surface does not
// show, and the private operations a test drives one at a time. Shared by every test file;
// add accessors here rather than in a test.

#include "control/Player.h"

#include <string>

namespace corvid {

struct PlayerInternals {
    explicit PlayerInternals(Player& p) : p(p) {}
    Player& p;

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

    void log(const std::string& text) { p.Log(text); }
    void writeLog(const std::string& text) { p.RaiseWriteLog(text); }

    // ---- Transport ----
    bool& seeking() { return p.seeking_; }
    bool& graphLoaded() { return p.graphLoaded_; }
    bool& loadBusy() { return p.loadBusy_; }

    // ---- Cue and segue ----
    bool& seguePending() { return p.seguePending_; }
    platform::GraphHelperPtr& cueHelper() { return p.CueHelper; }
    bool& usingAsfReader() { return p.UsingASFReader_; }
    bool& usingHaldenSource() { return p.UsingHaldenSource_; }

    // ---- Graph session, sources, dispatch, inserts ----
    bool buildGraph(const std::string& file, bool mustUseAsfReader, bool canUseAutoRender) {
        return p.BuildGraph(file, mustUseAsfReader, canUseAutoRender);
    }
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
    platform::FilterPtr addFilterByName(const std::string& name) { return p.AddFilterByName(name); }
    bool& addingSourceFilter() { return p.AddingSourceFilter; }
    std::string& addingItemName() { return p.addingItemName_; }
    bool& graphBuilt() { return p.graphBuilt_; }
    bool& useAcm() { return p.UseACM_; }
    int32_t errNumber() const { return p.Err.number; }
    std::string errDescription() const { return p.Err.description; }
    platform::FilterPtr& sourceFilter() { return p.fSourceFilter; }
    platform::PinPtr& mainSourcePin() { return p.MainSourcePin; }
    platform::FilterPtr& sampleGrabber() { return p.fSampleGrabber; }
    platform::PinPtr& sampleGrabberInPin() { return p.SampleGrabberInPin; }
    platform::FilterPtr& soundCard() { return p.fSoundCard; }
    platform::PinPtr& soundCardInPin() { return p.SoundCardInPin; }
    platform::FilterPtr& pflSoundCard() { return p.fPFLSoundCard; }
    platform::GraphPtr& pflGraph() { return p.PFLGraphMan; }
    platform::FilterPtr& surround() { return p.fSurround; }
    platform::GraphHelperPtr& helper() { return p.Helper; }

    // ---- Routing ----
    std::string& mainCardName() { return p.mainCardName_; }
    std::string& pendingMainCard() { return p.pendingMainCard_; }
    std::string& pendingPflCard() { return p.pendingPflCard_; }
    bool addSoundCard(const std::string& name, bool forPfl) { return p.AddSoundCard(name, forPfl); }
    void applyPendingSoundCards() { p.ApplyPendingSoundCards(); }
    clsCards& cards() { return p.Cards(); }
};

} // namespace corvid
