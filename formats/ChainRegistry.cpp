// The registered format chains: one constant object per format, and the fallback order.

#include "formats/ChainRegistry.h"

#include <array>

namespace corvid {

namespace {

using namespace std::string_view_literals;

constexpr std::array kMp3Names = {"mp3"sv, "flac"sv}; // FLAC deliberately: its source decodes
constexpr std::array kWaveNames = {"wav"sv};
constexpr std::array kWmaNames = {"asf"sv, "wma"sv};
constexpr std::array kOggNames = {"ogg"sv};
constexpr std::array kMp4Names = {"m4a"sv};

// A stream that does not connect is not a file: no other chain is tried.
constexpr FormatChain kStream{"stream", {}, true, nullptr, "ConnectGraphFilters: ConnectStreamFilters Failed!",
                              false, &FormatChains::ConnectStreamFilters};
constexpr FormatChain kMp3{"mp3",   kMp3Names, false, "trying ConnectMp3Filters...", nullptr,
                           true,    &FormatChains::ConnectMp3Filters};
constexpr FormatChain kWave{"wave", kWaveNames, false, "trying ConnectWavFilters...", nullptr,
                            true,   &FormatChains::ConnectWaveFilters};
constexpr FormatChain kWma{"wma",   kWmaNames, false, "trying ConnectWMAFilters...", nullptr,
                           true,    &FormatChains::ConnectWMAFilters};
constexpr FormatChain kOgg{"ogg",   kOggNames, false, "trying ConnectOggFilters...", nullptr,
                           true,    &FormatChains::ConnectOggFilters};
constexpr FormatChain kMp4{"mp4",   kMp4Names, false, "trying ConnectMp4Filters...", nullptr,
                           true,    &FormatChains::ConnectMp4Filters};

constexpr std::array<const FormatChain*, 6> kChains = {&kStream, &kMp3, &kWave, &kWma, &kOgg, &kMp4};

// MP4 and streams are never among the fallbacks. MP3 runs again with the source as it stands
// (so an MP3 item runs it twice); each of the others from a fresh source.
constexpr std::array kFallbacks = {
    ChainFallback{&kMp3, "trying ConnectMp3Filters (after fail)...", false, false},
    ChainFallback{&kWave, "trying ConnectWaveFilters (after fail)...", true, false},
    ChainFallback{&kWma, "trying ConnectWMAFilters (after fail)...", true, true},
    ChainFallback{&kOgg, "trying ConnectOggFilters (after fail)...", true, true},
};

} // namespace

namespace chains {

const FormatChain* firstChoiceFor(const item::Name& item) {
    for (const FormatChain* chain : kChains) {
        if (item.isAddress()) {
            if (chain->forAddresses) return chain;
            continue;
        }
        for (std::string_view extension : chain->extensions)
            if (item.extensionIs(extension)) return chain;
    }
    return nullptr;
}

std::span<const ChainFallback> fallbacks() { return kFallbacks; }

} // namespace chains

bool isOggName(const item::Name& item) { return item.extensionIs("ogg") || item.extension().ends_with("lac"); }

} // namespace corvid
