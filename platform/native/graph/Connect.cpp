#include "platform/native/graph/Graph.h"

#include "platform/native/Registry.h"
#include "platform/native/renderers/AudioRenderer.h"

#include <algorithm>

// Connect: direct and intelligent connection of two pins, disconnection and rendering.

namespace corvid::native {

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
            Status downstream = renegotiateOutputs(*in.owner_);
            if (!downstream) {
                disconnectPin(in);
                return downstream;
            }
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

Status NativeGraph::renegotiateOutputs(NativeFilter& filter) {
    for (auto& out : std::vector<NativePinPtr>(filter.nativePins())) {
        auto in = out->peer();
        if (out->isInput() || !in) continue;
        const auto offered = filter.outputTypes(*out, in.get());
        if (std::find(offered.begin(), offered.end(), out->type_) != offered.end()) continue;
        disconnectPin(*out);
        Status s = connectDirect(*out, *in);
        if (!s)
            return Status::failure(s.number, "The link from " + filter.name() + " to " +
                                                  (in->owner_ ? in->owner_->name() : "its peer") +
                                                  " cannot carry the new type: " + s.description);
    }
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
