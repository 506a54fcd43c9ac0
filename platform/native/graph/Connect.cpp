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

std::vector<platform::ConnectCandidate> NativeGraph::candidates(const platform::PinPtr& outPin,
                                                                const platform::PinPtr& inPin) {
    auto& out = static_cast<NativePin&>(*outPin);
    auto& in = static_cast<NativePin&>(*inPin);
    std::vector<platform::ConnectCandidate> result;
    for (auto& f : filters_) {
        if (f.get() == out.owner_ || f.get() == in.owner_ || f->asRenderer()) continue;
        bool busy = false;
        for (auto& p : f->nativePins()) busy = busy || p->peer() != nullptr;
        if (!busy) result.push_back({f, {}});
    }
    auto offered = out.owner_->outputTypes(out, nullptr);
    if (offered.empty()) return result;
    FilterDescriptor::Input kind = FilterDescriptor::Input::Pcm;
    switch (offered.front().kind) {
    case MediaType::Kind::ByteStream: kind = FilterDescriptor::Input::ByteStream; break;
    case MediaType::Kind::Compressed: kind = FilterDescriptor::Input::Compressed; break;
    case MediaType::Kind::Pcm: kind = FilterDescriptor::Input::Pcm; break;
    }
    std::vector<const FilterDescriptor*> registered;
    for (auto& d : registeredFilters())
        if (d.merit > merit::DoNotUse && d.input == kind) registered.push_back(&d);
    std::stable_sort(registered.begin(), registered.end(),
                     [](auto* a, auto* b) { return a->merit > b->merit; });
    for (auto* d : registered) result.push_back({nullptr, d->displayName});
    return result;
}

Status NativeGraph::joinDirect(const platform::PinPtr& out, const platform::PinPtr& in) {
    return connectDirect(static_cast<NativePin&>(*out), static_cast<NativePin&>(*in));
}

void NativeGraph::part(const platform::PinPtr& in) { disconnectPin(static_cast<NativePin&>(*in)); }

Status NativeGraph::place(const platform::ConnectCandidate& candidate, platform::FilterPtr& placed) {
    for (auto& d : registeredFilters()) {
        if (candidate.displayName != d.displayName) continue;
        auto filter = d.factory();
        if (!filter) break;
        if (Status s = addFilter(filter, instanceName(d)); !s) return s;
        placed = filter;
        return Status::success();
    }
    return Status::failure(hr::CannotConnect, candidate.displayName + " cannot be made.");
}

void NativeGraph::withdraw(const platform::FilterPtr& placed) { removeFilter(placed); }

Status NativeGraph::connectIntelligent(NativePin& out, NativePin& in) {
    return platform::connectIntelligently(*this, out.shared_from_this(), in.shared_from_this());
}

Status NativeGraph::renderPin(NativePin& out) {
    if (out.peer()) return Status::failure(hr::AlreadyConnected, "The pin is already connected.");
    for (auto& f : std::vector<NativeFilterPtr>(filters_)) {
        if (!f->asRenderer()) continue;
        for (auto& in : f->nativePins())
            if (in->isInput() && !in->peer() && connectIntelligent(out, *in))
                return Status::success();
    }
    if (context_.makeDefaultRenderer) {
        auto renderer = context_.makeDefaultRenderer();
        if (renderer && addFilter(renderer, renderer->name())) {
            for (auto& in : std::vector<NativePinPtr>(renderer->nativePins()))
                if (in->isInput() && connectIntelligent(out, *in))
                    return Status::success();
            removeFilter(renderer);
        }
    }
    return Status::failure(hr::CannotRender, "The output pin " + out.name() + " of " +
                                                 out.owner_->name() + " cannot be rendered.");
}

} // namespace corvid::native
