#pragma once
// Real-time scheduling for the threads that feed a sound device.

#include <string>

namespace corvid::native {

struct RealtimeGrant {
    bool granted = false;
    // One line for the operator: how the thread runs, and by whose leave or why not.
    std::string note;
};

// Asks for SCHED_FIFO at a low priority for the calling thread: first straight from the
// kernel (RLIMIT_RTPRIO above zero, or a privileged process), then from rtkit over the system
// bus. The thread runs on at its normal priority when neither grants it. Called once at a
// thread's start, never on the device callback: the bus round trip is bounded but not free.
RealtimeGrant requestRealtime();

// True the first time in the process that a grant, or a refusal, is seen: each is said once,
// so a process granted at its start still hears when rtkit's rate limit later refuses.
bool realtimeNoteIsNew(const RealtimeGrant& grant);

} // namespace corvid::native
