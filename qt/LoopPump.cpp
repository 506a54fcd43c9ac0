#include "qt/LoopPump.h"

namespace corvid::qt {

LoopPump::LoopPump(platform::EventLoop& loop, QObject* parent)
    : QObject(parent), notifier_(loop.wakeupFd(), QSocketNotifier::Read) {
    // The descriptor stays readable while tasks remain (posted meanwhile, or left by a task
    // that pumped the loop itself), so the notifier fires again on the next pass.
    connect(&notifier_, &QSocketNotifier::activated, this, [&loop] { loop.processPending(); });
}

} // namespace corvid::qt
