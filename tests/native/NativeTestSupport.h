#pragma once
// Shared fixtures of the native tests: a private PulseAudio server with null sinks, test
// media made with the ffmpeg command, a recorder of a sink's monitor, and the measurements
// (frequency, level) taken on what was recorded.

#include <corvid/Player.h>
#include "platform/native/NativePlatform.h"
#include "tests/contract/GraphOps.h"
#include "tests/sim/RecordingEvents.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <fstream>
#include <thread>
#include <functional>
#include <memory>
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

// A program run in a child process with its output appended to `logFile`; stopped by
// `signal` (killed when it does not end within 3 s) and reaped at stop() or when this goes.
class ChildProcess {
public:
    explicit ChildProcess(std::vector<std::string> argv, const std::string& logFile = "/dev/null");
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;
    ~ChildProcess() { stop(); }
    void stop(int signal = 15 /* SIGTERM */);

private:
    int pid_ = -1;
};

// Records a sink's monitor as float32 until stop() (bounded by `maxSeconds`).
class MonitorRecorder {
public:
    MonitorRecorder(const std::string& sink, int channels, int maxSeconds = 20);
    // Stops and returns the samples, interleaved.
    std::vector<float> stop();
    int channels() const { return channels_; }
    static constexpr int kRate = 48000;

private:
    std::string file_;
    int channels_;
    std::unique_ptr<ChildProcess> parec_;
};

// Measurements over one channel of interleaved samples.
struct ToneMeasure {
    double frequency = 0; // Hz, from zero crossings over the loud part
    double peak = 0;      // of the loud part
    double loudSeconds = 0;
};
ToneMeasure measureTone(const std::vector<float>& samples, int channels, int channel, int rate,
                        double threshold = 0.02);

inline constexpr const char* kStreamTitle = "Test Artist - Test Title";

// A platform on the private server (or the silent device), its operator log kept off stderr.
inline NativeOptions testOptions(bool silent = false) {
    NativeOptions o;
    o.echoOperatorToStderr = false;
    if (silent) o.output = OutputBackend::Silent;
    return o;
}

// Pumps the loop until `done` holds or `timeoutMs` passes.
bool pumpUntil(NativePlatform& platform, const std::function<bool()>& done, int timeoutMs);

// The process's threads, or those whose name starts with `prefix`.
inline int threadCount(const std::string& prefix = {}) {
    int n = 0;
    for (auto& e : std::filesystem::directory_iterator("/proc/self/task")) {
        std::string name;
        if (!prefix.empty()) std::getline(std::ifstream(e.path() / "comm"), name);
        n += name.starts_with(prefix);
    }
    return n;
}
// Waits (bounded) until the process is back to `threads` threads, pumping the loop meanwhile.
inline bool threadsBackTo(NativePlatform& platform, int threads) {
    return pumpUntil(platform, [&] { return threadCount() <= threads; }, 5000);
}

// A native platform with one graph whose ends and lost devices are counted: on the silent
// device, or on the private sound server (skipped when it is not up).
class NativeGraphTest : public ::testing::Test {
protected:
    void SetUp() override { start(false); }
    void start(bool onSoundServer) {
        if (onSoundServer && !soundServerUp()) GTEST_SKIP() << "no private sound server";
        platform_ = std::make_unique<NativePlatform>(testOptions(!onSoundServer));
        graph_ = newGraph();
    }
    platform::GraphPtr newGraph() {
        platform::GraphPtr g;
        EXPECT_TRUE(platform_->createGraph(g));
        if (g)
            g->setEventHandler([this](platform::GraphEvent e) {
                ends_ += e == platform::GraphEvent::EndOfStream;
                lost_ += e == platform::GraphEvent::DeviceLost;
            });
        return g;
    }
    // Makes a registered filter or device in `g` (the test's graph by default).
    platform::FilterPtr create(const std::string& name, const platform::GraphPtr& g = nullptr) {
        auto f = graphops::make(*platform_, g ? *g : *graph_, name);
        EXPECT_TRUE(f) << "not made: " << name;
        return f;
    }
    // Makes `names` in `g`, loads the first with `file` and joins them and then `after` in a
    // row: the first refusal, or success.
    platform::Status build(const std::string& file, const std::vector<std::string>& names,
                           std::vector<platform::FilterPtr> after = {}, const platform::GraphPtr& g = nullptr) {
        std::vector<platform::FilterPtr> row;
        for (const auto& name : names) row.push_back(create(name, g));
        if (!row.front()) return platform::Status::failure(platform::hr::Fail, "no source");
        if (auto s = row.front()->setFileName(file); !s) return s;
        row.insert(row.end(), after.begin(), after.end());
        return graphops::join(row);
    }

    std::unique_ptr<NativePlatform> platform_;
    platform::GraphPtr graph_;
    int ends_ = 0, lost_ = 0;
};

// A player with a recording host on a native platform, playing to `device`: on the silent
// platform, or on the private sound server (skipped when it is not up).
class NativePlayerTest : public ::testing::Test {
protected:
    void start(bool onSoundServer, std::string device) {
        if (onSoundServer && !soundServerUp()) GTEST_SKIP() << "no private sound server";
        platform_ = std::make_unique<NativePlatform>(testOptions(!onSoundServer));
        threads_ = threadCount();
        player_ = std::make_unique<Player>(*platform_);
        player_->setEvents(&host_);
        player_->Init();
        ASSERT_TRUE(player_->SetSoundcard(device));
    }
    void TearDown() override {
        player_.reset();
        platform_.reset();
    }
    // Loads as a host does, with a fresh record of the host's events.
    void load(const std::string& item) {
        host_.clear();
        std::string name = item;
        player_->put_FileName(name);
    }
    bool pump(const std::function<bool()>& done, int ms) { return pumpUntil(*platform_, done, ms); }

    std::unique_ptr<NativePlatform> platform_;
    int threads_ = 0; // the platform's own, before the player's
    std::unique_ptr<Player> player_;
    testing::RecordingEvents host_;
};

} // namespace corvid::native::test
