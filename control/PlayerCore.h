#pragma once
// The player's parts, made and wired together once: the graph work below (routing, chains,
// graph session) over one graph model, and the control parts (transport, cue and segue,
// levels, options) over them. Player hands each public member straight to the part that
// carries it; what is left here is the load and the few members that reach several parts.

#include <corvid/NameCollection.h>

#include "control/CueSegue.h"
#include "control/Options.h"
#include "control/Transport.h"
#include "devices/GraphModel.h"
#include "devices/Routing.h"
#include "formats/FormatChains.h"
#include "graph/GraphSession.h"
#include "levels/Levels.h"
#include "platform/Platform.h"
#include "support/EventChannel.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace corvid {

class MediaTags;

class PlayerCore : private GraphHost {
public:
    explicit PlayerCore(platform::Platform& platform);
    ~PlayerCore();
    PlayerCore(const PlayerCore&) = delete;
    PlayerCore& operator=(const PlayerCore&) = delete;

    // Whether the host is in run mode; Init acts only then. Default true.
    void setRunMode(bool running) { runMode_ = running; }

    // ---- The load (control/Load.cpp) ----
    std::string get_FileName() { return g.currentItem_; }
    void put_FileName(std::string& value);
    bool get_UsingASFReaderAsFallback() const { return usedOtherSource_; }

    // ---- Members that reach several parts ----
    void Init();
    std::string get_LastError() { return g.LastError_; }
    void ShowPropPage(const std::string& filter, int32_t hwnd = 0);
    void ShowMainCardPage(int32_t hwnd = 0);
    void TestOpen(const std::string& FileToTest);
    void GetCurrentMainFilterGraph(std::vector<platform::FilterPtr>& CurrentFilterGraph);
    bool FindConnectedFilter(const std::string& FilterName, const platform::GraphPtr& GraphMan,
                             platform::FilterPtr& ParserFilter, platform::PinPtr& Inpin,
                             platform::PinPtr& OutPin);
    std::string get_WMAArtist();
    std::string get_WMATitle();
    std::string get_WMAYear();
    std::string get_WMAGenre();

private:
    platform::Platform& platform_;

public:
    // ---- The parts, bottom up; each owns its state ----
    GraphModel g;
    EventChannel events;
    DeviceRouting routing;
    FormatChains chains;
    GraphSession session;
    Levels levels;
    Transport transport;
    CueSegue cueSegue;
    Options options;

private:
    // GraphHost: the helpers of a new graph, wired to the transport and the cue search.
    void CreateHelpers() override;
    bool get_PipeSenderDownstreamMute() override { return options.get_PipeSenderDownstreamMute(); }
    void put_PipeSenderDownstreamMute(bool& value) override { options.put_PipeSenderDownstreamMute(value); }
    class HelperSink;

    // Every stream address loads with this duration, whatever the stream reports.
    static constexpr double StreamDurationSeconds = 216000.0;
    void LoadItem(const std::string& newName);
    void LoadItemSteps(const std::string& newName, Reentrance::Operation& load);
    void LoadSucceeded(const item::Name& item);
    void UnloadItem();
    void FailLoad(const std::string& name);
    bool RetryThroughOtherSource();
    void LogCheckpoint(int n);
    MediaTags& Tags();

    bool runMode_ = true;
    bool usedOtherSource_ = false; // the item loaded through the other source filter
    int32_t loadStart_ = 0;
    std::unique_ptr<platform::GraphHelperEvents> helperSink_;
    std::unique_ptr<platform::GraphHelperEvents> cueHelperSink_;
    std::unique_ptr<platform::TagReader> tagReader_; // outlives tags_, which reads through it
    std::unique_ptr<MediaTags> tags_;
};

} // namespace corvid
