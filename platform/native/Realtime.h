#pragma once
// Real-time scheduling for the threads that feed a sound device.

namespace corvid::native {

// Asks for SCHED_FIFO at a low priority for the calling thread, where the system grants it
// (RLIMIT_RTPRIO above zero, or a privileged process). Returns whether it was granted; the
// thread runs on at its normal priority otherwise.
bool requestRealtime();

} // namespace corvid::native
