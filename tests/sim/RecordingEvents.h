#pragma once
// A host that records every event the player raises, in order, for tests to read back.
// Hooks let a test act from inside an event, as real hosts do.

#include <corvid/PlayerEvents.h>

#include <algorithm>
#include <functional>
#include <string>
#include <vector>

namespace corvid::testing {

struct RecordingEvents : PlayerEvents {
    // Every event as "Name" or "Name: args", in the order raised.
    std::vector<std::string> all;
    std::vector<std::string> log;      // PlayerLogInfo texts
    std::vector<std::string> writeLog; // WriteLog texts
    std::vector<std::pair<int32_t, int32_t>> playStates;
    std::vector<std::pair<int32_t, int32_t>> vuPeaks;
    std::vector<int32_t> timings;
    std::vector<int32_t> endOfStreams;
    std::vector<int32_t> silences;
    std::vector<double> cueIns;
    std::vector<double> segues;

    std::function<void(const std::string&)> onLog;
    std::function<void(int32_t, int32_t)> onPlayStateChange;
    std::function<void(int32_t&, int32_t&)> onVUPeak;

    void PlayerLogInfo(std::string& info) override {
        add("PlayerLogInfo: " + info, log, info);
        if (onLog) onLog(info);
    }
    void StreamBufferingStarted() override { all.push_back("StreamBufferingStarted"); }
    void StreamBufferingFinished() override { all.push_back("StreamBufferingFinished"); }
    void RenderedAutomatically(std::string& path) override { all.push_back("RenderedAutomatically: " + path); }
    void PlayAboutToHappen() override { all.push_back("PlayAboutToHappen"); }
    void StreamBuffering(int16_t& percent) override { all.push_back("StreamBuffering: " + std::to_string(percent)); }
    void ShoutCastMeta(std::string& at, std::string& url, std::string& full) override {
        all.push_back("ShoutCastMeta: " + at + "|" + url + "|" + full);
    }
    void SegueFound(double& seg) override { add("SegueFound", segues, seg); }
    void WriteLog(std::string& info) override { add("WriteLog: " + info, writeLog, info); }
    void CueInFound(double& pos) override { add("CueInFound", cueIns, pos); }
    void GotTheFiltersWeNeed(NameCollection&) override { all.push_back("GotTheFiltersWeNeed"); }
    void VUPeak(int32_t& l, int32_t& r) override {
        add("VUPeak: " + std::to_string(l) + "," + std::to_string(r), vuPeaks, std::pair{l, r});
        if (onVUPeak) onVUPeak(l, r);
    }
    void StartedCountingFilters(int32_t& n) override { all.push_back("StartedCountingFilters: " + std::to_string(n)); }
    void CountingFilters(int32_t& i) override { all.push_back("CountingFilters: " + std::to_string(i)); }
    void IsPFLButtonRequired(bool& b) override {
        all.push_back(std::string("IsPFLButtonRequired: ") + (b ? "true" : "false"));
    }
    void FinishedCountingFilters() override { all.push_back("FinishedCountingFilters"); }
    void Timing(int32_t& level) override { add("Timing: " + std::to_string(level), timings, level); }
    void EndOfStream(int32_t result) override { add("EndOfStream: " + std::to_string(result), endOfStreams, result); }
    void PlayStateChange(int32_t oldState, int32_t newState) override {
        add("PlayStateChange: " + std::to_string(oldState) + "," + std::to_string(newState), playStates,
            std::pair{oldState, newState});
        if (onPlayStateChange) onPlayStateChange(oldState, newState);
    }
    void StreamOnDemandSegFound(double& seg) override {
        all.push_back("StreamOnDemandSegFound: " + std::to_string(seg));
    }
    void SilenceDetected(int32_t secs) override { add("SilenceDetected: " + std::to_string(secs), silences, secs); }

    int count(const std::string& prefix) const {
        int n = 0;
        for (const auto& e : all)
            if (e.rfind(prefix, 0) == 0) ++n;
        return n;
    }
    int32_t loudest() const {
        int32_t level = 0;
        for (const auto& [left, right] : vuPeaks) level = std::max({level, left, right});
        return level;
    }
    bool logged(const std::string& line) const {
        for (const auto& l : log)
            if (l == line) return true;
        return false;
    }
    void clear() { *this = RecordingEvents{}; }

private:
    template <class List, class Value> void add(std::string entry, List& list, const Value& value) {
        all.push_back(std::move(entry));
        list.push_back(value);
    }
};

} // namespace corvid::testing
