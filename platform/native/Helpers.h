#pragma once
// The native graph helpers. Both tick at a steady rate on a ticker thread that posts to the
// control thread (a tick is skipped while the previous one waits in the queue). `Helper`
// reports the peaks its graph's sample grabber saw since the last tick and the graph's end;
// `CueHelper` scans items on a worker thread for their cue-in and segue points.

#include "platform/GraphHelper.h"
#include "platform/native/graph/Graph.h"

#include <atomic>
#include <memory>
#include <thread>

namespace corvid::native {

class NativeGraphHelper final : public platform::GraphHelper {
public:
    // `loop` must be the control thread's; `tickHz` the tick rate (1..1000).
    NativeGraphHelper(platform::GraphHelperKind kind, std::shared_ptr<platform::EventLoop> loop,
                      int tickHz);
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
    void startScan(const std::string& file, int32_t threshold, bool segue);
    void stopScan();

    platform::GraphHelperKind kind_;
    std::shared_ptr<platform::EventLoop> loop_;
    platform::GraphHelperEvents* events_ = nullptr;
    platform::GraphPtr graph_;
    int observer_ = 0;
    std::shared_ptr<Shared> shared_;
    std::thread ticker_;
    std::thread scanner_;
};

} // namespace corvid::native
