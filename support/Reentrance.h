#pragma once
// What a host may do from inside an event, and how the player's long operations stay true
// when it does.
//
// Events are raised synchronously in the middle of a load or a graph replacement, and a host
// calls back into the player from inside them: it loads its next item when it sees "stopped",
// replaces the graph, unregisters. The operation that raised the event must not go on as if
// nothing happened: the graph it was building may be gone, and the item the host wrote is the
// newer wish. So every such operation registers here with the event depth it runs at. A write
// of FileName, a graph replacement or a graph teardown made from inside an event supersedes
// every operation started outside that event that has claimed the graph; when the event
// returns, the superseded operation stops at once (Superseded unwinds it to its own entry) and
// leaves the player as the newer operation left it.
//
// Control thread only.

#include <cstddef>
#include <vector>

namespace corvid {

// Unwinds a superseded operation to its entry point; never reaches a host.
struct Superseded {};

class Reentrance {
public:
    // One operation under way; nested operations of the same depth form a stack.
    class Operation {
    public:
        // An operation that claims the graph from the start, or only from claim() on.
        explicit Operation(Reentrance& owner, bool claimed = true)
            : owner_(owner), index_(owner.ops_.size()) {
            owner_.ops_.push_back({owner_.depth_, claimed, false});
        }
        void claim() { owner_.ops_[index_].claimed = true; }
        ~Operation() { owner_.ops_.pop_back(); }
        Operation(const Operation&) = delete;
        Operation& operator=(const Operation&) = delete;
        bool superseded() const { return owner_.ops_[index_].superseded; }

    private:
        Reentrance& owner_;
        std::size_t index_;
    };

    // The host's code runs between these: an event handler, or a platform callback that
    // reaches the player from the event loop (its own context, like a host's).
    class InEvent {
    public:
        explicit InEvent(Reentrance& owner) : owner_(owner) { ++owner_.depth_; }
        ~InEvent() { --owner_.depth_; }
        InEvent(const InEvent&) = delete;
        InEvent& operator=(const InEvent&) = delete;

    private:
        Reentrance& owner_;
    };

    // A new item or a new graph from inside an event: everything started outside it is moot.
    void supersedeOuter() {
        for (auto& op : ops_)
            if (op.depth < depth_ && op.claimed) op.superseded = true;
    }

    // Called where an event has returned: an operation of this depth that was superseded
    // meanwhile stops here.
    void stopIfSuperseded() const {
        for (const auto& op : ops_)
            if (op.depth == depth_ && op.superseded) throw Superseded{};
    }

private:
    struct Op {
        int depth;
        bool claimed;
        bool superseded;
    };
    std::vector<Op> ops_;
    int depth_ = 0;
};

} // namespace corvid
