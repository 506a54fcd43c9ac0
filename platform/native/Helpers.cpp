#include "platform/native/Helpers.h"
#include "platform/native/renderers/AudioRenderer.h"

#include "platform/native/analysis/Analyser.h"
#include "platform/native/filters/Filters.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <condition_variable>
#include <mutex>

namespace corvid::native {

using platform::Status;

struct NativeGraphHelper::Shared {
    std::atomic<bool> cancelScan{false};
    ItemScanner scanner; // one scan thread at a time: each is joined before the next starts
    NativeGraphHelper* helper = nullptr; // cleared on the control thread when the helper goes
};

NativeGraphHelper::NativeGraphHelper(platform::GraphHelperKind kind,
                                     std::shared_ptr<platform::EventLoop> loop,
                                     std::shared_ptr<PlatformClock> clock)
    : kind_(kind), loop_(std::move(loop)), shared_(std::make_shared<Shared>()),
      clock_(std::move(clock)) {
    shared_->helper = this;
}

NativeGraphHelper::~NativeGraphHelper() {
    stopScan();
    shared_->scanner.release();
    ticking(false);
    shared_->helper = nullptr;
    setCurrentGraph(nullptr);
}

void NativeGraphHelper::scanTicking(bool on) {
    if (kind_ == platform::GraphHelperKind::CueHelper) ticking(on);
}

void NativeGraphHelper::ticking(bool on) {
    if (on == (subscription_ != 0)) return;
    if (!on) {
        clock_->unsubscribe(subscription_);
        subscription_ = 0;
        return;
    }
    // The clock runs ticks on the control thread and never after the unsubscription (in
    // the destructor at the latest).
    subscription_ = clock_->subscribe([this] { tick(); });
}

void NativeGraphHelper::findMeters(NativeGraph& graph) {
    renderer_ = nullptr;
    grabbers_.clear();
    for (auto& f : graph.nativeFilters()) {
        if (auto* r = f->asRenderer(); r && !renderer_) renderer_ = r;
        if (auto* g = dynamic_cast<SampleGrabberFilter*>(f.get())) grabbers_.push_back(g);
    }
    metersVersion_ = graph.filtersVersion();
    metersFound_ = true;
    grabbersMeter_.reset();
}

void NativeGraphHelper::tick() {
    if (!events_) return;
    int32_t left = 0, right = 0;
    if (native_) {
        if (!metersFound_ || metersVersion_ != native_->filtersVersion()) findMeters(*native_);
        // The meters show what the device plays (the renderer's peaks, read by how far it has
        // played), not what the decoder queued ahead of it; a graph without a renderer yet
        // meters at its first fed sample grabber.
        const bool atRenderer = renderer_ && renderer_->inputConnected();
        if (grabbersMeter_ != !atRenderer) {
            grabbersMeter_ = !atRenderer;
            for (auto* g : grabbers_) g->setMetering(!atRenderer);
        }
        if (atRenderer) {
            renderer_->takePeaks(left, right);
        } else {
            for (auto* g : grabbers_)
                if (g->fed()) {
                    g->takePeaks(left, right);
                    break;
                }
        }
    }
    events_->threadEvent(left, right);
}

void NativeGraphHelper::setCurrentGraph(const platform::GraphPtr& graph) {
    if (auto old = std::dynamic_pointer_cast<NativeGraph>(graph_)) {
        if (observer_) old->removeObserver(observer_);
        if (stateObserver_) old->removeStateObserver(stateObserver_);
    }
    observer_ = stateObserver_ = 0;
    graph_ = graph;
    auto native = std::dynamic_pointer_cast<NativeGraph>(graph_);
    native_ = native.get();
    metersFound_ = false;
    renderer_ = nullptr;
    grabbers_.clear();
    if (kind_ == platform::GraphHelperKind::Helper)
        ticking(native && native->state() == platform::GraphState::Running);
    if (!native) return;
    std::weak_ptr<Shared> weak = shared_;
    // An item that cannot go on (ErrorAbort) ends as an item that ran out does.
    observer_ = native->addObserver([weak](platform::GraphEvent event) {
        auto s = weak.lock();
        if (!s || !s->helper || event == platform::GraphEvent::DeviceLost) return;
        if (s->helper->events_) s->helper->events_->endOfStream();
    });
    if (kind_ == platform::GraphHelperKind::Helper)
        stateObserver_ = native->addStateObserver([weak](platform::GraphState state) {
            auto s = weak.lock();
            if (s && s->helper) s->helper->ticking(state == platform::GraphState::Running);
        });
}

Status NativeGraphHelper::run() {
    return graph_ ? graph_->run() : Status::success();
}

Status NativeGraphHelper::pause() {
    return graph_ ? graph_->pause() : Status::success();
}

Status NativeGraphHelper::stop() {
    stopScan();
    shared_->scanner.release();
    return graph_ ? graph_->stop() : Status::success();
}

Status NativeGraphHelper::startCueSearch(const std::string& file, const std::vector<std::string>&,
                                         bool, int32_t threshold) {
    startScan(file, threshold, false);
    return Status::success();
}

Status NativeGraphHelper::startSegueSearch(const std::string& file,
                                           const std::vector<std::string>&, bool,
                                           int32_t threshold) {
    startScan(file, threshold, true);
    return Status::success();
}

Status NativeGraphHelper::startSegueSearchOwnSource(const std::string& file,
                                                    const std::vector<std::string>&,
                                                    int32_t threshold) {
    startScan(file, threshold, true);
    return Status::success();
}

void NativeGraphHelper::stopScan() {
    shared_->cancelScan.store(true);
    if (scanner_.joinable()) scanner_.join();
    shared_->cancelScan.store(false);
    scanTicking(false);
}

void NativeGraphHelper::startScan(const std::string& file, int32_t threshold, bool segue) {
    stopScan();
    std::weak_ptr<Shared> weak = shared_;
    auto shared = shared_;
    auto loop = loop_;
    scanner_ = std::thread([shared, weak, loop, file, threshold, segue] {
        const int32_t ms = segue ? shared->scanner.segue(file, threshold, shared->cancelScan)
                                 : shared->scanner.cueIn(file, threshold, shared->cancelScan);
        if (shared->cancelScan.load()) return;
        loop->post([weak, ms, segue] {
            auto s = weak.lock();
            if (s && s->helper) s->helper->scanTicking(false);
            if (!s || !s->helper || !s->helper->events_) return;
            if (segue) s->helper->events_->segueFound(ms);
            else s->helper->events_->cueInFound(ms);
        });
    });
    scanTicking(true);
}

} // namespace corvid::native
