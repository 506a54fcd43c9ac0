// The player's diagnostic log and its pending-error bookkeeping.
//
// The player keeps no log file: every line is a PlayerLogInfo event and the host decides
// where it goes. LoggingEnabled is the one switch for PlayerLogInfo; WriteLog is a second
// channel that the source selection and chain code raise for a few lines of their own.

#include "control/PlayerCore.h"

namespace corvid {

namespace {
// 57 dashes: the separator of the graph listing.
constexpr const char* kFilterSeparator = "---------------------------------------------------------";
constexpr const char* kCrLf = "\r\n";
} // namespace

void PlayerCore::Log(const std::string& text) {
    if (!m_bLoggingEnabled) return;
    std::string info = text;
    raiseEvent([&](PlayerEvents& e) { e.PlayerLogInfo(info); });
}

// Lines that the player raises directly as PlayerLogInfo rather than through Log(). They obey
// the same switch: an operator who turns logging off expects no log events at all.
void PlayerCore::RaisePlayerLogInfo(std::string text) { Log(text); }

void PlayerCore::RaiseWriteLog(std::string text) {
    raiseEvent([&](PlayerEvents& e) { e.WriteLog(text); });
}

std::string PlayerCore::PrintFilters(const platform::GraphPtr& GraphMan) {
    // Costs nothing while logging is off: the graph is not walked at all.
    if (!m_bLoggingEnabled) return "Logging not enabled (m_bLoggingEnabled)";

    std::string text;
    const platform::GraphPtr graph = GraphMan ? GraphMan : g_.MainGraphMan;
    if (!graph) return text;
    try {
        for (const auto& filter : graph->filters()) {
            if (!filter) continue;
            const std::string name = filter->name();
            text += kFilterSeparator;
            text += kCrLf;
            text += "FILTER NAME: " + name + kCrLf;
            text += kFilterSeparator;
            text += kCrLf;

            const auto pins = filter->pins();
            if (pins.empty())
                text += name + " will prevent the graph from playing because it has no pins, "
                               "and needs to be removed";
            for (const auto& pin : pins) {
                if (!pin) continue;
                const platform::PinPtr other = pin->connectedTo();
                if (other) {
                    const platform::FilterPtr otherFilter = other->filter();
                    text += kCrLf;
                    text += "Pin: " + pin->name() + " of " + name + " is connected to: " +
                            other->name() + " of " + (otherFilter ? otherFilter->name() : "");
                } else {
                    text += kCrLf;
                    text += "Pin: " + pin->name() + " of " + name + " is NOT Connected!";
                }
            }
        }
    } catch (...) {
        // A graph that cannot be enumerated yields the text built so far.
    }
    return text;
}

} // namespace corvid
