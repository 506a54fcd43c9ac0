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
    if (automation_.searches) pending_.push_back({s, world_->elapsedMs + std::max(0, automation_.searchMs)});
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
    post([left, right](SimGraphHelper& h) { h.fireThreadEvent(left, right); });
}

void SimGraphHelper::post(std::function<void(SimGraphHelper&)> event) {
    std::weak_ptr<SimGraphHelper> weak = weak_from_this();
    world_->loop.post([weak, event = std::move(event)] {
        if (auto self = weak.lock()) event(*self);
    });
}

void SimGraphHelper::followedGraphEnded() {
    post([](SimGraphHelper& h) { h.fireEndOfStream(); });
}

int64_t SimGraphHelper::nextSearchDue() const {
    int64_t due = -1;
    for (const auto& p : pending_)
        if (due < 0 || p.dueAt < due) due = p.dueAt;
    return due;
}

namespace {
int32_t loudness(const LevelPoint& p) { return std::max(p.left, p.right); }
int32_t toMs(double seconds) { return static_cast<int32_t>(seconds * 1000.0 + 0.5); }

int32_t cueInOf(const SimFile& file, int32_t threshold) {
    if (file.levels.empty()) return DefaultLevel >= threshold ? 0 : -1;
    for (const auto& p : file.levels)
        if (loudness(p) >= threshold) return toMs(p.fromSeconds);
    return -1;
}

int32_t segueOf(const SimFile& file, int32_t threshold) {
    const auto& levels = file.levels;
    if (levels.empty()) return toMs(file.durationSeconds);
    for (std::size_t i = levels.size(); i-- > 0;)
        if (loudness(levels[i]) >= threshold)
            return i + 1 < levels.size() ? toMs(levels[i + 1].fromSeconds)
                                         : toMs(file.durationSeconds);
    return 0;
}
} // namespace

void SimGraphHelper::searchesDue() {
    std::vector<Pending> due;
    for (auto it = pending_.begin(); it != pending_.end();) {
        if (it->dueAt <= world_->elapsedMs) {
            due.push_back(*it);
            it = pending_.erase(it);
        } else {
            ++it;
        }
    }
    for (const auto& p : due) {
        const SimFile* file = world_->file(p.search.file);
        if (!file) {
            post([](SimGraphHelper& h) { h.fireEndOfStream(); });
        } else if (p.search.kind == HelperSearch::Kind::Cue) {
            const int32_t ms = cueInOf(*file, p.search.threshold);
            post([ms](SimGraphHelper& h) { h.fireCueIn(ms); });
        } else {
            const int32_t ms = segueOf(*file, p.search.threshold);
            post([ms](SimGraphHelper& h) { h.fireSegue(ms); });
        }
    }
}

} // namespace corvid::sim
