#include "NativeTestSupport.h"

#include <chrono>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <thread>

#include <sys/wait.h>
#include <unistd.h>

namespace corvid::native::test {


namespace {

// The private server of the test run: ctest starts it before the native tests (the
// sound-server.sh fixture); a binary run by hand starts one itself and stops it at its end.
class SoundServerEnvironment final : public ::testing::Environment {
public:
    void SetUp() override {
        const std::string dir = workDir() + "/pulse";
        ::setenv("HOME", (dir + "/home").c_str(), 1);
        ::setenv("XDG_RUNTIME_DIR", (dir + "/runtime").c_str(), 1);
        ::setenv("XDG_STATE_HOME", (dir + "/state").c_str(), 1);
        ::setenv("XDG_CONFIG_HOME", (dir + "/config").c_str(), 1);
        ::setenv("PULSE_SERVER", ("unix:" + dir + "/native").c_str(), 1);
        serverUp() = answers();
        if (serverUp()) return;
        owned_ = true;
        serverUp() = script("start") == 0 && answers();
    }
    void TearDown() override {
        if (owned_) script("stop");
    }
    static bool& serverUp() {
        static bool up = false;
        return up;
    }

private:
    static bool answers() {
        return runCommand("pactl list short sinks 2>/dev/null | grep -q " + std::string(kSink8), 5) == 0;
    }
    static int script(const std::string& command) {
        return runCommand("sh " CORVID_SOUND_SERVER_SCRIPT " " + command + " " + workDir(), 30);
    }
    bool owned_ = false;
};

const auto* const kEnvironment = ::testing::AddGlobalTestEnvironment(new SoundServerEnvironment);

} // namespace

bool soundServerUp() { return SoundServerEnvironment::serverUp(); }

ChildProcess::ChildProcess(std::vector<std::string> argv, const std::string& logFile) {
    pid_ = ::fork();
    if (pid_ != 0) return;
    std::freopen(logFile.c_str(), "a", stdout);
    std::freopen(logFile.c_str(), "a", stderr);
    std::vector<char*> args;
    for (auto& a : argv) args.push_back(a.data());
    args.push_back(nullptr);
    ::execvp(args[0], args.data());
    ::_exit(127);
}

void ChildProcess::stop(int signal) {
    if (pid_ <= 0) return;
    ::kill(pid_, signal);
    bool ended = false;
    for (int i = 0; i < 30 && !(ended = ::waitpid(pid_, nullptr, WNOHANG) == pid_); ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    if (!ended) {
        ::kill(pid_, SIGKILL);
        ::waitpid(pid_, nullptr, 0);
    }
    pid_ = -1;
}

MonitorRecorder::MonitorRecorder(const std::string& sink, int channels, int maxSeconds)
    : channels_(channels) {
    static int counter = 0;
    const std::string stream = "corvid-recorder-" + std::to_string(::getpid()) + "-" + std::to_string(++counter);
    file_ = workDir() + "/" + stream + ".raw";
    // The sink's own channel map, so that no channel is moved on the way to the file.
    const std::string map = channels == 8
        ? "--channel-map=front-left,front-right,rear-left,rear-right,front-center,lfe,side-left,side-right"
        : "--channel-map=front-left,front-right";
    parec_ = std::make_unique<ChildProcess>(std::vector<std::string>{
        "timeout", std::to_string(maxSeconds), "parec", "--device=" + sink + ".monitor", "--format=float32le",
        "--rate=" + std::to_string(kRate), "--channels=" + std::to_string(channels), map, "--raw",
        "--latency-msec=20", "--stream-name=" + stream, file_});
    // Nothing plays before the recorder is connected: wait (bounded) until the server lists
    // its stream, however slow the machine.
    const std::string listed = "pactl list source-outputs 2>/dev/null | grep -q 'media.name = \"" + stream + "\"'";
    for (int i = 0; i < 500 && runCommand(listed, 5) != 0; ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
}

std::vector<float> MonitorRecorder::stop() {
    if (parec_) {
        std::this_thread::sleep_for(std::chrono::milliseconds(300)); // the server's latency
        parec_->stop(SIGINT);
        parec_.reset();
    }
    std::ifstream in(file_, std::ios::binary);
    std::vector<char> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    std::vector<float> samples(bytes.size() / sizeof(float));
    std::memcpy(samples.data(), bytes.data(), samples.size() * sizeof(float));
    return samples;
}

ToneMeasure measureTone(const std::vector<float>& samples, int channels, int channel, int rate,
                        double threshold) {
    ToneMeasure m;
    const size_t frames = samples.size() / size_t(channels);
    // Loudness per 10 ms block; the tone is where blocks pass the threshold.
    const size_t block = size_t(rate / 100);
    size_t first = frames, last = 0, loudBlocks = 0;
    for (size_t b = 0; b + block <= frames; b += block) {
        double peak = 0;
        for (size_t i = b; i < b + block; ++i)
            peak = std::max(peak, double(std::fabs(samples[i * channels + channel])));
        if (peak >= threshold) {
            first = std::min(first, b);
            last = std::max(last, b + block);
            ++loudBlocks;
        }
    }
    m.loudSeconds = double(loudBlocks * block) / rate;
    if (first >= last) return m;
    // Measure inside the loud part, away from its edges (fades of codecs, start-up), and only
    // over loud blocks: a dropout under a slow (sanitizer) build is not a change of pitch.
    const size_t margin = std::min(size_t(rate / 10), (last - first) / 4);
    const size_t from = first + margin, to = last - margin;
    size_t crossings = 0, counted = 0;
    for (size_t b = from; b + block <= to; b += block) {
        double blockPeak = 0;
        size_t blockCrossings = 0;
        for (size_t i = b; i < b + block; ++i) {
            const float x = samples[i * channels + channel];
            const float before = samples[(i - 1) * channels + channel];
            if (before < 0 && x >= 0) ++blockCrossings;
            blockPeak = std::max(blockPeak, double(std::fabs(x)));
        }
        if (blockPeak < threshold) continue;
        crossings += blockCrossings;
        counted += block;
        m.peak = std::max(m.peak, blockPeak);
    }
    if (counted == 0) return m;
    m.frequency = double(crossings) * rate / double(counted);
    return m;
}

bool pumpUntil(NativePlatform& platform, const std::function<bool()>& done, int timeoutMs) {
    return platform.loop().runUntil(done, timeoutMs);
}

} // namespace corvid::native::test
