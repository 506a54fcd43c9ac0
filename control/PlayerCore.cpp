// The player's core: construction and teardown, the helpers' wiring, and the members that
// reach several parts.

#include "control/PlayerCore.h"

#include "devices/clsCards.h"
#include "support/Guarded.h"
#include "support/MediaTags.h"
#include "support/ProcessState.h"
#include "support/Text.h"

#include <cstdlib>

namespace corvid {

PlayerCore::PlayerCore(platform::Platform& platform)
    : platform_(platform), events(platform.eventLoop(), g.reentrance_),
      routing(g, events, transport, session, platform), chains(g, events, routing, session, platform),
      session(g, events, transport, *this, routing, chains, platform),
      levels(events, *platform.processWide<PlayerProcessState>(), platform),
      transport(g, events, session, chains, levels, platform,
                [this](std::string& name) { put_FileName(name); }),
      cueSegue(g, events, platform.ticks()), options(g, events, routing, platform) {
    g.process = platform.processWide<PlayerProcessState>();
    if (!g.process->firstPlayerInitialised) {
        // Only the reader ban is set by the first player; the own-source preference stays off
        // until a host turns it on.
        g.process->ASFReaderBanned = true;
        g.process->firstPlayerInitialised = true;
    }
}

PlayerCore::~PlayerCore() {
    // Nothing may reach the host from here: no events, no exceptions.
    events.setEvents(nullptr);
    guardedVoid([&] {
        if (g.streamControl_) g.streamControl_->registerCallback(nullptr);
        g.streamControl_ = nullptr;
        g.streamSource_.reset();
    });
    guardedVoid([&] {
        if (g.Helper) {
            g.Helper->setEvents(nullptr);
            g.Helper->stop();
            g.Helper->setCurrentGraph(nullptr);
        }
        if (g.CueHelper) {
            g.CueHelper->setEvents(nullptr);
            g.CueHelper->stop();
            g.CueHelper->setCurrentGraph(nullptr);
        }
    });
    guardedVoid([&] {
        if (g.MainGraphMan) {
            g.MainGraphMan->setEventHandler(nullptr);
            g.MainGraphMan->stop();
        }
        if (g.PFLGraphMan) {
            g.PFLGraphMan->setEventHandler(nullptr);
            g.PFLGraphMan->stop();
        }
    });
}

// Routes one helper's events to the transport or the cue search. No exception goes back into
// the helper: its events come from the platform's side of the event loop. The host may replace
// the helpers (and so this sink) from inside an event, so nothing of the sink is read once the
// part has been called.
class PlayerCore::HelperSink : public platform::GraphHelperEvents {
public:
    HelperSink(PlayerCore& player, bool cue) : player_(player), cue_(cue) {}

    void threadEvent(int32_t left, int32_t right) override {
        PlayerCore& player = player_;
        if (cue_)
            deliver(player, [&] { player.cueSegue.cueHelperTick(); });
        else
            deliver(player, [&] { player.transport.helperTick(left, right); });
    }
    void endOfStream() override {
        PlayerCore& player = player_;
        if (cue_)
            deliver(player, [&] { player.cueSegue.cueHelperEnd(); });
        else
            deliver(player, [&] { player.transport.helperEnd(); });
    }
    void cueInFound(int32_t positionMs) override {
        if (cue_) deliver(player_, [&, &player = player_] { player.cueSegue.cueResult(positionMs); });
    }
    void segueFound(int32_t positionMs) override {
        if (cue_) deliver(player_, [&, &player = player_] { player.cueSegue.segueResult(positionMs); });
    }

private:
    template <class F> static void deliver(PlayerCore& player, F&& body) {
        try {
            Reentrance::InEvent fromPlatform(player.g.reentrance_);
            body();
        } catch (...) {
        }
    }
    PlayerCore& player_;
    bool cue_;
};

void PlayerCore::CreateHelpers() {
    // A replaced helper may live on a little (the platform may still hold it); it must not
    // call into this player any more.
    if (g.Helper) g.Helper->setEvents(nullptr);
    if (g.CueHelper) g.CueHelper->setEvents(nullptr);
    g.Helper.reset();
    g.CueHelper.reset();

    helperSink_ = std::make_unique<HelperSink>(*this, false);
    cueHelperSink_ = std::make_unique<HelperSink>(*this, true);

    if (g.trap(platform_.createGraphHelper(platform::GraphHelperKind::Helper, g.Helper)) && g.Helper)
        g.Helper->setEvents(helperSink_.get());
    if (g.trap(platform_.createGraphHelper(platform::GraphHelperKind::CueHelper, g.CueHelper)) &&
        g.CueHelper)
        g.CueHelper->setEvents(cueHelperSink_.get());
}

// ---- Small methods ----

void PlayerCore::Init() {
    if (!runMode_) return;
    transport.SetPlaystate(mpstopped);
    guardedVoid([&] { routing.Cards(); });
}

void PlayerCore::ShowPropPage(const std::string& filter, int32_t hwnd) {
    guardedVoid([&] {
        auto& ops = platform_.operatorServices();
        const platform::FilterPtr found = g.MainGraphMan ? session.FindFilterInGraph(filter) : nullptr;
        if (!found) {
            ops.messageBox("Can't show property page unless instantiated.", g.ThisCartName_,
                           platform::MessageIcon::Exclamation);
            return;
        }
        if (!found->hasPropertyPage() || !found->showPropertyPage(hwnd).ok())
            ops.messageBox("Property Page Cannot Be Shown.", g.ThisCartName_,
                           platform::MessageIcon::Exclamation);
    });
}

void PlayerCore::GetCurrentMainFilterGraph(std::vector<platform::FilterPtr>& CurrentFilterGraph) {
    CurrentFilterGraph.clear();
    guardedVoid([&] {
        if (g.MainGraphMan) CurrentFilterGraph = g.MainGraphMan->filters();
    });
}

void PlayerCore::TestOpen(const std::string& FileToTest) {
    guardedVoid([&] {
        auto& ops = platform_.operatorServices();
        if (!ops.testOpen(FileToTest).ok())
            ops.messageBox(FileToTest + "Cant Open! ", g.ThisCartName_, platform::MessageIcon::None);
    });
}

void PlayerCore::ShowMainCardPage(int32_t hwnd) {
    guardedVoid([&] {
        if (!g.MainGraphMan) return;
        for (const auto& filter : g.MainGraphMan->filters()) {
            const std::string name = filter->name();
            char* end = nullptr;
            std::strtod(name.c_str(), &end);
            const bool numeric = !name.empty() && end && *end == '\0';
            if (numeric && filter->pins().size() == 1) {
                ShowPropPage(name, hwnd);
                return;
            }
        }
    });
}

bool PlayerCore::FindConnectedFilter(const std::string& FilterName, const platform::GraphPtr& GraphMan,
                                 platform::FilterPtr& ParserFilter, platform::PinPtr& Inpin,
                                 platform::PinPtr& OutPin) {
    return guarded(false, [&] {
        if (!GraphMan) return false;
        for (const auto& filter : GraphMan->filters()) {
            if (text::containsNoCase(filter->name(), FilterName)) {
                ParserFilter = filter;
                FormatChains::GetPins(Inpin, OutPin, filter);
                return true;
            }
        }
        return false;
    });
}

// ---- Tags ----

MediaTags& PlayerCore::Tags() {
    if (!tags_) {
        tagReader_ = platform_.createTagReader();
        if (!tagReader_) throw AutomationError(platform::hr::Pointer, "No tag reader.");
        tags_ = std::make_unique<MediaTags>(*tagReader_);
    }
    return *tags_;
}

std::string PlayerCore::get_WMAArtist() {
    return guarded(std::string(), [&] { return Tags().get_WMAArtist(); });
}
std::string PlayerCore::get_WMATitle() {
    return guarded(std::string(), [&] { return Tags().get_WMATitle(); });
}
std::string PlayerCore::get_WMAYear() {
    return guarded(std::string(), [&] { return Tags().get_WMAYear(); });
}
std::string PlayerCore::get_WMAGenre() {
    return guarded(std::string(), [&] { return Tags().get_WMAGenre(); });
}

} // namespace corvid
