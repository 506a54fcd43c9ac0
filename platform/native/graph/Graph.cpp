#include "platform/native/graph/Graph.h"

#include "platform/native/Registry.h"
#include "platform/native/renderers/AudioRenderer.h"

#include <algorithm>
#include <cctype>
#include <cstdio>

namespace corvid::native {

using platform::GraphEvent;
using platform::GraphState;
using platform::PinDirection;

namespace {
constexpr int kIntelligentDepth = 4; // parser, decoder, converter and one spare
Status pinGone() { return Status::failure(hr::Pointer, "The pin's filter no longer exists."); }

std::string lowerExt(const std::string& file) {
    auto dot = file.find_last_of('.');
    std::string ext = dot == std::string::npos ? std::string() : file.substr(dot + 1);
    for (auto& c : ext) c = char(std::tolower(static_cast<unsigned char>(c)));
    return ext;
}
} // namespace

// ---------------------------------------------------------------- pins

NativePin::NativePin(NativeFilter& owner, std::string name, PinDirection direction)
    : owner_(&owner), name_(std::move(name)), direction_(direction) {}

std::shared_ptr<platform::Filter> NativePin::filter() const {
    return owner_ ? owner_->weak_from_this().lock() : nullptr;
}

// What any connection needs of the two pins: both alive, in one graph, of opposite
// directions. On success `graph`, `out` and `in` name the graph and the pins in flow order.
Status NativePin::pairWith(const std::shared_ptr<platform::Pin>& other, NativeGraph*& graph,
                           NativePin*& out, NativePin*& in) {
    auto* peer = dynamic_cast<NativePin*>(other.get());
    if (!peer) return Status::failure(hr::Pointer, "No pin to connect to.");
    if (!owner_ || !peer->owner_) return pinGone();
    graph = owner_->graph();
    if (!graph || graph != peer->owner_->graph())
        return Status::failure(hr::NotInGraph, "Both filters must be in the same graph.");
    if (direction_ == peer->direction_)
        return Status::failure(hr::CannotConnect, "Two pins of the same direction cannot connect.");
    out = isInput() ? peer : this;
    in = isInput() ? this : peer;
    return Status::success();
}

Status NativePin::connectDirect(const std::shared_ptr<platform::Pin>& other) {
    NativeGraph* g = nullptr;
    NativePin *out = nullptr, *in = nullptr;
    if (Status s = pairWith(other, g, out, in); !s) return s;
    return g->connectDirect(*out, *in);
}

Status NativePin::connect(const std::shared_ptr<platform::Pin>& other) {
    NativeGraph* g = nullptr;
    NativePin *out = nullptr, *in = nullptr;
    if (Status s = pairWith(other, g, out, in); !s) return s;
    return g->connectIntelligent(*out, *in, kIntelligentDepth);
}

Status NativePin::disconnect() {
    if (!peer()) return Status::success();
    if (!owner_) return pinGone();
    if (NativeGraph* g = owner_->graph()) return g->disconnectPin(*this);
    auto p = peer();
    peer_.reset();
    if (p) p->peer_.reset();
    return Status::success();
}

Status NativePin::render() {
    if (!owner_) return pinGone();
    if (isInput()) return Status::failure(hr::CannotRender, "Only an output pin can be rendered.");
    NativeGraph* g = owner_->graph();
    if (!g) return Status::failure(hr::NotInGraph, "The filter is not in a graph.");
    return g->renderPin(*this);
}

void NativePin::deliver(Buffer& buffer) {
    auto p = peer_.lock();
    if (p && p->owner_) p->owner_->receive(*p, buffer);
}

void NativePin::deliverEndOfStream(uint64_t generation) {
    auto p = peer_.lock();
    if (p && p->owner_) p->owner_->endOfStream(*p, generation);
}

void NativePin::deliverFlush(double newPosition) {
    auto p = peer_.lock();
    if (p && p->owner_) p->owner_->flush(*p, newPosition);
}

// ---------------------------------------------------------------- filters

NativeFilter::NativeFilter(std::string defaultName) : name_(std::move(defaultName)) {}

NativeFilter::~NativeFilter() {
    for (auto& pin : pins_) {
        if (auto p = pin->peer()) p->peer_.reset();
        pin->peer_.reset();
        pin->owner_ = nullptr;
    }
}

std::vector<platform::PinPtr> NativeFilter::pins() {
    return std::vector<platform::PinPtr>(pins_.begin(), pins_.end());
}

NativePinPtr NativeFilter::addPin(const std::string& name, PinDirection direction) {
    auto pin = std::make_shared<NativePin>(*this, name, direction);
    pins_.push_back(pin);
    return pin;
}

void NativeFilter::removePin(const NativePinPtr& pin) {
    if (pin->peer()) pin->disconnect();
    pins_.erase(std::remove(pins_.begin(), pins_.end(), pin), pins_.end());
    pin->owner_ = nullptr;
}

void NativeFilter::deliverAll(Buffer& buffer) {
    for (auto& pin : pins_)
        if (!pin->isInput()) pin->deliver(buffer);
}

NativePinPtr NativeFilter::firstInput() const {
    for (auto& pin : pins_)
        if (pin->isInput()) return pin;
    return nullptr;
}

NativePinPtr NativeFilter::firstOutput() const {
    for (auto& pin : pins_)
        if (!pin->isInput()) return pin;
    return nullptr;
}

void NativeFilter::endOfStream(NativePin&, uint64_t generation) {
    for (auto& pin : pins_)
        if (!pin->isInput()) pin->deliverEndOfStream(generation);
}

void NativeFilter::flush(NativePin&, double newPosition) {
    for (auto& pin : pins_)
        if (!pin->isInput()) pin->deliverFlush(newPosition);
}

// ---------------------------------------------------------------- graph

struct NativeGraph::HeadRunner {
    NativeFilter* filter = nullptr;
    std::thread thread;
    std::mutex mutex;
    std::condition_variable wake;
    std::optional<double> seek;
    bool stop = false;
};

NativeGraph::NativeGraph(GraphContext context) : context_(std::move(context)) {}

NativeGraph::~NativeGraph() {
    stopStreaming();
    for (auto& f : filters_) {
        for (auto& pin : f->nativePins()) {
            if (auto p = pin->peer()) p->peer_.reset();
            pin->peer_.reset();
        }
        f->graph_ = nullptr;
    }
}

std::vector<AudioRenderer*> NativeGraph::activeRenderers() const {
    std::vector<AudioRenderer*> out;
    for (auto& f : filters_)
        if (auto* r = f->asRenderer(); r && r->inputConnected()) out.push_back(r);
    return out;
}

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
    state_ = GraphState::Stopped;
}

void NativeGraph::quiesce() {
    if (state_ != GraphState::Stopped) stopStreaming();
}

// Running and paused both stream; they differ only in whether the renderers consume.
Status NativeGraph::enter(GraphState target) {
    if (state_ == target) return Status::success();
    if (state_ == GraphState::Stopped) {
        Status s = startStreaming(target);
        if (!s) return s;
    }
    for (auto* r : activeRenderers()) r->setPaused(target == GraphState::Paused);
    state_ = target;
    return Status::success();
}

Status NativeGraph::run() { return enter(GraphState::Running); }

Status NativeGraph::pause() { return enter(GraphState::Paused); }

Status NativeGraph::stop() {
    stopStreaming();
    return Status::success();
}

Status NativeGraph::addSourceFilter(const std::string& fileName, platform::FilterPtr& source) {
    source.reset();
    const std::string ext = lowerExt(fileName);
    const char* which = "File Source (Async.)";
    if (ext == "flac") which = "Native FLAC Decoder";
    else if (ext == "wma" || ext == "asf") which = "WM ASF READER";
    auto filter = makeRegisteredFilter(which);
    if (!filter) return Status::failure(hr::UnknownFileType, "No source filter for " + fileName);
    Status s = filter->setFileName(fileName);
    if (!s) return s;
    s = addFilter(filter, fileName);
    if (!s) return s;
    source = filter;
    return Status::success();
}

std::vector<platform::FilterPtr> NativeGraph::filters() {
    return std::vector<platform::FilterPtr>(filters_.begin(), filters_.end());
}

std::string NativeGraph::uniqueName(const std::string& name) const {
    auto taken = [&](const std::string& n) {
        return std::any_of(filters_.begin(), filters_.end(),
                           [&](const NativeFilterPtr& f) { return f->name_ == n; });
    };
    if (!taken(name)) return name;
    for (int i = 1;; ++i) {
        char suffix[16];
        std::snprintf(suffix, sizeof suffix, " %04d", i);
        if (!taken(name + suffix)) return name + suffix;
    }
}

Status NativeGraph::addFilter(const platform::FilterPtr& filter, const std::string& name) {
    auto native = std::dynamic_pointer_cast<NativeFilter>(filter);
    if (!native) return Status::failure(hr::Pointer, "No filter to add.");
    if (native->graph_ == this) return Status::failure(hr::InvalidArg, "The filter is already in the graph.");
    if (native->graph_) return Status::failure(hr::InvalidArg, "The filter is in another graph.");
    native->name_ = uniqueName(name.empty() ? native->name_ : name);
    native->graph_ = this;
    filters_.push_back(native);
    return Status::success();
}

Status NativeGraph::removeFilter(const platform::FilterPtr& filter) {
    auto native = std::dynamic_pointer_cast<NativeFilter>(filter);
    auto it = std::find(filters_.begin(), filters_.end(), native);
    if (!native || it == filters_.end())
        return Status::failure(hr::NotInGraph, "The filter is not in this graph.");
    quiesce();
    for (auto& pin : std::vector<NativePinPtr>(native->nativePins()))
        if (pin->peer()) disconnectPin(*pin);
    native->graph_ = nullptr;
    filters_.erase(std::find(filters_.begin(), filters_.end(), native));
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
    auto renderers = activeRenderers();
    if (!renderers.empty()) seconds = renderers.front()->position();
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
    for (auto& runner : runners_) {
        {
            std::lock_guard lock(runner->mutex);
            runner->seek = seconds;
        }
        runner->wake.notify_all();
    }
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

void NativeGraph::setEventHandler(std::function<void(GraphEvent)> handler) {
    handler_ = std::move(handler);
}

int NativeGraph::addObserver(std::function<void(GraphEvent)> observer) {
    observers_.emplace_back(nextObserver_, std::move(observer));
    return nextObserver_++;
}

void NativeGraph::removeObserver(int id) {
    observers_.erase(std::remove_if(observers_.begin(), observers_.end(),
                                    [&](auto& o) { return o.first == id; }),
                     observers_.end());
}

void NativeGraph::raise(GraphEvent event) {
    auto handler = handler_;
    auto observers = observers_;
    if (handler) handler(event);
    for (auto& [id, o] : observers) o(event);
}

void NativeGraph::postRendererEnd(AudioRenderer* renderer, uint64_t generation) {
    if (!context_.loop) return;
    std::weak_ptr<NativeGraph> weak = weak_from_this();
    context_.loop->post([weak, renderer, generation] {
        auto g = weak.lock();
        if (!g || generation != g->generation() || g->endRaised_) return;
        g->endedRenderers_.insert(renderer);
        for (auto* r : g->activeRenderers())
            if (!g->endedRenderers_.count(r)) return;
        g->endRaised_ = true;
        g->raise(GraphEvent::EndOfStream);
    });
}

void NativeGraph::postError(uint64_t generation) {
    if (!context_.loop) return;
    std::weak_ptr<NativeGraph> weak = weak_from_this();
    context_.loop->post([weak, generation] {
        auto g = weak.lock();
        if (g && generation == g->generation()) g->raise(GraphEvent::ErrorAbort);
    });
}

void NativeGraph::postDeviceLost() {
    if (!context_.loop) return;
    std::weak_ptr<NativeGraph> weak = weak_from_this();
    const uint64_t generation = this->generation();
    context_.loop->post([weak, generation] {
        auto g = weak.lock();
        if (g && generation == g->generation()) g->raise(GraphEvent::DeviceLost);
    });
}

Status NativeGraph::connectDirect(NativePin& out, NativePin& in) {
    if (out.peer() || in.peer())
        return Status::failure(hr::AlreadyConnected, "The pin is already connected.");
    quiesce();
    auto types = out.owner_->outputTypes(out, &in);
    if (types.empty())
        return Status::failure(hr::CannotConnect, "The pin " + out.name_ + " of " +
                                                      out.owner_->name() +
                                                      " has no media type to offer yet.");
    Status last = Status::failure(hr::NoAcceptableTypes, "No media type was accepted.");
    bool specific = false;
    for (auto& type : types) {
        Status s = in.owner_->acceptInput(in, type);
        if (s) {
            out.peer_ = in.weak_from_this();
            in.peer_ = out.weak_from_this();
            out.type_ = type;
            in.type_ = type;
            in.owner_->inputConnected(in);
            out.owner_->outputConnected(out);
            return Status::success();
        }
        // Keep the most telling reason: a parser's verdict on the file beats a type mismatch.
        if (!specific || s.number != hr::TypeNotAccepted) {
            specific = s.number != hr::TypeNotAccepted;
            last = s;
        }
    }
    return last;
}

Status NativeGraph::disconnectPin(NativePin& pin) {
    auto peer = pin.peer();
    if (!peer) return Status::success();
    quiesce();
    NativePin& out = pin.isInput() ? *peer : pin;
    NativePin& in = pin.isInput() ? pin : *peer;
    auto keepOut = out.shared_from_this();
    auto keepIn = in.shared_from_this();
    out.peer_.reset();
    in.peer_.reset();
    out.type_ = MediaType{};
    in.type_ = MediaType{};
    if (out.owner_) out.owner_->outputDisconnected(out);
    if (in.owner_) in.owner_->inputDisconnected(in);
    return Status::success();
}

Status NativeGraph::tryThrough(NativePin& out, NativePin& in, NativeFilter& candidate, int depth) {
    for (auto& candIn : std::vector<NativePinPtr>(candidate.nativePins())) {
        if (!candIn->isInput() || candIn->peer()) continue;
        if (!connectDirect(out, *candIn)) continue;
        for (auto& candOut : std::vector<NativePinPtr>(candidate.nativePins())) {
            if (candOut->isInput() || candOut->peer()) continue;
            if (connectIntelligent(*candOut, in, depth - 1)) return Status::success();
        }
        disconnectPin(*candIn);
    }
    return Status::failure(hr::CannotConnect, "no route");
}

Status NativeGraph::connectIntelligent(NativePin& out, NativePin& in, int depth) {
    Status direct = connectDirect(out, in);
    if (direct || direct.number == hr::AlreadyConnected || depth <= 0) return direct;

    // Filters already standing in the graph come first, as free intermediates.
    for (auto& f : std::vector<NativeFilterPtr>(filters_)) {
        if (f.get() == out.owner_ || f.get() == in.owner_ || f->asRenderer()) continue;
        bool busy = false;
        for (auto& p : f->nativePins()) busy = busy || p->peer() != nullptr;
        if (busy) continue;
        if (tryThrough(out, in, *f, depth)) return Status::success();
    }

    // Then registered transforms, highest merit first, that take what the pin offers.
    auto offered = out.owner_->outputTypes(out, nullptr);
    if (offered.empty()) return direct;
    FilterDescriptor::Input kind = FilterDescriptor::Input::Pcm;
    switch (offered.front().kind) {
    case MediaType::Kind::ByteStream: kind = FilterDescriptor::Input::ByteStream; break;
    case MediaType::Kind::Compressed: kind = FilterDescriptor::Input::Compressed; break;
    case MediaType::Kind::Pcm: kind = FilterDescriptor::Input::Pcm; break;
    }
    std::vector<const FilterDescriptor*> candidates;
    for (auto& d : registeredFilters())
        if (d.merit > merit::DoNotUse && d.input == kind) candidates.push_back(&d);
    std::stable_sort(candidates.begin(), candidates.end(),
                     [](auto* a, auto* b) { return a->merit > b->merit; });
    for (auto* d : candidates) {
        auto filter = d->factory();
        if (!filter || !addFilter(filter, instanceName(*d))) continue;
        if (tryThrough(out, in, *filter, depth)) return Status::success();
        removeFilter(filter);
    }
    return Status::failure(hr::CannotConnect,
                           "No combination of intermediate filters could be found to connect " +
                               out.owner_->name() + " to " + in.owner_->name() + ".");
}

Status NativeGraph::renderPin(NativePin& out) {
    if (out.peer()) return Status::failure(hr::AlreadyConnected, "The pin is already connected.");
    for (auto& f : std::vector<NativeFilterPtr>(filters_)) {
        if (!f->asRenderer()) continue;
        for (auto& in : f->nativePins())
            if (in->isInput() && !in->peer() && connectIntelligent(out, *in, kIntelligentDepth))
                return Status::success();
    }
    if (context_.makeDefaultRenderer) {
        auto renderer = context_.makeDefaultRenderer();
        if (renderer && addFilter(renderer, renderer->name())) {
            for (auto& in : std::vector<NativePinPtr>(renderer->nativePins()))
                if (in->isInput() && connectIntelligent(out, *in, kIntelligentDepth))
                    return Status::success();
            removeFilter(renderer);
        }
    }
    return Status::failure(hr::CannotRender, "The output pin " + out.name() + " of " +
                                                 out.owner_->name() + " cannot be rendered.");
}

} // namespace corvid::native
