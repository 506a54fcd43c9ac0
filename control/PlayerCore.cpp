// Player: construction, destruction, the process-wide settings and the small accessors.
//
// Accessors run under a catch-all: a failing platform call inside one does not reach the host,
// which gets the member's default (0, false or empty) instead. The one accessor that fails
// towards the host is the PipeSenderDownstreamMute write while Pipe2020 is off.

#include "control/PlayerCore.h"

#include "support/ProcessState.h"
#include "devices/clsCards.h"
#include "levels/SilenceDet.h"
#include "support/MediaTags.h"
#include "support/PlayerSettings.h"
#include "support/Text.h"
#include "support/TimerClass1.h"

#include <cmath>
#include <cstdlib>

namespace corvid {

namespace {

// Runs an accessor's body; any failure inside yields the fallback.
template <class T, class F> T guarded(T fallback, F&& body) {
    try {
        return body();
    } catch (const Superseded&) {
        throw;
    } catch (...) {
        return fallback;
    }
}

template <class F> void guardedVoid(F&& body) {
    try {
        body();
    } catch (const Superseded&) {
        throw;
    } catch (...) {
    }
}

constexpr int32_t kDefaultAutoCueThresh = 500;

} // namespace

PlayerCore::PlayerCore(platform::Platform& platform)
    : platform_(platform), process_(platform.processWide<PlayerProcessState>()),
      routing_(g_, *this, platform), chains_(g_, *this, routing_, session_, platform),
      session_(g_, *this, routing_, chains_, platform) {
    stopwatch_ = std::make_unique<TimerClass1>(platform_.ticks());

    PlayerProcessState& process = *process_;
    if (!process.silenceDet) {
        SilenceDetEnabled_ = true;
        process.silenceDet = std::make_shared<clsSilenceDet>(platform_.settings());
    }
    if (!process.firstPlayerInitialised) {
        // Only the reader ban is set by the first player; the own-source preference stays off
        // until a host turns it on.
        process.ASFReaderBanned = true;
        process.firstPlayerInitialised = true;
    }
    cueFilterNames_ = std::make_unique<NameCollection>();
    g_.UsePitchAdjuster_ = true;
}

PlayerCore::~PlayerCore() {
    // Nothing may reach the host from here: no events, no exceptions.
    events_ = nullptr;
    guardedVoid([&] {
        if (g_.streamControl_) g_.streamControl_->registerCallback(nullptr);
        g_.streamControl_ = nullptr;
        g_.streamSource_.reset();
    });
    guardedVoid([&] {
        if (g_.Helper) {
            g_.Helper->setEvents(nullptr);
            g_.Helper->stop();
            g_.Helper->setCurrentGraph(nullptr);
        }
        if (g_.CueHelper) {
            g_.CueHelper->setEvents(nullptr);
            g_.CueHelper->stop();
            g_.CueHelper->setCurrentGraph(nullptr);
        }
    });
    guardedVoid([&] {
        if (g_.MainGraphMan) {
            g_.MainGraphMan->setEventHandler(nullptr);
            g_.MainGraphMan->stop();
        }
        if (g_.PFLGraphMan) {
            g_.PFLGraphMan->setEventHandler(nullptr);
            g_.PFLGraphMan->stop();
        }
    });
}

PlayerProcessState& PlayerCore::Process() { return *process_; }

// ---- Process-wide settings ----

bool PlayerCore::get_AutoRenderAllowed() { return Process().AutoRenderAllowed; }
void PlayerCore::put_AutoRenderAllowed(bool& value) { Process().AutoRenderAllowed = value; }
bool PlayerCore::get_HaldenSourcePrefer() { return Process().HaldenSourcePrefer; }
void PlayerCore::put_HaldenSourcePrefer(bool& value) { Process().HaldenSourcePrefer = value; }
bool PlayerCore::get_ASFReaderBanned() { return Process().ASFReaderBanned; }
void PlayerCore::put_ASFReaderBanned(bool& value) { Process().ASFReaderBanned = value; }

int32_t PlayerCore::get_autoCueThresh() {
    PlayerProcessState& process = Process();
    if (process.autoCueThresh < 1) process.autoCueThresh = kDefaultAutoCueThresh;
    return process.autoCueThresh;
}

void PlayerCore::put_autoCueThresh(int32_t& value) {
    // The absolute value; the smallest 32-bit value has none and keeps the default instead.
    Process().autoCueThresh = value == INT32_MIN ? 0 : std::abs(value);
}

clsSilenceDet& PlayerCore::get_SilenceDet() { return *Process().silenceDet; }

// ---- Per-user settings ----

bool PlayerCore::get_NewGraphEveryTime() {
    return guarded(false, [&] { return PlayerSettings(platform_.settings()).get_NewGraphEveryTime(); });
}

void PlayerCore::put_NewGraphEveryTime(bool& value) {
    guardedVoid([&] { PlayerSettings(platform_.settings()).put_NewGraphEveryTime(value); });
}

bool PlayerCore::get_PipeSenderDownstreamMute() {
    return guarded(false, [&] {
        return PlayerSettings(platform_.settings()).get_PipeSenderDownstreamMute(ID_);
    });
}

void PlayerCore::put_PipeSenderDownstreamMute(bool& value) {
    if (!g_.Pipe2020_)
        raise(errnum::InvalidProcedureCall,
              "You must first enable Pipe2020. Find it from Orvo in Alt+C, cart options");
    guardedVoid([&] {
        if (g_.fPipeSender)
            if (auto* pipe = g_.fPipeSender->pipeSender()) pipe->setDownstreamMute(value);
    });
    guardedVoid([&] { PlayerSettings(platform_.settings()).put_PipeSenderDownstreamMute(ID_, value); });
}

// ---- Stored values ----

bool PlayerCore::get_LoggingEnabled() { return m_bLoggingEnabled; }
void PlayerCore::put_LoggingEnabled(bool& value) { m_bLoggingEnabled = value; }
bool PlayerCore::get_SilenceDetEnabled() { return SilenceDetEnabled_; }
void PlayerCore::put_SilenceDetEnabled(bool& value) { SilenceDetEnabled_ = value; }
std::string PlayerCore::get_LastError() { return g_.LastError_; }
bool PlayerCore::get_UsingASFReaderAsFallback() { return UsingASFReaderAsFallback_; }
bool PlayerCore::get_AutoSeg() { return AutoSeg_; }
void PlayerCore::put_AutoSeg(bool& value) { AutoSeg_ = value; }
std::string PlayerCore::get_ThisCartName() { return g_.ThisCartName_; }
void PlayerCore::put_ThisCartName(std::string& value) { g_.ThisCartName_ = value; }
std::string PlayerCore::get_ID() { return ID_; }
void PlayerCore::put_ID(std::string& value) { ID_ = value; }
bool PlayerCore::get_UseACM() { return g_.UseACM_; }
void PlayerCore::put_UseACM(bool& value) { g_.UseACM_ = value; }
int32_t PlayerCore::get_AutoSegThresh() { return AutoSegThresh_; }
void PlayerCore::put_AutoSegThresh(int32_t& value) { AutoSegThresh_ = value; }
bool PlayerCore::get_Pipe2020() { return g_.Pipe2020_; }
void PlayerCore::put_Pipe2020(bool& value) { g_.Pipe2020_ = value; }
std::string PlayerCore::get_SurroundRenderName() { return g_.SurroundRenderName_; }
double PlayerCore::get_AutoCuePos() { return AutoCuePos_; }
double PlayerCore::get_AutoSegPos() { return AutoSegPos_; }
void PlayerCore::put_AutoSegPos(double value) { AutoSegPos_ = value; }
bool PlayerCore::get_AutoCueBusy() { return AutoCueBusy_; }

NameCollection& PlayerCore::get_FilterNamesWeNeed() {
    if (!routing_.FilterNamesWeNeed_) routing_.FilterNamesWeNeed_ = std::make_shared<NameCollection>();
    return *routing_.FilterNamesWeNeed_;
}

void PlayerCore::putref_FilterNamesWeNeed(const NameCollection& value) {
    routing_.FilterNamesWeNeed_ = std::make_shared<NameCollection>(value);
}

bool PlayerCore::get_UsePitchAdjuster() { return g_.UsePitchAdjuster_; }

void PlayerCore::put_UsePitchAdjuster(bool& value) {
    g_.UsePitchAdjuster_ = value;
    // A standing graph follows at once: without the adjuster its pitch filter passes through.
    guardedVoid([&] {
        if (g_.fPitchShifter)
            if (auto* pitch = g_.fPitchShifter->pitchShifter()) pitch->setPassThrough(!value);
    });
}

PlayCondition PlayerCore::get_Playstate() { return playingOverride_ ? MpPlaying : playstate_; }

int32_t PlayerCore::get_LeftVUPeak() { return leftPeak_ == INT32_MIN ? INT32_MAX : std::abs(leftPeak_); }
int32_t PlayerCore::get_RightVuPeak() { return rightPeak_ == INT32_MIN ? INT32_MAX : std::abs(rightPeak_); }

// ---- Small methods ----

void PlayerCore::Init() {
    if (!runMode_) return;
    SetPlaystate(mpstopped);
    guardedVoid([&] { routing_.Cards(); });
}

// The catalogue's list; reading it does not start a detection, so it is empty until one ran.
NameCollection PlayerCore::get_Plugins() {
    return guarded(NameCollection{}, [&] {
        const auto& cards = Process().cards;
        return cards ? cards->Plugins() : NameCollection{};
    });
}

// A single slot, deliberately: the newest plug-in name replaces the previous one.
void PlayerCore::AddPlugin(const std::string& FilterName) { pluginName_ = FilterName; }

void PlayerCore::ShowPropPage(const std::string& filter, int32_t hwnd) {
    guardedVoid([&] {
        auto& ops = platform_.operatorServices();
        const platform::FilterPtr found = g_.MainGraphMan ? session_.FindFilterInGraph(filter) : nullptr;
        if (!found) {
            ops.messageBox("Can't show property page unless instantiated.", g_.ThisCartName_,
                           platform::MessageIcon::Exclamation);
            return;
        }
        if (!found->hasPropertyPage() || !found->showPropertyPage(hwnd).ok())
            ops.messageBox("Property Page Cannot Be Shown.", g_.ThisCartName_,
                           platform::MessageIcon::Exclamation);
    });
}

void PlayerCore::RaiseEndOfStream() {
    SetPlaystate(mpstopped);
    raiseEvent([](PlayerEvents& e) { e.EndOfStream(0); });
}

void PlayerCore::GetCurrentMainFilterGraph(std::vector<platform::FilterPtr>& CurrentFilterGraph) {
    CurrentFilterGraph.clear();
    guardedVoid([&] {
        if (g_.MainGraphMan) CurrentFilterGraph = g_.MainGraphMan->filters();
    });
}

void PlayerCore::TestOpen(const std::string& FileToTest) {
    guardedVoid([&] {
        auto& ops = platform_.operatorServices();
        if (!ops.testOpen(FileToTest).ok())
            ops.messageBox(FileToTest + "Cant Open! ", g_.ThisCartName_, platform::MessageIcon::None);
    });
}

void PlayerCore::ShowMainCardPage(int32_t hwnd) {
    guardedVoid([&] {
        if (!g_.MainGraphMan) return;
        for (const auto& filter : g_.MainGraphMan->filters()) {
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
