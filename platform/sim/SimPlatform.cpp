#include "platform/sim/SimPlatform.h"

#include "platform/sim/World.h"

#include <algorithm>

namespace corvid::sim {

using platform::GraphHelperKind;

SimPlatform::SimPlatform() : world_(std::make_shared<detail::World>()) {}

SimPlatform::~SimPlatform() {
    // Process-wide objects may save through the services while these still stand.
    releaseProcessWide();
}

std::unique_ptr<SimPlatform> SimPlatform::standardMachine() {
    auto sim = std::make_unique<SimPlatform>();
    addStandardFilters(*sim);
    return sim;
}

Status SimPlatform::createGraph(platform::GraphPtr& graph) {
    Status failure;
    if (world_->fails(FaultPoint::CreateGraph, "", failure)) return failure;
    auto made = std::make_shared<SimGraph>(world_, world_->nextGraphId++);
    world_->graphs.push_back(made);
    ++world_->graphsCreated;
    graph = made;
    return Status::success();
}

Status SimPlatform::createGraphHelper(GraphHelperKind kind, platform::GraphHelperPtr& helper) {
    Status failure;
    const char* name = kind == GraphHelperKind::Helper ? "Helper" : "CueHelper";
    if (world_->fails(FaultPoint::CreateHelper, name, failure)) return failure;
    auto made = std::make_shared<SimGraphHelper>(world_, kind, world_->helperAutomation);
    world_->helpers.push_back(made);
    world_->lastHelper[kind == GraphHelperKind::Helper ? 0 : 1] = made;
    helper = made;
    return Status::success();
}

std::unique_ptr<platform::TagReader> SimPlatform::createTagReader() {
    return std::make_unique<SimTagReader>(world_);
}

SimCatalogue& SimPlatform::catalogue() { return world_->catalogue; }
SimTickCounter& SimPlatform::ticks() { return world_->ticks; }
SimSettingsStore& SimPlatform::settings() { return world_->settings; }
SimOperatorServices& SimPlatform::operatorServices() { return world_->operatorServices; }
SimEventLoop& SimPlatform::eventLoop() { return world_->loop; }

// Machine --------------------------------------------------------------------------------------

void SimPlatform::registerFilter(FilterSpec desc) {
    auto reg = std::make_shared<detail::Registration>();
    reg->desc = std::move(desc);
    world_->registrations.push_back(std::move(reg));
}

int SimPlatform::unregisterFilter(const std::string& displayName) {
    int n = 0;
    for (auto& reg : world_->registrations)
        if (reg->registered && reg->desc.displayName == displayName &&
            reg->desc.kind != FilterKind::Renderer) {
            reg->registered = false;
            ++n;
        }
    return n;
}

bool SimPlatform::isRegistered(const std::string& displayName) const {
    return world_->registered(displayName) != nullptr;
}

FilterSpec* SimPlatform::filterSpec(const std::string& displayName) {
    auto reg = world_->registered(displayName);
    return reg ? &reg->desc : nullptr;
}

void SimPlatform::addAudioRenderer(const std::string& name, int32_t numSpeakers) {
    FilterSpec desc;
    desc.displayName = name;
    desc.category = platform::category::AudioRenderers;
    desc.kind = FilterKind::Renderer;
    desc.merit = merit::DoNotUse;
    desc.numSpeakers = numSpeakers;
    desc.pins = {PinSpec::input(names::RendererInputPin, {"audio/pcm16"})};
    registerFilter(std::move(desc));
}

int SimPlatform::removeAudioRenderer(const std::string& name) {
    int n = 0;
    for (auto& reg : world_->registrations) {
        if (!reg->registered || reg->desc.displayName != name ||
            reg->desc.kind != FilterKind::Renderer)
            continue;
        reg->registered = false;
        ++n;
        // Graphs that render to the device learn that it is gone, as from a sound server.
        for (const auto& graph : graphs())
            for (const auto& f : graph->filters())
                if (&std::static_pointer_cast<SimFilter>(f)->desc() == &reg->desc) {
                    graph->postEvent(platform::GraphEvent::DeviceLost);
                    break;
                }
    }
    return n;
}

void SimPlatform::setDefaultRenderer(const std::string& name) { world_->defaultRenderer = name; }
void SimPlatform::setSystemSource(const std::string& displayName) { world_->systemSource = displayName; }
void SimPlatform::addFile(const std::string& path, SimFile file) { world_->files[path] = std::move(file); }
void SimPlatform::removeFile(const std::string& path) { world_->files.erase(path); }

void SimPlatform::addStream(const std::string& address, SimStream stream) {
    world_->streams[address] = std::move(stream);
}

// Clock ----------------------------------------------------------------------------------------

void SimPlatform::advanceMs(int64_t ms) { world_->advance(ms); }

void SimPlatform::setTickCount(int32_t nowMs) {
    world_->tickBase = static_cast<uint32_t>(nowMs) - static_cast<uint32_t>(world_->elapsedMs);
}

void SimPlatform::setSecondsSinceMidnight(double seconds) {
    world_->midnightBaseSeconds = seconds - static_cast<double>(world_->elapsedMs) / 1000.0;
}

int64_t SimPlatform::elapsedMs() const { return world_->elapsedMs; }

int SimPlatform::pump() { return world_->loop.drain(); }

void SimPlatform::runFor(int64_t ms, int64_t stepMs) {
    stepMs = std::max<int64_t>(1, stepMs);
    pump();
    for (int64_t done = 0; done < ms; done += stepMs) {
        advanceMs(std::min(stepMs, ms - done));
        pump();
    }
}

// Faults ---------------------------------------------------------------------------------------

int SimPlatform::inject(Fault fault) {
    detail::World::ActiveFault active;
    active.id = world_->nextFaultId++;
    active.fault = std::move(fault);
    world_->faults.push_back(std::move(active));
    return world_->faults.back().id;
}

int SimPlatform::failAlways(FaultPoint point, const std::string& subject, Status status) {
    Fault f;
    f.point = point;
    f.subject = subject;
    f.status = std::move(status);
    return inject(std::move(f));
}

int SimPlatform::failOnce(FaultPoint point, const std::string& subject, Status status) {
    Fault f;
    f.point = point;
    f.subject = subject;
    f.status = std::move(status);
    f.times = 1;
    return inject(std::move(f));
}

void SimPlatform::heal(int faultId) {
    auto& faults = world_->faults;
    faults.erase(std::remove_if(faults.begin(), faults.end(),
                                [faultId](const auto& f) { return f.id == faultId; }),
                 faults.end());
}

void SimPlatform::healAll() { world_->faults.clear(); }

int SimPlatform::failures(int faultId) const {
    for (const auto& f : world_->faults)
        if (f.id == faultId) return f.failed;
    return 0;
}

// Observations ---------------------------------------------------------------------------------

const RenderLog& SimPlatform::heard(const std::string& deviceName, int index) const {
    static const RenderLog none;
    for (const auto& reg : world_->registrations)
        if (reg->desc.kind == FilterKind::Renderer && reg->desc.displayName == deviceName &&
            index-- == 0)
            return reg->heard;
    return none;
}

void SimPlatform::clearHeard() {
    for (auto& reg : world_->registrations) reg->heard.clear();
}

std::shared_ptr<SimGraphHelper> SimPlatform::lastHelper(GraphHelperKind kind) const {
    return world_->lastHelper[kind == GraphHelperKind::Helper ? 0 : 1].lock();
}

std::vector<std::shared_ptr<SimGraphHelper>> SimPlatform::helpers() const {
    std::vector<std::shared_ptr<SimGraphHelper>> result;
    for (auto& weak : world_->helpers)
        if (auto h = weak.lock()) result.push_back(h);
    return result;
}

std::vector<std::shared_ptr<SimGraph>> SimPlatform::graphs() const {
    std::vector<std::shared_ptr<SimGraph>> result;
    for (auto& weak : world_->graphs)
        if (auto g = weak.lock()) result.push_back(g);
    return result;
}

int SimPlatform::graphsCreated() const { return world_->graphsCreated; }

std::shared_ptr<SimFilter> SimPlatform::lastStreamSource() const {
    for (auto it = world_->streamSources.rbegin(); it != world_->streamSources.rend(); ++it)
        if (auto s = it->lock()) return s;
    return nullptr;
}

HelperAutomation& SimPlatform::helperAutomation() { return world_->helperAutomation; }

} // namespace corvid::sim
