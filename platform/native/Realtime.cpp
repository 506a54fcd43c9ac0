#include "platform/native/Realtime.h"

#include <algorithm>
#include <pthread.h>
#include <sched.h>
#include <sys/resource.h>
#include <unistd.h>

namespace corvid::native {

namespace {
// Low on the real-time scale: above every normal thread, below the sound server's own
// (PulseAudio asks for 5 and up) and far below the kernel's interrupt threads.
constexpr int kWantedPriority = 4;
} // namespace

bool requestRealtime() {
    rlimit limit{};
    int allowed = kWantedPriority;
    if (geteuid() != 0) {
        if (getrlimit(RLIMIT_RTPRIO, &limit) != 0 || limit.rlim_cur == 0) return false;
        if (limit.rlim_cur != RLIM_INFINITY) allowed = std::min<int>(allowed, int(limit.rlim_cur));
    }
    sched_param param{};
    param.sched_priority = std::max(allowed, sched_get_priority_min(SCHED_FIFO));
    return pthread_setschedparam(pthread_self(), SCHED_FIFO, &param) == 0;
}

} // namespace corvid::native
