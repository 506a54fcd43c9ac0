#include "platform/sim/World.h"

#include <algorithm>
#include <cctype>

namespace corvid::sim::detail {

World::World() = default;

std::shared_ptr<Registration> World::registered(const std::string& displayName) const {
    for (const auto& r : registrations)
        if (r->registered && r->desc.displayName == displayName) return r;
    return nullptr;
}

const SimFile* World::file(const std::string& path) const {
    auto it = files.find(path);
    return it == files.end() ? nullptr : &it->second;
}

const SimStream* World::stream(const std::string& address) const {
    auto it = streams.find(address);
    return it == streams.end() ? nullptr : &it->second;
}

namespace {
bool anyMatches(const std::string& pattern, const std::vector<std::string>& names) {
    if (pattern.empty()) return true;
    if (names.empty()) return matchesPattern(pattern, "");
    for (const auto& n : names)
        if (matchesPattern(pattern, n)) return true;
    return false;
}
} // namespace

bool World::fails(FaultPoint point, const std::vector<std::string>& subjects,
                  const std::vector<std::string>& objects, Status& failure) {
    for (auto& active : faults) {
        const Fault& f = active.fault;
        if (f.point != point || !anyMatches(f.subject, subjects) || !anyMatches(f.object, objects))
            continue;
        ++active.matched;
        if (active.matched <= f.skip) continue;
        if (f.times >= 0 && active.failed >= f.times) continue;
        ++active.failed;
        failure = f.status;
        return true;
    }
    return false;
}

bool World::filterFails(FaultPoint point, const SimFilter& filter, const SimFilter* other,
                        Status& failure) {
    std::vector<std::string> objects;
    if (other) objects = {other->name(), other->desc().displayName};
    return fails(point, {filter.name(), filter.desc().displayName}, objects, failure);
}

bool World::filterFails(FaultPoint point, const SimFilter& filter, const std::string& object,
                        Status& failure) {
    return fails(point, {filter.name(), filter.desc().displayName}, {object}, failure);
}

int64_t World::nextDue(int64_t limit) {
    int64_t due = limit;
    auto consider = [&](int64_t at) { due = std::min(due, std::max(at, elapsedMs + 1)); };
    for (auto& weak : graphs)
        if (auto g = weak.lock()) {
            int64_t toEnd = g->msToEnd();
            if (toEnd >= 0) consider(elapsedMs + toEnd);
        }
    for (auto& weak : helpers)
        if (auto h = weak.lock()) {
            if (h->automation_.ticks && h->state_ == platform::GraphState::Running)
                consider(h->nextTickAt_);
            if (auto search = h->nextSearchDue(); search >= 0) consider(search);
        }
    for (auto& weak : streamSources)
        if (auto s = weak.lock())
            if (s->openState_ == SimFilter::OpenState::Opening &&
                s->stream_.outcome != SimStream::Outcome::NeverOpens)
                consider(s->openDueAt_);
    return due;
}

void World::runDue() {
    for (auto& weak : streamSources)
        if (auto s = weak.lock())
            if (s->openState_ == SimFilter::OpenState::Opening &&
                s->stream_.outcome != SimStream::Outcome::NeverOpens && s->openDueAt_ <= elapsedMs)
                s->streamDue();
    for (auto& weak : helpers)
        if (auto h = weak.lock()) {
            h->searchesDue();
            while (h->automation_.ticks && h->state_ == platform::GraphState::Running &&
                   h->nextTickAt_ <= elapsedMs) {
                h->tickDue();
                h->nextTickAt_ += std::max<int32_t>(1, h->automation_.tickMs);
            }
        }
}

void World::advance(int64_t ms) {
    if (ms <= 0) return;
    const int64_t target = elapsedMs + ms;
    while (elapsedMs < target) {
        const int64_t next = nextDue(target);
        const int64_t step = next - elapsedMs;
        // Copy first: a graph's end may make a helper or handler drop graphs.
        std::vector<std::shared_ptr<SimGraph>> live;
        for (auto& weak : graphs)
            if (auto g = weak.lock()) live.push_back(g);
        for (auto& g : live) g->advance(step);
        elapsedMs = next;
        runDue();
    }
    auto expired = [](const auto& w) { return w.expired(); };
    graphs.erase(std::remove_if(graphs.begin(), graphs.end(), expired), graphs.end());
    helpers.erase(std::remove_if(helpers.begin(), helpers.end(), expired), helpers.end());
    streamSources.erase(std::remove_if(streamSources.begin(), streamSources.end(), expired),
                        streamSources.end());
}

} // namespace corvid::sim::detail
