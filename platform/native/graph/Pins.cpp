#include "platform/native/graph/Graph.h"

#include <algorithm>

// Pins and filters: how a filter holds its pins and how a pin hands streaming calls to its peer.

namespace corvid::native {

using platform::PinDirection;

namespace {
Status pinGone() { return Status::failure(hr::Pointer, "The pin's filter no longer exists."); }
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
    return g->connectIntelligent(*out, *in);
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

} // namespace corvid::native
