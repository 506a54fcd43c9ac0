#pragma once
// Pumps a platform's event loop from the Qt main loop without a timer: a QSocketNotifier
// watches the loop's wakeup descriptor, which is readable exactly while tasks are pending, so
// every player event runs on the GUI thread as soon as it is posted, and an idle player wakes
// the GUI for nothing.
//
//     corvid::qt::LoopPump pump(platform.eventLoop());   // on the GUI thread, before exec()

#include "platform/Services.h"

#include <QSocketNotifier>

namespace corvid::qt {

class LoopPump final : public QObject {
public:
    // The loop must outlive the pump. GUI thread, which becomes the control thread.
    explicit LoopPump(platform::EventLoop& loop, QObject* parent = nullptr);

private:
    QSocketNotifier notifier_;
};

} // namespace corvid::qt
