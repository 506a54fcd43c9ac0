#include "platform/sim/SimHelper.h"

#include "platform/sim/World.h"

#include <algorithm>

namespace corvid::sim {

using platform::GraphHelperKind;
using platform::GraphState;

SimGraphHelper::SimGraphHelper(std::shared_ptr<detail::World> world, GraphHelperKind kind,
                               HelperAutomation automation)
    : world_(std::move(world)), kind_(kind), automation_(automation) {}

const char* SimGraphHelper::kindName() const {
    return kind_ == GraphHelperKind::Helper ? "Helper" : "CueHelper";
}

void SimGraphHelper::setCurrentGraph(const platform::GraphPtr& graph) {
    calls_.push_back("setCurrentGraph");
    graph_ = graph;
}

Status SimGraphHelper::transport(const char* call, FaultPoint point, GraphState next) {
    calls_.push_back(call);
    Status failure;
    if (world_->fails(point, kindName(), failure)) return failure;
    if (next == GraphState::Running && state_ != GraphState::Running)
        nextTickAt_ = world_->elapsedMs + std::max<int32_t>(1, automation_.tickMs);
    state_ = next;
    return Status::success();
}

Status SimGraphHelper::run() { return transport("run", FaultPoint::HelperRun, GraphState::Running); }
Status SimGraphHelper::pause() { return transport("pause", FaultPoint::HelperPause, GraphState::Paused); }
Status SimGraphHelper::stop() { return transport("stop", FaultPoint::HelperStop, GraphState::Stopped); }

Status SimGraphHelper::search(HelperSearch s, const char* call) {
    calls_.push_back(call);
    Status failure;
    const FaultPoint point = s.kind == HelperSearch::Kind::Cue ? FaultPoint::CueSearch
                                                               : FaultPoint::SegueSearch;
    if (world_->fails(point, s.file, failure)) return failure;
    searches_.push_back(std::move(s));
    return Status::success();
}

Status SimGraphHelper::startCueSearch(const std::string& file,
                                      const std::vector<std::string>& filters, bool useAsfReader,
                                      int32_t threshold) {
    return search({HelperSearch::Kind::Cue, file, filters, useAsfReader, threshold},
                  "startCueSearch");
}

Status SimGraphHelper::startSegueSearch(const std::string& file,
                                        const std::vector<std::string>& filters,
                                        bool useAsfReader, int32_t threshold) {
    return search({HelperSearch::Kind::Segue, file, filters, useAsfReader, threshold},
                  "startSegueSearch");
}

Status SimGraphHelper::startSegueSearchOwnSource(const std::string& file,
                                                 const std::vector<std::string>& filters,
                                                 int32_t threshold) {
    return search({HelperSearch::Kind::SegueOwnSource, file, filters, false, threshold},
                  "startSegueSearchOwnSource");
}

int SimGraphHelper::count(const std::string& call) const {
    return static_cast<int>(std::count(calls_.begin(), calls_.end(), call));
}

bool SimGraphHelper::fireThreadEvent(int32_t left, int32_t right) {
    if (!events_) return false;
    events_->threadEvent(left, right);
    return true;
}

bool SimGraphHelper::fireEndOfStream() {
    if (!events_) return false;
    events_->endOfStream();
    return true;
}

bool SimGraphHelper::fireCueIn(int32_t positionMs) {
    if (!events_) return false;
    events_->cueInFound(positionMs);
    return true;
}

bool SimGraphHelper::fireSegue(int32_t positionMs) {
    if (!events_) return false;
    events_->segueFound(positionMs);
    return true;
}

void SimGraphHelper::tickDue() {
    // The peaks of what the followed graph plays now; silence when it does not play.
    int32_t left = 0, right = 0;
    if (auto graph = std::dynamic_pointer_cast<SimGraph>(graph_);
        graph && graph->state() == GraphState::Running && graph->playable()) {
        for (const auto& f : graph->filters()) {
            auto sf = std::static_pointer_cast<SimFilter>(f);
            if (sf->isFileSource() && sf->loaded() && sf->fileName() == graph->item()) {
                left = levelAt(sf->loadedLevels(), graph->position(), false);
                right = levelAt(sf->loadedLevels(), graph->position(), true);
                break;
            }
        }
    }
    std::weak_ptr<SimGraphHelper> weak = weak_from_this();
    world_->loop.post([weak, left, right] {
        if (auto self = weak.lock()) self->fireThreadEvent(left, right);
    });
}

void SimGraphHelper::followedGraphEnded() {
    std::weak_ptr<SimGraphHelper> weak = weak_from_this();
    world_->loop.post([weak] {
        if (auto self = weak.lock()) self->fireEndOfStream();
    });
}

} // namespace corvid::sim
