#include "platform/sim/SimGraph.h"

#include "platform/ItemName.h"
#include "platform/Text.h"
#include "platform/sim/World.h"

#include <algorithm>
#include <cmath>
#include <set>

namespace corvid::sim {

using platform::GraphEvent;
using platform::GraphState;
namespace hr = platform::hr;

namespace {

Status fail(int32_t number, const char* text) { return Status::failure(number, text); }

// The type an output pin produces from the type arriving at its filter.
std::string produce(const PinSpec& out, const std::string& arriving) {
    if (arriving.empty()) return {};
    for (const auto& rule : out.produces)
        if (matchesPattern(rule.from, arriving)) return rule.to == SameAsInput ? arriving : rule.to;
    return {};
}

// What a transform of this descriptor would put out for `type`, or empty.
std::string through(const FilterSpec& desc, const std::string& type) {
    bool accepted = false;
    for (const auto& pin : desc.pins)
        if (pin.direction == PinDirection::Input && matchesAny(pin.accepts, type)) accepted = true;
    if (!accepted) return {};
    for (const auto& pin : desc.pins)
        if (pin.direction == PinDirection::Output) {
            auto produced = produce(pin, type);
            if (!produced.empty()) return produced;
        }
    return {};
}

bool isSource(const FilterSpec& desc) {
    return desc.kind == FilterKind::Source || desc.kind == FilterKind::StreamSource;
}

} // namespace

// ---------------------------------------------------------------------------------------------
// Pins

SimPin::SimPin(const std::shared_ptr<SimFilter>& owner, const PinSpec& desc)
    : owner_(owner), spec_(desc) {}

std::shared_ptr<platform::Filter> SimPin::filter() const { return owner_.lock(); }

platform::PinPtr SimPin::connectedTo() const { return peer_.lock(); }

std::string SimPin::mediaType() const {
    auto owner = owner_.lock();
    if (!owner || !present_) return {};
    if (spec_.direction == PinDirection::Output) return produce(spec_, owner->arrivingType());
    auto peer = peer_.lock();
    return peer ? peer->mediaType() : std::string();
}

namespace {
// Orders two pins as upstream output and downstream input.
Status orderPins(const std::shared_ptr<SimPin>& self, const platform::PinPtr& other,
                 std::shared_ptr<SimPin>& out, std::shared_ptr<SimPin>& in) {
    auto peer = std::dynamic_pointer_cast<SimPin>(other);
    if (!peer) return fail(hr::Pointer, "The other pin is missing or not a simulated pin.");
    if (self->direction() == peer->direction())
        return fail(hr::InvalidArg, "Both pins have the same direction.");
    out = self->direction() == PinDirection::Output ? self : peer;
    in = self->direction() == PinDirection::Output ? peer : self;
    return Status::success();
}
} // namespace

Status SimPin::connectDirect(const platform::PinPtr& other) {
    std::shared_ptr<SimPin> out, in;
    if (auto s = orderPins(shared_from_this(), other, out, in); !s) return s;
    auto owner = out->simFilter();
    auto graph = owner ? owner->graph() : nullptr;
    if (!graph) return fail(hr::NotInGraph, "The pin's filter is not in a graph.");
    return graph->join(out, in);
}

Status SimPin::connect(const platform::PinPtr& other) {
    std::shared_ptr<SimPin> out, in;
    if (auto s = orderPins(shared_from_this(), other, out, in); !s) return s;
    auto up = out->simFilter();
    auto down = in->simFilter();
    auto graph = up ? up->graph() : nullptr;
    if (!graph || !down) return fail(hr::NotInGraph, "The pin's filter is not in a graph.");
    Status failure;
    if (up->world_->filterFails(FaultPoint::Connect, *up, down.get(), failure)) return failure;
    return graph->connectIntelligently(out, in);
}

Status SimPin::disconnect() {
    auto peer = peer_.lock();
    if (!peer) return Status::success();
    auto owner = owner_.lock();
    Status failure;
    if (owner && owner->world_->filterFails(FaultPoint::Disconnect, *owner, std::string(), failure))
        return failure;
    SimGraph::unlink(shared_from_this());
    return Status::success();
}

Status SimPin::render() {
    if (spec_.direction != PinDirection::Output)
        return fail(hr::InvalidArg, "Only an output pin can be rendered.");
    auto owner = owner_.lock();
    auto graph = owner ? owner->graph() : nullptr;
    if (!graph || !present_) return fail(hr::NotInGraph, "The pin is not in a graph.");
    return graph->renderPin(shared_from_this());
}

// ---------------------------------------------------------------------------------------------
// Filters

SimFilter::SimFilter(std::shared_ptr<detail::World> world,
                     std::shared_ptr<detail::Registration> reg, std::string name)
    : world_(std::move(world)), reg_(std::move(reg)), name_(std::move(name)) {}

void SimFilter::init() {
    auto self = shared_from_this();
    for (const auto& desc : reg_->desc.pins) {
        Status ignored;
        const bool missing = desc.appearsOnConnect ||
                             world_->filterFails(FaultPoint::PinAppears, *this, desc.name, ignored);
        pins_.push_back(missing ? nullptr : std::make_shared<SimPin>(self, desc));
    }
}

const FilterSpec& SimFilter::desc() const { return reg_->desc; }

std::vector<platform::PinPtr> SimFilter::pins() {
    std::vector<platform::PinPtr> result;
    for (const auto& pin : pins_)
        if (pin) result.push_back(pin);
    return result;
}

std::shared_ptr<SimPin> SimFilter::pinNamed(const std::string& name) const {
    for (const auto& pin : pins_)
        if (pin && pin->name() == name) return pin;
    return nullptr;
}

std::shared_ptr<SimPin> SimFilter::firstInput() const {
    for (const auto& pin : pins_)
        if (pin && pin->direction() == PinDirection::Input) return pin;
    return nullptr;
}

bool SimFilter::isFileSource() const { return isSource(desc()); }

bool SimFilter::loaded() const {
    if (desc().kind == FilterKind::StreamSource) return openState_ == OpenState::Open;
    return loaded_;
}

std::string SimFilter::arrivingType() const {
    if (isSource(desc())) return loaded() ? loadedType_ : std::string();
    for (const auto& pin : pins_)
        if (pin && pin->direction() == PinDirection::Input && pin->peer()) return pin->mediaType();
    return {};
}

void SimFilter::refreshPins() {
    bool fed = false;
    if (isSource(desc())) {
        fed = loaded();
    } else {
        for (const auto& pin : pins_)
            if (pin && pin->direction() == PinDirection::Input && pin->peer()) fed = true;
    }
    auto self = shared_from_this();
    const auto& specs = reg_->desc.pins;
    for (std::size_t i = 0; i < specs.size(); ++i) {
        if (!specs[i].appearsOnConnect) continue;
        Status ignored;
        if (fed && !pins_[i]) {
            if (!world_->filterFails(FaultPoint::PinAppears, *this, specs[i].name, ignored))
                pins_[i] = std::make_shared<SimPin>(self, specs[i]);
        } else if (!fed && pins_[i]) {
            auto gone = pins_[i];
            pins_[i].reset();
            if (gone->peer()) SimGraph::unlink(gone);
            gone->present_ = false;
        }
    }
}

void SimFilter::load(const std::string& item, const std::string& type, double duration,
                     const std::vector<LevelPoint>& levels) {
    item_ = item;
    loadedType_ = type;
    loadedDuration_ = duration;
    loadedLevels_ = levels;
    loaded_ = true;
    refreshPins();
}

Status SimFilter::setFileName(const std::string& fileName) {
    if (desc().kind == FilterKind::StreamSource) return open(fileName);
    if (desc().kind != FilterKind::Source) return Filter::setFileName(fileName);
    Status failure;
    if (world_->filterFails(FaultPoint::SetFileName, *this, fileName, failure))
        return failure; // a fault with a success status: the call "works" but loads nothing
    if (loaded_) return fail(hr::WrongState, "The source has loaded a file already.");

    if (item::isAddress(fileName)) {
        if (!desc().opensAddresses)
            return fail(hr::UnsupportedStream, "The source cannot open network addresses.");
        const SimStream* stream = world_->stream(fileName);
        if (!stream) return fail(hr::FileNotFound, "The stream address could not be reached.");
        // A reader that opens an address blocks until the stream answers.
        const SimStream copy = *stream;
        if (copy.outcome == SimStream::Outcome::NeverOpens)
            return fail(hr::Timeout, "The stream did not answer in time.");
        world_->advance(copy.afterMs);
        if (copy.outcome == SimStream::Outcome::Fails) return copy.failure;
        if (!matchesAny(desc().fileTypes, copy.mediaType))
            return fail(hr::InvalidFileFormat, "The source cannot read this kind of stream.");
        load(fileName, copy.mediaType, copy.durationSeconds, copy.levels);
        return Status::success();
    }

    const SimFile* file = world_->file(fileName);
    if (!file) return fail(hr::FileNotFound, "The system cannot find the file specified.");
    if (!file->readable) return fail(hr::AccessDenied, "Access is denied.");
    if (!matchesAny(desc().fileTypes, file->mediaType))
        return fail(hr::InvalidFileFormat, "The source cannot read this kind of file.");
    load(fileName, file->mediaType, file->durationSeconds, file->levels);
    return Status::success();
}

bool SimFilter::hasPropertyPage() const { return desc().propertyPage; }

Status SimFilter::showPropertyPage(int32_t ownerWindow) {
    if (!desc().propertyPage) return Filter::showPropertyPage(ownerWindow);
    ++propertyPagesShown_;
    return Status::success();
}

platform::PitchShifterControl* SimFilter::pitchShifter() {
    return desc().pitchShifter ? static_cast<platform::PitchShifterControl*>(this) : nullptr;
}

platform::PipeSenderControl* SimFilter::pipeSender() {
    return desc().pipeSender ? static_cast<platform::PipeSenderControl*>(this) : nullptr;
}

platform::StreamSourceControl* SimFilter::streamSource() {
    return desc().kind == FilterKind::StreamSource
               ? static_cast<platform::StreamSourceControl*>(this)
               : nullptr;
}

RenderLog* SimFilter::renderLog() {
    return desc().kind == FilterKind::Renderer ? &reg_->heard : nullptr;
}

Status SimFilter::setRate(double rate) {
    if (!(rate > 0)) return fail(hr::InvalidArg, "The rate must be greater than 0.");
    pitchRate_ = rate;
    return Status::success();
}

Status SimFilter::setPitchSemitones(double semitones) {
    semitones_ = semitones;
    return Status::success();
}

Status SimFilter::setPassThrough(bool passThrough) {
    passThrough_ = passThrough;
    return Status::success();
}

Status SimFilter::setDownstreamMute(bool mute) {
    pipeMute_ = mute;
    return Status::success();
}

std::string SimFilter::pipePath() const { return "/sim/pipes/" + name_; }

Status SimFilter::open(const std::string& address) {
    Status failure;
    if (world_->fails(FaultPoint::StreamOpen, address, failure)) return failure;
    if (openState_ == OpenState::Opening || openState_ == OpenState::Open)
        return fail(hr::WrongState, "The stream source is opening or open already.");
    item_ = address;
    openFailure_ = Status::success();
    if (const SimStream* stream = world_->stream(address)) {
        stream_ = *stream;
    } else {
        stream_ = SimStream{};
        stream_.outcome = SimStream::Outcome::Fails;
        stream_.afterMs = 0;
        stream_.failure = fail(hr::FileNotFound, "The stream address could not be reached.");
    }
    openState_ = OpenState::Opening;
    openDueAt_ = world_->elapsedMs + std::max<int32_t>(0, stream_.afterMs);
    if (stream_.afterMs <= 0 && stream_.outcome != SimStream::Outcome::NeverOpens) streamDue();
    return Status::success();
}

void SimFilter::streamDue() {
    if (stream_.outcome == SimStream::Outcome::Fails) {
        openState_ = OpenState::Failed;
        openFailure_ = stream_.failure;
        return;
    }
    if (!matchesAny(desc().fileTypes, stream_.mediaType)) {
        openState_ = OpenState::Failed;
        openFailure_ = fail(hr::UnsupportedStream, "The stream's format is not supported.");
        return;
    }
    openState_ = OpenState::Open;
    loadedType_ = stream_.mediaType;
    loadedDuration_ = stream_.durationSeconds;
    loadedLevels_ = stream_.levels;
    refreshPins();
}

Status SimFilter::cancel() {
    if (!canCancel()) return fail(hr::WrongState, "There is nothing to cancel.");
    openState_ = OpenState::Failed;
    openFailure_ = fail(hr::Abort, "The stream open was cancelled.");
    return Status::success();
}

// Nothing reaches the simulated machine from outside: time moves on to the open's outcome, or
// by the whole timeout when the server never answers.
void SimFilter::waitForChange(int32_t timeoutMs) {
    if (openState_ != OpenState::Opening || timeoutMs <= 0) return;
    int64_t waitMs = timeoutMs;
    if (stream_.outcome != SimStream::Outcome::NeverOpens)
        waitMs = std::clamp<int64_t>(openDueAt_ - world_->elapsedMs, 1, timeoutMs);
    world_->advance(waitMs);
}

bool SimFilter::fireStreamBuffering(int32_t percent) {
    if (!callback_) return false;
    callback_->StreamBuffering(percent);
    return true;
}

bool SimFilter::fireMetaChange(const std::string& artistTitle, const std::string& url,
                               const std::string& fullMeta) {
    if (!callback_) return false;
    callback_->MetaChangeCallback(artistTitle, url, fullMeta);
    return true;
}

bool SimFilter::fireOdStreamSeg(double seg) {
    if (!callback_) return false;
    callback_->OdStreamSeg(seg);
    return true;
}

Status createFilterIn(SimGraph& graph, const std::shared_ptr<detail::Registration>& reg,
                      const std::string& name, std::shared_ptr<SimFilter>& made) {
    Status failure;
    if (graph.world_->fails(FaultPoint::CreateFilter, {reg->desc.displayName, name}, {}, failure))
        return failure;
    if (!reg->registered) return fail(detail::ClassNotRegistered, "Class not registered.");
    return graph.addInstance(reg, name, made);
}

// ---------------------------------------------------------------------------------------------
// Graph

SimGraph::SimGraph(std::shared_ptr<detail::World> world, int id) : world_(std::move(world)), id_(id) {}

Status SimGraph::addInstance(const std::shared_ptr<detail::Registration>& reg,
                             const std::string& name, std::shared_ptr<SimFilter>& made) {
    made = std::make_shared<SimFilter>(world_, reg, name);
    made->init();
    made->graph_ = weak_from_this();
    filters_.push_back(made);
    if (reg->desc.kind == FilterKind::StreamSource) world_->streamSources.push_back(made);
    return Status::success();
}

std::vector<platform::FilterPtr> SimGraph::filters() {
    return {filters_.begin(), filters_.end()};
}

std::shared_ptr<SimFilter> SimGraph::filterNamed(const std::string& name) const {
    for (const auto& f : filters_)
        if (f->name() == name) return f;
    return nullptr;
}

Status SimGraph::addFilter(const platform::FilterPtr& filter, const std::string& name) {
    auto f = std::dynamic_pointer_cast<SimFilter>(filter);
    if (!f) return fail(hr::Pointer, "The filter is missing or not a simulated filter.");
    Status failure;
    if (world_->fails(FaultPoint::AddFilter, name.empty() ? f->name() : name, failure))
        return failure;
    if (f->graph()) return fail(hr::WrongState, "The filter is in a graph already.");
    f->graph_ = weak_from_this();
    if (!name.empty()) f->name_ = name;
    filters_.push_back(f);
    return Status::success();
}

Status SimGraph::removeFilter(const platform::FilterPtr& filter) {
    auto f = std::dynamic_pointer_cast<SimFilter>(filter);
    auto it = std::find(filters_.begin(), filters_.end(), f);
    if (!f || it == filters_.end()) return fail(hr::NotInGraph, "The filter is not in this graph.");
    Status failure;
    if (world_->filterFails(FaultPoint::RemoveFilter, *f, std::string(), failure)) return failure;
    detach(f);
    return Status::success();
}

void SimGraph::detach(const std::shared_ptr<SimFilter>& f) {
    for (const auto& pin : f->pins_)
        if (pin && pin->peer()) unlink(pin);
    auto it = std::find(filters_.begin(), filters_.end(), f);
    if (it != filters_.end()) filters_.erase(it);
    f->graph_.reset();
}

Status SimGraph::addSourceFilter(const std::string& fileName, platform::FilterPtr& source) {
    Status failure;
    if (world_->fails(FaultPoint::AddSourceFilter, fileName, failure)) return failure;
    auto reg = world_->registered(world_->systemSource);
    if (!reg) return fail(hr::UnknownFileType, "No source filter is registered for this file.");
    std::shared_ptr<SimFilter> made;
    // The system source stands in the graph under the item's own name.
    if (auto s = createFilterIn(*this, reg, fileName, made); !s) return s;
    if (auto s = made->setFileName(fileName); !s) {
        detach(made);
        return s;
    }
    source = made;
    return Status::success();
}

// Connection rules -----------------------------------------------------------------------------

Status SimGraph::checkPair(const std::shared_ptr<SimPin>& out,
                           const std::shared_ptr<SimPin>& in) const {
    if (!out->present_ || !in->present_)
        return fail(hr::NotInGraph, "The pin is no longer on its filter.");
    auto up = out->simFilter();
    auto down = in->simFilter();
    if (!up || !down) return fail(hr::Pointer, "The pin's filter is gone.");
    if (up->graph().get() != this || down->graph().get() != this)
        return fail(hr::NotInGraph, "The pins are not in the same graph.");
    if (out->peer() || in->peer())
        return fail(hr::AlreadyConnected, "The pin is already connected.");
    return Status::success();
}

namespace {
// Whether `target` stands upstream of (or is) `from`.
bool upstreamOf(const std::shared_ptr<SimFilter>& from, const SimFilter* target) {
    std::vector<std::shared_ptr<SimFilter>> todo{from};
    std::set<const SimFilter*> seen;
    while (!todo.empty()) {
        auto f = todo.back();
        todo.pop_back();
        if (f.get() == target) return true;
        if (!seen.insert(f.get()).second) continue;
        for (const auto& pin : f->pins())
            if (pin->direction() == PinDirection::Input)
                if (auto peer = std::static_pointer_cast<SimPin>(pin)->peer())
                    if (auto up = peer->simFilter()) todo.push_back(up);
    }
    return false;
}
} // namespace

Status SimGraph::join(const std::shared_ptr<SimPin>& out, const std::shared_ptr<SimPin>& in) {
    if (auto s = checkPair(out, in); !s) return s;
    auto up = out->simFilter();
    auto down = in->simFilter();
    Status failure;
    if (world_->filterFails(FaultPoint::ConnectDirect, *up, down.get(), failure)) return failure;
    const std::string type = out->mediaType();
    if (type.empty() && up->arrivingType().empty())
        return fail(hr::NotConnected, "The filter's input is not connected, so its output has "
                                      "no media type yet.");
    if (type.empty() || !matchesAny(in->desc().accepts, type))
        return fail(hr::NoAcceptableTypes, "There is no common media type between these pins.");
    if (upstreamOf(up, down.get()))
        return fail(hr::CannotConnect, "The connection would make a loop.");
    out->peer_ = in;
    in->peer_ = out;
    down->refreshPins();
    return Status::success();
}

void SimGraph::unlink(const std::shared_ptr<SimPin>& pin) {
    auto peer = pin->peer();
    pin->peer_.reset();
    if (!peer) return;
    peer->peer_.reset();
    // The downstream filter loses what arrived at it; parsers drop their output pins.
    auto in = pin->direction() == PinDirection::Input ? pin : peer;
    if (auto f = in->simFilter()) f->refreshPins();
}

std::vector<platform::ConnectCandidate> SimGraph::candidates(const platform::PinPtr& outPin,
                                                             const platform::PinPtr& inPin) {
    const auto out = std::static_pointer_cast<SimPin>(outPin);
    const std::string type = out->mediaType();
    if (type.empty()) return {};
    const auto up = out->simFilter();
    const auto down = std::static_pointer_cast<SimPin>(inPin)->simFilter();
    std::vector<platform::ConnectCandidate> result;
    for (const auto& f : filters_) {
        if (f == up || f == down || f->desc().kind != FilterKind::Transform ||
            through(f->desc(), type).empty())
            continue;
        bool free = true;
        for (const auto& pin : f->pins_)
            if (pin && pin->peer()) free = false;
        if (free) result.push_back({f, {}});
    }
    std::vector<std::shared_ptr<detail::Registration>> regs;
    for (const auto& r : world_->registrations)
        if (r->registered && r->desc.kind == FilterKind::Transform &&
            text::equalsNoCase(r->desc.category, platform::category::LegacyFilters) &&
            r->desc.merit > merit::DoNotUse && !through(r->desc, type).empty())
            regs.push_back(r);
    std::stable_sort(regs.begin(), regs.end(),
                     [](const auto& a, const auto& b) { return a->desc.merit > b->desc.merit; });
    for (const auto& r : regs) result.push_back({nullptr, r->desc.displayName});
    return result;
}

Status SimGraph::joinDirect(const platform::PinPtr& out, const platform::PinPtr& in) {
    return join(std::static_pointer_cast<SimPin>(out), std::static_pointer_cast<SimPin>(in));
}

void SimGraph::part(const platform::PinPtr& in) {
    auto pin = std::static_pointer_cast<SimPin>(in);
    if (pin->peer()) unlink(pin);
}

Status SimGraph::place(const platform::ConnectCandidate& candidate, platform::FilterPtr& placed) {
    auto reg = world_->registered(candidate.displayName);
    if (!reg) return fail(detail::ClassNotRegistered, "Class not registered.");
    std::shared_ptr<SimFilter> made;
    if (auto s = createFilterIn(*this, reg, reg->desc.nameInGraph(), made); !s) return s;
    placed = made;
    return Status::success();
}

void SimGraph::withdraw(const platform::FilterPtr& placed) {
    detach(std::static_pointer_cast<SimFilter>(placed));
}

Status SimGraph::connectIntelligently(const std::shared_ptr<SimPin>& out,
                                      const std::shared_ptr<SimPin>& in) {
    if (auto s = checkPair(out, in); !s) return s;
    return platform::connectIntelligently(*this, out, in);
}

Status SimGraph::renderPin(const std::shared_ptr<SimPin>& out) {
    auto owner = out->simFilter();
    Status failure;
    if (world_->filterFails(FaultPoint::Render, *owner, std::string(), failure)) return failure;
    if (out->peer()) return fail(hr::AlreadyConnected, "The pin is already connected.");
    for (const auto& f : std::vector<std::shared_ptr<SimFilter>>(filters_)) {
        if (f->desc().kind != FilterKind::Renderer || !f->reg_->registered) continue;
        for (const auto& pin : f->pins_)
            if (pin && pin->direction() == PinDirection::Input && !pin->peer() &&
                connectIntelligently(out, pin))
                return Status::success();
    }
    const Status cannot =
        fail(hr::CannotRender, "No combination of filters could be found to render the stream.");
    auto reg = world_->registered(world_->defaultRenderer);
    if (!reg || reg->desc.kind != FilterKind::Renderer) return cannot;
    std::shared_ptr<SimFilter> renderer;
    if (!createFilterIn(*this, reg, reg->desc.nameInGraph(), renderer)) return cannot;
    auto pin = renderer->firstInput();
    if (pin && connectIntelligently(out, pin)) return Status::success();
    detach(renderer);
    return cannot;
}

// Transport and position ---------------------------------------------------------------------

std::vector<SimGraph::Route> SimGraph::routes() const {
    std::vector<Route> result;
    for (const auto& renderer : filters_) {
        // A device that went away hears nothing.
        if (renderer->desc().kind != FilterKind::Renderer || !renderer->reg_->registered) continue;
        Route route;
        route.renderer = renderer;
        auto current = renderer;
        for (int hops = 0; hops < 64 && current; ++hops) {
            std::shared_ptr<SimFilter> up;
            for (const auto& pin : current->pins_)
                if (pin && pin->direction() == PinDirection::Input && pin->peer()) {
                    up = pin->peer()->simFilter();
                    break;
                }
            if (!up) break;
            if (isSource(up->desc())) {
                if (up->loaded()) {
                    route.source = up;
                    result.push_back(route);
                }
                break;
            }
            if (up->desc().pitchShifter && !up->passThrough_) route.rateFactor *= up->pitchRate_;
            if (up->desc().pipeSender && up->pipeMute_) route.muted = true;
            if (!up->desc().speakerPair.empty()) route.speakerPair = up->desc().speakerPair;
            current = up;
        }
    }
    return result;
}

bool SimGraph::playable() const { return !routes().empty(); }

std::string SimGraph::item() const {
    auto rs = routes();
    if (!rs.empty()) return rs.front().source->fileName();
    for (const auto& f : filters_)
        if (isSource(f->desc()) && f->loaded()) return f->fileName();
    return {};
}

double SimGraph::sourceDuration() const {
    auto rs = routes();
    if (!rs.empty()) return rs.front().source->loadedDuration();
    for (const auto& f : filters_)
        if (isSource(f->desc()) && f->loaded()) return f->loadedDuration();
    return -1;
}

double SimGraph::effectiveRate() const {
    auto rs = routes();
    return rate_ * (rs.empty() ? 1.0 : rs.front().rateFactor);
}

void SimGraph::record(RendererEvent::Kind kind, double seconds, int32_t volume) {
    for (const auto& f : filters_)
        if (auto* log = f->renderLog()) log->events.push_back({kind, seconds, volume});
}

void SimGraph::postEvent(GraphEvent event) {
    std::weak_ptr<SimGraph> weak = weak_from_this();
    world_->loop.post([weak, event] {
        auto graph = weak.lock();
        if (!graph || !graph->handler_) return;
        auto handler = graph->handler_; // the handler may replace itself
        handler(event);
    });
}

void SimGraph::checkEnd() {
    if (state_ != GraphState::Running || endPosted_ || !playable()) return;
    const double end = sourceDuration();
    if (end < 0 || position_ < end - 1e-9) return;
    endPosted_ = true;
    record(RendererEvent::Kind::EndOfStream, position_);
    postEvent(GraphEvent::EndOfStream);
    for (auto& weak : world_->helpers)
        if (auto helper = weak.lock())
            if (helper->currentGraph().get() == this && helper->automation().endOfStream)
                helper->followedGraphEnded();
}

int64_t SimGraph::msToEnd() const {
    if (state_ != GraphState::Running || endPosted_ || !playable()) return -1;
    const double end = sourceDuration();
    if (end < 0) return -1;
    const double remaining = end - position_;
    if (remaining <= 0) return 0;
    return static_cast<int64_t>(std::ceil(remaining / effectiveRate() * 1000.0 - 1e-6));
}

void SimGraph::advance(int64_t ms) {
    if (state_ != GraphState::Running || ms <= 0) return;
    const auto rs = routes();
    if (rs.empty()) return; // no renderer, no clock
    const double rate = effectiveRate();
    const double end = sourceDuration();
    const double from = position_;
    double to = from + static_cast<double>(ms) * rate / 1000.0;
    if (end >= 0 && to > end) to = std::max(from, end);
    const auto played = static_cast<int64_t>(std::llround((to - from) / rate * 1000.0));
    if (played > 0) {
        for (const auto& route : rs) {
            RenderLog* log = route.renderer->renderLog();
            HeardSpan span{route.source->fileName(), from, to, played, volume_, rate, route.muted,
                           route.speakerPair};
            if (!log->spans.empty()) {
                auto& last = log->spans.back();
                if (last.item == span.item && last.volume == span.volume && last.rate == span.rate &&
                    last.muted == span.muted && last.speakerPair == span.speakerPair &&
                    std::fabs(last.toSeconds - from) < 1e-6) {
                    last.toSeconds = to;
                    last.playedMs += played;
                    continue;
                }
            }
            log->spans.push_back(span);
        }
    }
    position_ = to;
    checkEnd();
}

Status SimGraph::run() {
    Status failure;
    if (world_->fails(FaultPoint::Run, item(), failure)) return failure;
    state_ = GraphState::Running;
    record(RendererEvent::Kind::Run, position_);
    checkEnd(); // running a graph that stands at its end ends at once
    return Status::success();
}

Status SimGraph::pause() {
    Status failure;
    if (world_->fails(FaultPoint::Pause, item(), failure)) return failure;
    state_ = GraphState::Paused;
    record(RendererEvent::Kind::Pause, position_);
    return Status::success();
}

Status SimGraph::stop() {
    Status failure;
    if (world_->fails(FaultPoint::Stop, item(), failure)) return failure;
    state_ = GraphState::Stopped;
    endPosted_ = false;
    record(RendererEvent::Kind::Stop, position_);
    return Status::success();
}

Status SimGraph::duration(double& seconds) {
    Status failure;
    if (world_->fails(FaultPoint::Duration, item(), failure)) return failure;
    const double d = sourceDuration();
    if (d < 0) return fail(hr::NotImplemented, "No filter in the graph reports a duration.");
    seconds = d;
    return Status::success();
}

Status SimGraph::currentPosition(double& seconds) {
    Status failure;
    if (world_->fails(FaultPoint::Position, item(), failure)) return failure;
    seconds = position_;
    return Status::success();
}

Status SimGraph::setCurrentPosition(double seconds) {
    Status failure;
    if (world_->fails(FaultPoint::Seek, item(), failure)) return failure;
    const double end = sourceDuration();
    position_ = std::max(0.0, seconds);
    if (end >= 0) position_ = std::min(position_, end);
    endPosted_ = false;
    record(RendererEvent::Kind::Seek, position_);
    checkEnd();
    return Status::success();
}

Status SimGraph::rate(double& rate) {
    rate = rate_;
    return Status::success();
}

Status SimGraph::setRate(double rate) {
    Status failure;
    if (world_->fails(FaultPoint::SetRate, item(), failure)) return failure;
    if (!(rate > 0)) return fail(hr::InvalidArg, "The rate must be greater than 0.");
    rate_ = rate;
    return Status::success();
}

Status SimGraph::volume(int32_t& hundredthsDb) {
    hundredthsDb = volume_;
    return Status::success();
}

Status SimGraph::setVolume(int32_t hundredthsDb) {
    Status failure;
    if (world_->fails(FaultPoint::SetVolume, item(), failure)) return failure;
    if (hundredthsDb > 0 || hundredthsDb < -10000)
        return fail(hr::InvalidArg, "The volume must lie between -10000 and 0.");
    volume_ = hundredthsDb;
    record(RendererEvent::Kind::Volume, position_, hundredthsDb);
    return Status::success();
}

void SimGraph::setEventHandler(std::function<void(GraphEvent)> handler) {
    handler_ = std::move(handler);
}

std::string SimGraph::describe() const {
    std::string text;
    for (const auto& f : filters_) {
        text += f->name() + ":";
        bool first = true;
        for (const auto& pin : f->pins_) {
            if (!pin) continue;
            text += first ? " " : ", ";
            first = false;
            text += pin->name();
            if (auto peer = pin->peer()) {
                auto other = peer->simFilter();
                text += pin->direction() == PinDirection::Output ? " -> " : " <- ";
                text += other ? other->name() : std::string("?");
            }
        }
        text += "\n";
    }
    return text;
}

} // namespace corvid::sim
