#include "NativeTestSupport.h"

#include <chrono>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <thread>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

namespace corvid::native::test {

namespace fs = std::filesystem;

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

MonitorRecorder::MonitorRecorder(const std::string& sink, int channels, int maxSeconds)
    : channels_(channels) {
    static int counter = 0;
    file_ = workDir() + "/recording-" + std::to_string(++counter) + ".raw";
    pid_ = ::fork();
    if (pid_ == 0) {
        const std::string device = "--device=" + sink + ".monitor";
        const std::string ch = "--channels=" + std::to_string(channels);
        const std::string rate = "--rate=" + std::to_string(kRate);
        const std::string limit = std::to_string(maxSeconds);
        // The sink's own channel map, so that no channel is moved on the way to the file.
        const std::string map = channels == 8
            ? "--channel-map=front-left,front-right,rear-left,rear-right,front-center,lfe,side-left,side-right"
            : "--channel-map=front-left,front-right";
        ::execlp("timeout", "timeout", limit.c_str(), "parec", device.c_str(), "--format=float32le",
                 rate.c_str(), ch.c_str(), map.c_str(), "--raw", "--latency-msec=20", file_.c_str(),
                 (char*)nullptr);
        ::_exit(127);
    }
    // Let the recorder connect before anything plays: wait for its file to appear.
    for (int i = 0; i < 100 && !fs::exists(file_); ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
}

MonitorRecorder::~MonitorRecorder() {
    if (pid_ > 0) stop();
}

std::vector<float> MonitorRecorder::stop() {
    if (pid_ > 0) {
        std::this_thread::sleep_for(std::chrono::milliseconds(300)); // the server's latency
        ::kill(pid_, SIGINT);
        for (int i = 0; i < 50; ++i) {
            if (::waitpid(pid_, nullptr, WNOHANG) == pid_) {
                pid_ = -1;
                break;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
        }
        if (pid_ > 0) {
            ::kill(pid_, SIGKILL);
            ::waitpid(pid_, nullptr, 0);
            pid_ = -1;
        }
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

namespace {
constexpr size_t kMetaInterval = 8192;
}

IcyServer::IcyServer(Mode mode, std::string file) : mode_(mode), file_(std::move(file)) {
    listener_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    ::bind(listener_, reinterpret_cast<sockaddr*>(&a), sizeof a);
    ::listen(listener_, 4);
    socklen_t len = sizeof a;
    ::getsockname(listener_, reinterpret_cast<sockaddr*>(&a), &len);
    port_ = ntohs(a.sin_port);
    thread_ = std::thread([this] { serve(); });
}

IcyServer::~IcyServer() {
    stop_ = true;
    thread_.join();
    ::close(listener_);
}

std::string IcyServer::address() const {
    return "icystream://127.0.0.1:" + std::to_string(port_) + "/live";
}

void IcyServer::serve() {
    pollfd p{listener_, POLLIN, 0};
    int waited = 0;
    while (!stop_ && ::poll(&p, 1, 50) == 0 && (waited += 50) < 10000) {
    }
    if (stop_ || !(p.revents & POLLIN)) return;
    const int fd = ::accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
    char buf[4096];
    std::string req;
    while (req.find("\r\n\r\n") == std::string::npos) {
        const ssize_t n = ::recv(fd, buf, sizeof buf, 0);
        if (n <= 0) break;
        req.append(buf, size_t(n));
    }
    request_ = req;
    if (mode_ == Mode::NotFound) {
        const std::string r = "HTTP/1.0 404 Not Found\r\n\r\n";
        ::send(fd, r.data(), r.size(), MSG_NOSIGNAL);
    } else if (mode_ == Mode::Stream || mode_ == Mode::Stall) {
        const std::string r = "ICY 200 OK\r\nicy-name: Corvid Test\r\ncontent-type: audio/mpeg\r\n"
                              "icy-metaint: " + std::to_string(kMetaInterval) + "\r\n\r\n";
        ::send(fd, r.data(), r.size(), MSG_NOSIGNAL);
        std::ifstream in(file_, std::ios::binary);
        std::vector<char> audio((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
        std::string meta = std::string("StreamTitle='") + kStreamTitle + "';StreamUrl='http://127.0.0.1/';";
        meta.resize((meta.size() + 15) / 16 * 16, '\0');
        for (size_t at = 0; at < audio.size() && !stop_; at += kMetaInterval) {
            const size_t n = std::min(kMetaInterval, audio.size() - at);
            ::send(fd, audio.data() + at, n, MSG_NOSIGNAL);
            if (n < kMetaInterval) break;
            const char length = char(at == 0 ? meta.size() / 16 : 0); // the title once, then empty blocks
            ::send(fd, &length, 1, MSG_NOSIGNAL);
            if (length) ::send(fd, meta.data(), meta.size(), MSG_NOSIGNAL);
            if (mode_ == Mode::Stall && at < 40960 && at + kMetaInterval >= 40960)
                std::this_thread::sleep_for(std::chrono::milliseconds(1500));
        }
    } else {
        while (!stop_) std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    ::close(fd);
}

NativeOptions testOptions() {
    NativeOptions o;
    o.echoOperatorToStderr = false;
    return o;
}

bool pumpUntil(NativePlatform& platform, const std::function<bool()>& done, int timeoutMs) {
    return platform.loop().runUntil(done, timeoutMs);
}

platform::PinPtr pinOf(const platform::FilterPtr& filter, platform::PinDirection direction) {
    platform::PinPtr found;
    if (filter)
        for (auto& p : filter->pins())
            if (p->direction() == direction) found = p;
    return found;
}

platform::FilterPtr createFilter(NativePlatform& platform, platform::Graph& graph, const std::string& name,
                                 const std::string& category) {
    std::vector<platform::CatalogueEntryPtr> entries;
    platform.catalogue().enumerate(category, entries);
    for (auto& e : entries)
        if (e->name() == name) {
            platform::FilterPtr f;
            e->createIn(graph, f);
            return f;
        }
    return nullptr;
}

} // namespace corvid::native::test
