#include "platform/native/graph/Graph.h"

#include "platform/native/renderers/AudioRenderer.h"

#include <algorithm>

// Transport and position: run, pause and stop, the position, the rate and the volume.

namespace corvid::native {

using platform::GraphState;

// Running and paused both hold the filters active, the rings filled and the devices open;
// they differ in whether the renderers consume and whether the streaming threads go on once
// the rings are full. The streaming threads park before the renderers pause and resume after
// them, so that no thread goes on stashing behind a paused renderer.
Status NativeGraph::enter(GraphState target) {
    if (state_ == target) return Status::success();
    const bool paused = target == GraphState::Paused;
    if (state_ == GraphState::Stopped) {
        Status s = startStreaming(target);
        if (!s) return s;
    } else if (paused) {
        parkStreaming(true);
    }
    for (auto* r : activeRenderers()) r->setPaused(paused);
    if (!paused) parkStreaming(false);
    setState(target);
    return Status::success();
}

Status NativeGraph::run() { return enter(GraphState::Running); }

Status NativeGraph::pause() { return enter(GraphState::Paused); }

Status NativeGraph::stop() {
    stopStreaming();
    return Status::success();
}

Status NativeGraph::duration(double& seconds) {
    seconds = 0;
    for (auto& f : filters_) seconds = std::max(seconds, f->durationSeconds());
    return Status::success();
}

Status NativeGraph::currentPosition(double& seconds) {
    seconds = stoppedPosition_;
    if (state_ == GraphState::Stopped) return Status::success();
    // Read on every helper tick: the first connected renderer, without making a list.
    for (auto& f : filters_)
        if (auto* r = f->asRenderer(); r && r->inputConnected()) {
            seconds = r->position();
            break;
        }
    return Status::success();
}

Status NativeGraph::setCurrentPosition(double seconds) {
    seconds = std::max(0.0, seconds);
    double length = 0;
    duration(length);
    if (length > 0) seconds = std::min(seconds, length);
    for (auto* r : activeRenderers()) r->markSeek(seconds);
    if (state_ == GraphState::Stopped) {
        stoppedPosition_ = seconds;
        return Status::success();
    }
    generation_.fetch_add(1, std::memory_order_acq_rel);
    endRaised_ = false;
    endedRenderers_.clear();
    seekStreaming(seconds);
    return Status::success();
}

Status NativeGraph::rate(double& rate) {
    rate = rate_;
    return Status::success();
}

Status NativeGraph::setRate(double rate) {
    if (!(rate >= 0.1 && rate <= 4.0))
        return Status::failure(hr::InvalidArg, "The rate must lie between 0.1 and 4.");
    rate_ = rate;
    for (auto* r : activeRenderers()) r->setRate(rate);
    return Status::success();
}

Status NativeGraph::volume(int32_t& hundredthsDb) {
    hundredthsDb = volume_;
    return Status::success();
}

Status NativeGraph::setVolume(int32_t hundredthsDb) {
    if (hundredthsDb > 0 || hundredthsDb < -10000)
        return Status::failure(hr::InvalidArg, "The volume must lie between -10000 and 0.");
    volume_ = hundredthsDb;
    for (auto& f : filters_)
        if (auto* r = f->asRenderer()) r->setVolume(hundredthsDb);
    return Status::success();
}

} // namespace corvid::native
