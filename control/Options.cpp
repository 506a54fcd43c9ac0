// The host's settings that do more than store a value.

#include "control/Options.h"

#include "devices/clsCards.h"
#include "support/Guarded.h"
#include "support/PlayerSettings.h"
#include "support/ProcessState.h"

namespace corvid {

void Options::put_UsePitchAdjuster(bool& value) {
    g_.UsePitchAdjuster_ = value;
    // A standing graph follows at once: without the adjuster its pitch filter passes through.
    guardedVoid([&] {
        if (g_.fPitchShifter)
            if (auto* pitch = g_.fPitchShifter->pitchShifter()) pitch->setPassThrough(!value);
    });
}

NameCollection& Options::get_FilterNamesWeNeed() {
    if (!routing_.FilterNamesWeNeed_) routing_.FilterNamesWeNeed_ = std::make_shared<NameCollection>();
    return *routing_.FilterNamesWeNeed_;
}

void Options::putref_FilterNamesWeNeed(const NameCollection& value) {
    routing_.FilterNamesWeNeed_ = std::make_shared<NameCollection>(value);
}

bool Options::get_NewGraphEveryTime() {
    return guarded(false, [&] { return PlayerSettings(platform_.settings()).get_NewGraphEveryTime(); });
}

void Options::put_NewGraphEveryTime(bool& value) {
    guardedVoid([&] { PlayerSettings(platform_.settings()).put_NewGraphEveryTime(value); });
}

bool Options::get_PipeSenderDownstreamMute() {
    return guarded(false, [&] {
        return PlayerSettings(platform_.settings()).get_PipeSenderDownstreamMute(ID_);
    });
}

void Options::put_PipeSenderDownstreamMute(bool& value) {
    if (!g_.Pipe2020_)
        raise(errnum::InvalidProcedureCall,
              "You must first enable Pipe2020. Find it from Orvo in Alt+C, cart options");
    guardedVoid([&] {
        if (g_.fPipeSender)
            if (auto* pipe = g_.fPipeSender->pipeSender()) pipe->setDownstreamMute(value);
    });
    guardedVoid([&] { PlayerSettings(platform_.settings()).put_PipeSenderDownstreamMute(ID_, value); });
}

// The catalogue's list; reading it does not start a detection, so it is empty until one ran.
NameCollection Options::get_Plugins() {
    return guarded(NameCollection{}, [&] {
        const auto& cards = g_.process->cards;
        return cards ? cards->Plugins() : NameCollection{};
    });
}

} // namespace corvid
