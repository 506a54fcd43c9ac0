// Player: construction, destruction, the process-wide settings and the small accessors.
//
// Accessors run under a catch-all: a failing platform call inside one does not reach the host,
// which gets the member's default (0, false or empty) instead. The one accessor that fails
// towards the host is the PipeSenderDownstreamMute write while Pipe2020 is off.

#include "control/Player.h"

#include "control/ProcessState.h"
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

Player::Player(platform::Platform& platform)
    : platform_(platform), process_(platform.processWide<PlayerProcessState>()) {
    controlThreadOnly("Player::Player");
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
    UsePitchAdjuster_ = true;
}

Player::~Player() {
    // Nothing may reach the host from here: no events, no exceptions.
    events_ = nullptr;
    guardedVoid([&] {
        if (streamControl_) streamControl_->registerCallback(nullptr);
        streamControl_ = nullptr;
        streamSource_.reset();
    });
    guardedVoid([&] {
        if (Helper) {
            Helper->setEvents(nullptr);
            Helper->stop();
            Helper->setCurrentGraph(nullptr);
        }
        if (CueHelper) {
            CueHelper->setEvents(nullptr);
            CueHelper->stop();
            CueHelper->setCurrentGraph(nullptr);
        }
    });
    guardedVoid([&] {
        if (MainGraphMan) {
            MainGraphMan->setEventHandler(nullptr);
            MainGraphMan->stop();
        }
        if (PFLGraphMan) {
            PFLGraphMan->setEventHandler(nullptr);
            PFLGraphMan->stop();
        }
    });
}

PlayerProcessState& Player::Process() { return *process_; }

// ---- Process-wide settings ----

bool Player::get_AutoRenderAllowed() { return Process().AutoRenderAllowed; }
void Player::put_AutoRenderAllowed(bool& value) { Process().AutoRenderAllowed = value; }
bool Player::get_HaldenSourcePrefer() { return Process().HaldenSourcePrefer; }
void Player::put_HaldenSourcePrefer(bool& value) { Process().HaldenSourcePrefer = value; }
bool Player::get_ASFReaderBanned() { return Process().ASFReaderBanned; }
void Player::put_ASFReaderBanned(bool& value) { Process().ASFReaderBanned = value; }

int32_t Player::get_autoCueThresh() {
    PlayerProcessState& process = Process();
    if (process.autoCueThresh < 1) process.autoCueThresh = kDefaultAutoCueThresh;
    return process.autoCueThresh;
}

void Player::put_autoCueThresh(int32_t& value) {
    // The absolute value; the smallest 32-bit value has none and keeps the default instead.
    Process().autoCueThresh = value == INT32_MIN ? 0 : std::abs(value);
}

clsSilenceDet& Player::get_SilenceDet() { return *Process().silenceDet; }

// ---- Per-user settings ----

bool Player::get_NewGraphEveryTime() {
    return guarded(false, [&] { return PlayerSettings(platform_.settings()).get_NewGraphEveryTime(); });
}

void Player::put_NewGraphEveryTime(bool& value) {
    guardedVoid([&] { PlayerSettings(platform_.settings()).put_NewGraphEveryTime(value); });
}

bool Player::get_PipeSenderDownstreamMute() {
    return guarded(false, [&] {
        return PlayerSettings(platform_.settings()).get_PipeSenderDownstreamMute(ID_);
    });
}

void Player::put_PipeSenderDownstreamMute(bool& value) {
    if (!Pipe2020_)
        raise(errnum::InvalidProcedureCall,
              "You must first enable Pipe2020. Find it from Orvo in Alt+C, cart options");
    guardedVoid([&] {
        if (fPipeSender)
            if (auto* pipe = fPipeSender->pipeSender()) pipe->setDownstreamMute(value);
    });
    guardedVoid([&] { PlayerSettings(platform_.settings()).put_PipeSenderDownstreamMute(ID_, value); });
}

// ---- Stored values ----

bool Player::get_LoggingEnabled() { return m_bLoggingEnabled; }
void Player::put_LoggingEnabled(bool& value) { m_bLoggingEnabled = value; }
bool Player::get_SilenceDetEnabled() { return SilenceDetEnabled_; }
void Player::put_SilenceDetEnabled(bool& value) { SilenceDetEnabled_ = value; }
std::string Player::get_LastError() { return LastError_; }
bool Player::get_UsingASFReaderAsFallback() { return UsingASFReaderAsFallback_; }
bool Player::get_AutoSeg() { return AutoSeg_; }
void Player::put_AutoSeg(bool& value) { AutoSeg_ = value; }
std::string Player::get_ThisCartName() { return ThisCartName_; }
void Player::put_ThisCartName(std::string& value) { ThisCartName_ = value; }
std::string Player::get_ID() { return ID_; }
void Player::put_ID(std::string& value) { ID_ = value; }
bool Player::get_UseACM() { return UseACM_; }
void Player::put_UseACM(bool& value) { UseACM_ = value; }
int32_t Player::get_AutoSegThresh() { return AutoSegThresh_; }
void Player::put_AutoSegThresh(int32_t& value) { AutoSegThresh_ = value; }
bool Player::get_Pipe2020() { return Pipe2020_; }
void Player::put_Pipe2020(bool& value) { Pipe2020_ = value; }
std::string Player::get_SurroundRenderName() { return SurroundRenderName_; }
double Player::get_AutoCuePos() { return AutoCuePos_; }
double Player::get_AutoSegPos() { return AutoSegPos_; }
void Player::put_AutoSegPos(double value) { AutoSegPos_ = value; }
bool Player::get_AutoCueBusy() { return AutoCueBusy_; }

NameCollection& Player::get_FilterNamesWeNeed() {
    if (!FilterNamesWeNeed_) FilterNamesWeNeed_ = std::make_shared<NameCollection>();
    return *FilterNamesWeNeed_;
}

void Player::putref_FilterNamesWeNeed(const NameCollection& value) {
    FilterNamesWeNeed_ = std::make_shared<NameCollection>(value);
}

bool Player::get_UsePitchAdjuster() { return UsePitchAdjuster_; }

void Player::put_UsePitchAdjuster(bool& value) {
    UsePitchAdjuster_ = value;
    // A standing graph follows at once: without the adjuster its pitch filter passes through.
    guardedVoid([&] {
        if (fPitchShifter)
            if (auto* pitch = fPitchShifter->pitchShifter()) pitch->setPassThrough(!value);
    });
}

PlayCondition Player::get_Playstate() { return playingOverride_ ? MpPlaying : playstate_; }

int32_t Player::get_LeftVUPeak() { return leftPeak_ == INT32_MIN ? INT32_MAX : std::abs(leftPeak_); }
int32_t Player::get_RightVuPeak() { return rightPeak_ == INT32_MIN ? INT32_MAX : std::abs(rightPeak_); }

// ---- Small methods ----

void Player::Init() {
    controlThreadOnly("Player::Init");
    if (!runMode_) return;
    SetPlaystate(mpstopped);
    guardedVoid([&] { Cards(); });
}

// The catalogue's list; reading it does not start a detection, so it is empty until one ran.
NameCollection Player::get_Plugins() {
    return guarded(NameCollection{}, [&] {
        const auto& cards = Process().cards;
        return cards ? cards->Plugins() : NameCollection{};
    });
}

// A single slot, deliberately: the newest plug-in name replaces the previous one.
void Player::AddPlugin(const std::string& FilterName) { pluginName_ = FilterName; }

void Player::ShowPropPage(const std::string& filter, int32_t hwnd) {
    guardedVoid([&] {
        auto& ops = platform_.operatorServices();
        const platform::FilterPtr found = MainGraphMan ? FindFilterInGraph(filter) : nullptr;
        if (!found) {
            ops.messageBox("Can't show property page unless instantiated.", ThisCartName_,
                           platform::MessageIcon::Exclamation);
            return;
        }
        if (!found->hasPropertyPage() || !found->showPropertyPage(hwnd).ok())
            ops.messageBox("Property Page Cannot Be Shown.", ThisCartName_,
                           platform::MessageIcon::Exclamation);
    });
}

void Player::RaiseEndOfStream() {
    SetPlaystate(mpstopped);
    raiseEvent([](PlayerEvents& e) { e.EndOfStream(0); });
}

void Player::GetCurrentMainFilterGraph(std::vector<platform::FilterPtr>& CurrentFilterGraph) {
    CurrentFilterGraph.clear();
    guardedVoid([&] {
        if (MainGraphMan) CurrentFilterGraph = MainGraphMan->filters();
    });
}

void Player::TestOpen(const std::string& FileToTest) {
    guardedVoid([&] {
        auto& ops = platform_.operatorServices();
        if (!ops.testOpen(FileToTest).ok())
            ops.messageBox(FileToTest + "Cant Open! ", ThisCartName_, platform::MessageIcon::None);
    });
}

void Player::ShowMainCardPage(int32_t hwnd) {
    guardedVoid([&] {
        if (!MainGraphMan) return;
        for (const auto& filter : MainGraphMan->filters()) {
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

bool Player::FindConnectedFilter(const std::string& FilterName, const platform::GraphPtr& GraphMan,
                                 platform::FilterPtr& ParserFilter, platform::PinPtr& Inpin,
                                 platform::PinPtr& OutPin) {
    return guarded(false, [&] {
        if (!GraphMan) return false;
        for (const auto& filter : GraphMan->filters()) {
            if (text::containsNoCase(filter->name(), FilterName)) {
                ParserFilter = filter;
                GetPins(Inpin, OutPin, filter);
                return true;
            }
        }
        return false;
    });
}

// ---- Tags ----

MediaTags& Player::Tags() {
    if (!tags_) {
        tagReader_ = platform_.createTagReader();
        if (!tagReader_) throw AutomationError(platform::hr::Pointer, "No tag reader.");
        tags_ = std::make_unique<MediaTags>(*tagReader_);
    }
    return *tags_;
}

std::string Player::get_WMAArtist() {
    return guarded(std::string(), [&] { return Tags().get_WMAArtist(); });
}
std::string Player::get_WMATitle() {
    return guarded(std::string(), [&] { return Tags().get_WMATitle(); });
}
std::string Player::get_WMAYear() {
    return guarded(std::string(), [&] { return Tags().get_WMAYear(); });
}
std::string Player::get_WMAGenre() {
    return guarded(std::string(), [&] { return Tags().get_WMAGenre(); });
}

} // namespace corvid
