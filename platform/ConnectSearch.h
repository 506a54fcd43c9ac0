#pragma once
// Intelligent connect: how a graph joins an output pin to an input pin when their media types
// do not agree, by placing transforms between them. One search for every graph; each graph
// says only which transforms it could place and how it joins two pins.
//
// The search works as a graph manager does. It tries the direct connection first. Failing
// that, it takes the candidates in order (filters already standing in the graph with every
// pin free, then registered transforms that take what the pin offers, highest merit first),
// joins the pin to a candidate's input and continues from the candidate's outputs, depth
// first, up to `kConnectDepth` filters deep. A candidate that leads nowhere is disconnected
// again, and taken out again when the search placed it, so a failed search leaves the graph
// as it found it.
//
// Threads: the control thread, like every pin operation.

#include "platform/MediaGraph.h"

#include <string>
#include <vector>

namespace corvid::platform {

// The longest chain the player leaves to intelligent connect is a parser, a decoder and a
// format converter (a source joined to a renderer when an item is rendered automatically);
// one more filter is spare, for a free filter standing in the way.
inline constexpr int kConnectDepth = 4;

// A filter that might stand between the two pins: one already in the graph, or a registered
// transform that is made and placed only when its turn comes.
struct ConnectCandidate {
    FilterPtr standing;
    std::string displayName; // of the registered transform, when nothing stands
};

// What the search asks of the graph that connects.
class ConnectSpace {
public:
    virtual ~ConnectSpace() = default;

    // The candidates that could take what `out` offers on its way to `in`, in the order to
    // try them. Neither pin's own filter is a candidate.
    virtual std::vector<ConnectCandidate> candidates(const PinPtr& out, const PinPtr& in) = 0;
    // Joins two pins with nothing between them, as connectDirect does.
    virtual Status joinDirect(const PinPtr& out, const PinPtr& in) = 0;
    // Breaks a connection that the search made.
    virtual void part(const PinPtr& in) = 0;
    // Makes a registered candidate and adds it to the graph.
    virtual Status place(const ConnectCandidate& candidate, FilterPtr& placed) = 0;
    // Takes a filter that the search placed out of the graph again.
    virtual void withdraw(const FilterPtr& placed) = 0;
};

namespace detail {

inline std::vector<PinPtr> freePins(Filter& filter, PinDirection direction) {
    std::vector<PinPtr> result;
    for (auto& pin : filter.pins())
        if (pin->direction() == direction && !pin->isConnected()) result.push_back(pin);
    return result;
}

inline Status connectSearch(ConnectSpace& space, const PinPtr& out, const PinPtr& in, int depth);

// Joins `out` to one of the candidate's inputs and goes on from whichever output the
// candidate offers once fed (a parser's output appears only then).
inline bool connectVia(ConnectSpace& space, const PinPtr& out, const PinPtr& in, Filter& candidate,
                       int depth) {
    for (auto& candidateIn : freePins(candidate, PinDirection::Input)) {
        if (!space.joinDirect(out, candidateIn)) continue;
        for (auto& candidateOut : freePins(candidate, PinDirection::Output))
            if (connectSearch(space, candidateOut, in, depth - 1)) return true;
        space.part(candidateIn);
    }
    return false;
}

inline Status connectSearch(ConnectSpace& space, const PinPtr& out, const PinPtr& in, int depth) {
    Status direct = space.joinDirect(out, in);
    if (direct || direct.number == hr::AlreadyConnected || depth <= 0) return direct;
    for (const auto& candidate : space.candidates(out, in)) {
        FilterPtr filter = candidate.standing;
        if (!filter && !space.place(candidate, filter)) continue;
        if (connectVia(space, out, in, *filter, depth)) return Status::success();
        if (!candidate.standing) space.withdraw(filter);
    }
    return direct;
}

} // namespace detail

// Joins `out` to `in`, directly or through at most `depth` intermediate filters.
inline Status connectIntelligently(ConnectSpace& space, const PinPtr& out, const PinPtr& in,
                                   int depth = kConnectDepth) {
    Status found = detail::connectSearch(space, out, in, depth);
    if (found || found.number == hr::AlreadyConnected) return found;
    auto from = out->filter();
    auto to = in->filter();
    return Status::failure(hr::CannotConnect,
                           "No combination of intermediate filters could be found to connect " +
                               (from ? from->name() : std::string("the output")) + " to " +
                               (to ? to->name() : std::string("the input")) + ".");
}

} // namespace corvid::platform
