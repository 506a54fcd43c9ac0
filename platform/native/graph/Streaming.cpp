#include "platform/native/graph/Graph.h"

#include "platform/native/Realtime.h"
#include "platform/native/renderers/AudioRenderer.h"

#include <pthread.h>

// Streaming threads: one per stream head, from the start of the streaming to its stop.

namespace corvid::native {

using platform::GraphState;

Status NativeGraph::startStreaming(GraphState target) {
    for (auto* r : activeRenderers()) {
        r->setStartPosition(stoppedPosition_);
        r->setVolume(volume_);
        r->setRate(rate_);
        r->setPaused(target != GraphState::Running);
    }
    std::vector<NativeFilter*> activated;
    for (auto& f : filters_) {
        Status s = f->activate();
        if (!s) {
            for (auto* a : activated) a->deactivate();
            return s;
        }
        activated.push_back(f.get());
    }
    generation_.fetch_add(1, std::memory_order_acq_rel);
    endRaised_ = false;
    endedRenderers_.clear();
    for (auto& f : filters_) {
        if (!f->isStreamHead()) continue;
        auto runner = std::make_unique<HeadRunner>();
        runner->filter = f.get();
        // The first thing each head does is a seek to where the play starts: it rewinds a
        // stream that ended before, and tells the chain where the play begins.
        runner->seek = stoppedPosition_;
        runners_.push_back(std::move(runner));
    }
    for (auto& runner : runners_) {
        HeadRunner* r = runner.get();
        r->thread = std::thread([this, r] { headLoop(*r); });
    }
    return Status::success();
}

void NativeGraph::headLoop(HeadRunner& runner) {
    pthread_setname_np(pthread_self(), "corvid-stream");
    // This thread refills the device: it must not wait behind other work.
    const RealtimeGrant grant = requestRealtime();
    if (realtimeNoteIsNew(grant)) postReport(grant.note);
    uint64_t generation = this->generation();
    bool ended = false;
    for (;;) {
        std::optional<double> seek;
        {
            std::unique_lock lock(runner.mutex);
            if (ended && !runner.seek && !runner.stop)
                runner.wake.wait(lock, [&] { return runner.stop || runner.seek.has_value(); });
            if (runner.stop) return;
            seek.swap(runner.seek);
        }
        if (seek) {
            generation = this->generation();
            runner.filter->seekTo(*seek);
            for (auto& pin : runner.filter->nativePins())
                if (!pin->isInput()) pin->deliverFlush(*seek);
            ended = false;
            continue;
        }
        if (runner.filter->produce(generation) == Produced::End) {
            for (auto& pin : runner.filter->nativePins())
                if (!pin->isInput()) pin->deliverEndOfStream(generation);
            ended = true;
        }
    }
}

void NativeGraph::stopStreaming() {
    if (state_ == GraphState::Stopped && runners_.empty()) return;
    double position = 0;
    currentPosition(position);
    generation_.fetch_add(1, std::memory_order_acq_rel);
    for (auto& runner : runners_) {
        {
            std::lock_guard lock(runner->mutex);
            runner->stop = true;
        }
        runner->wake.notify_all();
    }
    for (auto& f : filters_) f->unblock();
    for (auto& runner : runners_)
        if (runner->thread.joinable()) runner->thread.join();
    runners_.clear();
    for (auto& f : filters_) f->deactivate();
    stoppedPosition_ = position;
    setState(GraphState::Stopped);
}

void NativeGraph::quiesce() {
    if (state_ != GraphState::Stopped) stopStreaming();
}

void NativeGraph::seekStreaming(double seconds) {
    for (auto& runner : runners_) {
        {
            std::lock_guard lock(runner->mutex);
            runner->seek = seconds;
        }
        runner->wake.notify_all();
    }
    // A streaming thread waiting for ring space gives up the stale audio at once.
    for (auto* r : activeRenderers()) r->unblock();
}

} // namespace corvid::native
