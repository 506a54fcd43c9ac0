#pragma once
// The simulated analysis graphs (Helper, CueHelper). They record what the player asked of
// them; their events are fired by the test, or, when automation is switched on, by the
// virtual clock: a tick every `tickMs` with the followed graph's levels, and the end of
// stream when the followed graph reaches its end.
//
// Threads: control thread only. Fired events are delivered at once; automatic ones are
// posted to the event loop, as the native helper's worker does.

#include "platform/GraphHelper.h"
#include "platform/sim/SimTypes.h"

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace corvid::sim {

namespace detail {
class World;
}
class SimGraph;

struct HelperAutomation {
    bool ticks = false;       // tick while running, with the followed graph's peaks
    bool endOfStream = false; // report the followed graph's end
    int32_t tickMs = 50;      // 20 Hz
    // Answer cue and segue searches from the file's level profile after `searchMs`: the
    // cue-in is the first point at or above the threshold (-1: none), the segue point the
    // start of the quiet stretch at the end (the duration when the item ends loud). An
    // unknown file ends the search with endOfStream and no result.
    bool searches = false;
    int32_t searchMs = 200;
};

struct HelperSearch {
    enum class Kind { Cue, Segue, SegueOwnSource };
    Kind kind = Kind::Cue;
    std::string file;
    std::vector<std::string> filters;
    bool useAsfReader = false;
    int32_t threshold = 0;
};

class SimGraphHelper : public platform::GraphHelper,
                       public std::enable_shared_from_this<SimGraphHelper> {
public:
    SimGraphHelper(std::shared_ptr<detail::World> world, platform::GraphHelperKind kind,
                   HelperAutomation automation);

    void setEvents(platform::GraphHelperEvents* events) override { events_ = events; }
    void setCurrentGraph(const platform::GraphPtr& graph) override;
    platform::GraphPtr currentGraph() const override { return graph_; }
    Status run() override;
    Status pause() override;
    Status stop() override;
    Status startCueSearch(const std::string& file, const std::vector<std::string>& filters,
                          bool useAsfReader, int32_t threshold) override;
    Status startSegueSearch(const std::string& file, const std::vector<std::string>& filters,
                            bool useAsfReader, int32_t threshold) override;
    Status startSegueSearchOwnSource(const std::string& file,
                                     const std::vector<std::string>& filters,
                                     int32_t threshold) override;

    // Simulation surface.
    platform::GraphHelperKind kind() const { return kind_; }
    platform::GraphState state() const { return state_; }
    // Calls in order: "setCurrentGraph", "run", "pause", "stop", "startCueSearch",
    // "startSegueSearch", "startSegueSearchOwnSource" (failed calls too).
    const std::vector<std::string>& calls() const { return calls_; }
    const std::vector<HelperSearch>& searches() const { return searches_; }
    const HelperSearch* lastSearch() const { return searches_.empty() ? nullptr : &searches_.back(); }
    int count(const std::string& call) const;
    HelperAutomation& automation() { return automation_; }
    bool hasEvents() const { return events_ != nullptr; }

    // Events as the helper would raise them, delivered at once; false when nobody listens.
    bool fireThreadEvent(int32_t left, int32_t right);
    bool fireEndOfStream();
    bool fireCueIn(int32_t positionMs);
    bool fireSegue(int32_t positionMs);

private:
    friend class detail::World;
    friend class SimGraph;
    Status transport(const char* call, FaultPoint point, platform::GraphState next);
    Status search(HelperSearch s, const char* call);
    const char* kindName() const;
    // Virtual clock hooks.
    void tickDue();
    void followedGraphEnded();
    void searchesDue();
    int64_t nextSearchDue() const;
    void post(std::function<void(SimGraphHelper&)> event);

    std::shared_ptr<detail::World> world_;
    platform::GraphHelperKind kind_;
    HelperAutomation automation_;
    platform::GraphHelperEvents* events_ = nullptr;
    platform::GraphPtr graph_;
    platform::GraphState state_ = platform::GraphState::Stopped;
    std::vector<std::string> calls_;
    std::vector<HelperSearch> searches_;
    int64_t nextTickAt_ = 0;
    struct Pending {
        HelperSearch search;
        int64_t dueAt = 0;
    };
    std::vector<Pending> pending_;
};

} // namespace corvid::sim
