#pragma once
// Shared fixtures of the native tests: a private PulseAudio server with null sinks, test
// media made with the ffmpeg command, a recorder of a sink's monitor, and the measurements
// (frequency, level) taken on what was recorded.

#include "platform/native/NativePlatform.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <thread>
#include <functional>
#include <string>
#include <vector>

namespace corvid::native::test {

// The work folder of this test run (media, server sockets, recordings).
const std::string& workDir();
// Whether the private sound server runs (tests that need it skip otherwise).
bool soundServerUp();

// Sink names and the descriptions the catalogue lists them under.
inline constexpr const char* kSinkA = "corvid_a";
inline constexpr const char* kSinkADescription = "Corvid_Test_A";
inline constexpr const char* kSinkB = "corvid_b";
inline constexpr const char* kSinkBDescription = "Corvid_Test_B";
inline constexpr const char* kSink8 = "corvid_8ch";
inline constexpr const char* kSink8Description = "Corvid_Test_8ch";

inline constexpr double kToneHz = 1000;
inline constexpr double kToneAmplitude = 0.5; // -6 dBFS
inline constexpr double kToneSeconds = 2.0;

// Test media, made once: the tone in each format, and bad inputs.
std::string mediaPath(const std::string& name);

// Runs a shell command with a time limit; returns its exit status.
int runCommand(const std::string& command, int timeoutSeconds = 60);

// Records a sink's monitor as float32 until stop() (bounded by `maxSeconds`).
class MonitorRecorder {
public:
    MonitorRecorder(const std::string& sink, int channels, int maxSeconds = 20);
    ~MonitorRecorder();
    // Stops and returns the samples, interleaved.
    std::vector<float> stop();
    int channels() const { return channels_; }
    static constexpr int kRate = 48000;

private:
    std::string file_;
    int channels_;
    int pid_ = -1;
};

// Measurements over one channel of interleaved samples.
struct ToneMeasure {
    double frequency = 0; // Hz, from zero crossings over the loud part
    double peak = 0;      // of the loud part
    double loudSeconds = 0;
};
ToneMeasure measureTone(const std::vector<float>& samples, int channels, int channel, int rate,
                        double threshold = 0.02);

// Records what a graph helper reports.
struct HelperRecorder : platform::GraphHelperEvents {
    int ticks = 0, ends = 0;
    int32_t loudest = 0;
    std::vector<int32_t> cueIns, segues;
    void threadEvent(int32_t left, int32_t right) override {
        ++ticks;
        loudest = std::max({loudest, left, right});
    }
    void endOfStream() override { ++ends; }
    void cueInFound(int32_t ms) override { cueIns.push_back(ms); }
    void segueFound(int32_t ms) override { segues.push_back(ms); }
};

inline constexpr const char* kStreamTitle = "Test Artist - Test Title";

// Makes the registered filter or device `name` in `graph`; empty when it is not registered
// or cannot be made.
platform::FilterPtr createFilter(NativePlatform& platform, platform::Graph& graph, const std::string& name,
                                 const std::string& category = platform::category::LegacyFilters);

// The last pin of a direction on a filter, as the chains look pins up; empty when it has none.
platform::PinPtr pinOf(const platform::FilterPtr& filter, platform::PinDirection direction);

// A platform on the private server, with the log kept.
NativeOptions testOptions();

// Pumps the loop until `done` holds or `timeoutMs` passes.
bool pumpUntil(NativePlatform& platform, const std::function<bool()>& done, int timeoutMs);

} // namespace corvid::native::test
