#pragma once
// The one way out of the player to its host: the events, the diagnostic log lines among them.
//
// Every event is raised synchronously on the control thread, and the host may call back into
// the player from inside it: load, stop, replace the graph, unregister its events. So the
// receiver is read once per raise (the host may unregister from inside), the host runs at an
// event depth of its own, and an operation the host superseded from inside stops as soon as
// the event returns (Reentrance).

#include <corvid/PlayerEvents.h>

#include "platform/MediaGraph.h"
#include "platform/Services.h"
#include "support/Reentrance.h"

#include <functional>
#include <string>

namespace corvid {

class EventChannel {
public:
    EventChannel(platform::EventLoop& loop, Reentrance& reentrance) : loop_(loop), reentrance_(reentrance) {}

    // The receiver of the events (not owned; may be null).
    void setEvents(PlayerEvents* events) { events_ = events; }
    bool hasReceiver() const { return events_ != nullptr; }
    // Reports a call made on another thread than the platform's control thread.
    void controlThreadOnly(const char* member) const { loop_.checkControlThread(member); }

    template <class F> void raise(F&& call) {
        controlThreadOnly("a Player event");
        PlayerEvents* events = events_;
        if (!events) return;
        {
            Reentrance::InEvent inEvent(reentrance_);
            call(*events);
        }
        reentrance_.stopIfSuperseded();
    }
    void raiseEvent(const std::function<void(PlayerEvents&)>& call) { raise(call); }

    // The log switch (LoggingEnabled): checked before any text is built.
    bool logging() const { return logging_; }
    void setLogging(bool on) { logging_ = on; }
    // A PlayerLogInfo line, only while logging.
    void Log(const std::string& text);
    // The lines the graph code raises as PlayerLogInfo; they obey the same switch, since an
    // operator who turns logging off expects no log events at all.
    void RaisePlayerLogInfo(const std::string& text) { Log(text); }
    // The second channel, which is not switched.
    void RaiseWriteLog(std::string text);
    // The filters and pins of `graph` as the log lists them; the refusal text while logging
    // is off, without walking the graph.
    std::string PrintFilters(const platform::GraphPtr& graph) const;

private:
    platform::EventLoop& loop_;
    Reentrance& reentrance_;
    PlayerEvents* events_ = nullptr;
    bool logging_ = false;
};

} // namespace corvid
