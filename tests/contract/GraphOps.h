#pragma once
// What every test that works on a platform's graphs directly needs: a registered filter or
// device made as the player makes it, a filter's pins, a row of filters joined pin to pin.

#include "platform/Platform.h"

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

namespace corvid::graphops {

// Makes the registered filter or device `name` in `graph` through the catalogue; empty when it
// is not registered or cannot be made.
inline platform::FilterPtr make(platform::Platform& platform, platform::Graph& graph, const std::string& name) {
    for (const char* category : {platform::category::LegacyFilters, platform::category::AudioRenderers}) {
        std::vector<platform::CatalogueEntryPtr> entries;
        platform.catalogue().enumerate(category, entries);
        for (auto& e : entries)
            if (e->name() == name) {
                platform::FilterPtr f;
                return e->createIn(graph, f) ? f : nullptr;
            }
    }
    return nullptr;
}

// The last pin of a direction, as the chains look pins up; empty when there is none.
inline platform::PinPtr pinOf(const platform::FilterPtr& f, platform::PinDirection d) {
    platform::PinPtr found;
    if (f)
        for (auto& p : f->pins())
            if (p->direction() == d) found = p;
    return found;
}
inline platform::PinPtr in(const platform::FilterPtr& f) { return pinOf(f, platform::PinDirection::Input); }
inline platform::PinPtr out(const platform::FilterPtr& f) { return pinOf(f, platform::PinDirection::Output); }

// Joins each filter's output directly to the next one's input: the first refusal, or success.
inline platform::Status join(const std::vector<platform::FilterPtr>& filters) {
    for (std::size_t i = 0; i + 1 < filters.size(); ++i) {
        const auto from = out(filters[i]), to = in(filters[i + 1]);
        if (!from || !to) return platform::Status::failure(platform::hr::CannotConnect, "no pin to join");
        if (auto s = from->connectDirect(to); !s) return s;
    }
    return platform::Status::success();
}

// Every chain the player builds, by the kind of file it reads: the source first, every filter
// up to the sample grabber. "wide.wav" holds samples no renderer takes.
struct Chain {
    const char* kind;
    std::vector<std::string> filters;
};
inline const std::vector<Chain> kChains = {
    {"wav", {"File Source (Async.)", "Wave Parser"}},
    {"mp3", {"File Source (Async.)", "MPEG-I Stream Splitter", "MPEG Layer-3 Decoder"}},
    {"mp3", {"Halden WM ASF Reader", "Brindle Pitch Shifter", "Pipe Sender"}},
    {"wide.wav", {"File Source (Async.)", "Wave Parser", "Brindle Format Converter"}},
    {"wma", {"WM ASF READER", "WMAudio Decoder DMO"}},
    {"ogg", {"OggDSFMux2", "dsf Ogg Demuxer2+", "Xiph.Org Vorbis Decoder PLUS"}},
    {"m4a", {"File Source (Async.)", "GDCL Mpeg-4 Demultiplexor2", "Microsoft DTV-DVD Audio Decoder"}},
    {"flac", {"Native FLAC Decoder"}},
};

// Records what a graph helper reports.
struct HelperRecorder : platform::GraphHelperEvents {
    std::vector<std::pair<int32_t, int32_t>> ticks;
    int ends = 0;
    std::vector<int32_t> cueIns, segues;
    void threadEvent(int32_t left, int32_t right) override { ticks.emplace_back(left, right); }
    void endOfStream() override { ++ends; }
    void cueInFound(int32_t ms) override { cueIns.push_back(ms); }
    void segueFound(int32_t ms) override { segues.push_back(ms); }
    int32_t loudest() const {
        int32_t level = 0;
        for (const auto& [left, right] : ticks) level = std::max({level, left, right});
        return level;
    }
};

} // namespace corvid::graphops
