#include "platform/native/graph/Graph.h"

#include "platform/native/Realtime.h"
#include "platform/native/renderers/AudioRenderer.h"

#include <algorithm>
#include <pthread.h>

// Streaming threads: one per stream head, while it has audio to move (from a start, resume or
// seek until its stream has ended and been heard, or, paused, until a ring is full).

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
    streamRenderers_ = activeRenderers();
    for (auto& f : filters_) {
        if (!f->isStreamHead()) continue;
        auto runner = std::make_unique<HeadRunner>();
        runner->filter = f.get();
        // The first thing each head does is a seek to where the play starts: it rewinds a
        // stream that ended before, and tells the chain where the play begins.
        runner->seek = stoppedPosition_;
        runner->park = target != GraphState::Running;
        runners_.push_back(std::move(runner));
    }
    for (auto& runner : runners_) startHead(*runner);
    return Status::success();
}

void NativeGraph::startHead(HeadRunner& runner) {
    {
        std::lock_guard lock(runner.mutex);
        if (runner.running) return; // it sees the request before it decides to end
        runner.running = true;
    }
    // An earlier thread decided to end and has returned, or is returning.
    if (runner.thread.joinable()) runner.thread.join();
    for (auto* r : streamRenderers_) r->handOver();
    runner.thread = std::thread([this, &runner] { headLoop(runner); });
}

bool NativeGraph::headIdle(const HeadRunner& runner) const {
    auto any = [&](bool (AudioRenderer::*held)() const) {
        return std::any_of(streamRenderers_.begin(), streamRenderers_.end(),
                           [&](AudioRenderer* r) { return (r->*held)(); });
    };
    // An ended stream waits for nothing but a seek, or for the resume of an end not yet heard;
    // a paused one has moved enough once a ring is full.
    if (runner.ended) return runner.park || !any(&AudioRenderer::endParked);
    return runner.park && any(&AudioRenderer::parked);
}

void NativeGraph::headLoop(HeadRunner& runner) {
    pthread_setname_np(pthread_self(), "corvid-stream");
    // This thread refills the device: it must not wait behind other work.
    const RealtimeGrant grant = requestRealtime();
    if (realtimeNoteIsNew(grant)) postReport(grant.note);
    for (;;) {
        std::optional<double> seek;
        {
            std::lock_guard lock(runner.mutex);
            seek.swap(runner.seek);
            if (runner.stop || (!seek && headIdle(runner))) {
                runner.running = false;
                return;
            }
        }
        if (seek) {
            runner.generation = this->generation();
            runner.filter->seekTo(*seek);
            for (auto& pin : runner.filter->nativePins())
                if (!pin->isInput()) pin->deliverFlush(*seek);
            runner.ended = false;
        } else if (runner.ended) {
            for (auto* r : streamRenderers_) r->resumeEnd();
        } else if (runner.filter->produce(runner.generation) == Produced::End) {
            for (auto& pin : runner.filter->nativePins())
                if (!pin->isInput()) pin->deliverEndOfStream(runner.generation);
            runner.ended = true;
        }
    }
}

void NativeGraph::stopStreaming() {
    if (state_ == GraphState::Stopped && runners_.empty()) return;
    double position = 0;
    currentPosition(position);
    generation_.fetch_add(1, std::memory_order_acq_rel);
    for (auto& runner : runners_) {
        std::lock_guard lock(runner->mutex);
        runner->stop = true;
    }
    for (auto& f : filters_) f->unblock();
    for (auto& runner : runners_)
        if (runner->thread.joinable()) runner->thread.join();
    runners_.clear();
    streamRenderers_.clear();
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
        startHead(*runner);
    }
    // A streaming thread waiting for ring space gives up the stale audio at once.
    for (auto* r : activeRenderers()) r->unblock();
}

// Control thread: a pause lets the streaming threads end once the rings are full (the stash
// keeps what did not fit), a resume starts them again where they stood.
void NativeGraph::parkStreaming(bool park) {
    for (auto& runner : runners_) {
        {
            std::lock_guard lock(runner->mutex);
            runner->park = park;
        }
        if (!park) startHead(*runner);
    }
}

} // namespace corvid::native
