// The player's diagnostic log: it keeps no log file, every line is a PlayerLogInfo event and
// the host decides where it goes. WriteLog is a second channel that the source selection and
// chain code raise for a few lines of their own.

#include "support/EventChannel.h"

namespace corvid {

namespace {
// 57 dashes: the separator of the graph listing.
constexpr const char* kFilterSeparator = "---------------------------------------------------------";
constexpr const char* kCrLf = "\r\n";
} // namespace

void EventChannel::Log(const std::string& text) {
    if (!logging_) return;
    std::string info = text;
    raise([&](PlayerEvents& e) { e.PlayerLogInfo(info); });
}

void EventChannel::RaiseWriteLog(std::string text) {
    raise([&](PlayerEvents& e) { e.WriteLog(text); });
}

std::string EventChannel::PrintFilters(const platform::GraphPtr& graph) const {
    if (!logging_) return "Logging not enabled (m_bLoggingEnabled)";

    std::string text;
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
