// The check that the player is used from its control thread. Kept apart from the loops so
// that its debug form can be built into a test on its own.

#include "platform/Services.h"

#include <cstdio>
#include <cstdlib>
#include <sstream>

namespace corvid {

EventLoop::EventLoop() : controlThread_(std::this_thread::get_id()) {}

void EventLoop::checkControlThread(const char* member) const {
    if (std::this_thread::get_id() == controlThread_) return;
    std::ostringstream message;
    message << "Corvid: " << member << " was called on thread " << std::this_thread::get_id()
            << ", but the player belongs to the thread that created its platform (thread "
            << controlThread_ << "). Call every member on that thread, or post() to it.\n";
#ifndef NDEBUG
    std::fputs(message.str().c_str(), stderr);
    std::abort();
#else
    if (!reported_.exchange(true)) std::fputs(message.str().c_str(), stderr);
#endif
}

} // namespace corvid
