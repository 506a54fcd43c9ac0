#pragma once
// The native graph helpers. Both tick on the platform's clock, which the control thread's
// event loop runs (a late pump gets one tick, not a burst), and only while there is something
// to tick for: `Helper` while its graph runs, reporting the peaks of what its graph's device
// played since the last tick and the graph's end; `CueHelper` while a scan is under
// way (its ticks time the player's give-up), scanning items on a worker thread for their
// cue-in and segue points.

#include "platform/GraphHelper.h"
#include "platform/native/PlatformClock.h"
#include "platform/native/graph/Graph.h"

#include <atomic>
#include <memory>
#include <optional>
#include <thread>
#include <vector>

namespace corvid::native {

class AudioRenderer;
class SampleGrabberFilter;

class NativeGraphHelper final : public platform::GraphHelper {
public:
    // `loop` must be the control thread's; `clock` the platform's, which sets the tick rate.
    NativeGraphHelper(platform::GraphHelperKind kind, std::shared_ptr<platform::EventLoop> loop,
                      std::shared_ptr<PlatformClock> clock);
    ~NativeGraphHelper() override;

    // All members: control thread.
    void setEvents(platform::GraphHelperEvents* events) override { events_ = events; }
    void setCurrentGraph(const platform::GraphPtr& graph) override;
    platform::GraphPtr currentGraph() const override { return graph_; }
    platform::Status run() override;
    platform::Status pause() override;
    platform::Status stop() override;
    platform::Status startCueSearch(const std::string& file, const std::vector<std::string>& filters,
                                    bool useAsfReader, int32_t threshold) override;
    platform::Status startSegueSearch(const std::string& file,
                                      const std::vector<std::string>& filters, bool useAsfReader,
                                      int32_t threshold) override;
    platform::Status startSegueSearchOwnSource(const std::string& file,
                                               const std::vector<std::string>& filters,
                                               int32_t threshold) override;

private:
    struct Shared;
    void tick();
    // Control thread: the graph's renderer and sample grabbers, found again only when its
    // filters change (not on every tick).
    void findMeters(NativeGraph& graph);
    // Control thread: on the clock or off it.
    void ticking(bool on);
    // Control thread: a `CueHelper` ticks while a scan is under way, for the give-up.
    void scanTicking(bool on);
    void startScan(const std::string& file, int32_t threshold, bool segue);
    void stopScan();

    platform::GraphHelperKind kind_;
    std::shared_ptr<platform::EventLoop> loop_;
    platform::GraphHelperEvents* events_ = nullptr;
    platform::GraphPtr graph_;
    NativeGraph* native_ = nullptr; // graph_ when it is a native graph
    uint64_t metersVersion_ = 0;    // native_'s filtersVersion() when the meters were found
    bool metersFound_ = false;
    AudioRenderer* renderer_ = nullptr;
    std::vector<SampleGrabberFilter*> grabbers_;
    // Whether the grabbers were last told to measure (they are while the renderer cannot
    // meter); unknown after the meters were looked for again.
    std::optional<bool> grabbersMeter_;
    int observer_ = 0;
    int stateObserver_ = 0;
    std::shared_ptr<Shared> shared_;
    std::shared_ptr<PlatformClock> clock_;
    int subscription_ = 0;
    std::thread scanner_;
};

} // namespace corvid::native
