// The native engine side by side with its anchors, in one run, printed as ratios:
//   cpu FILE...         playback CPU per minute of audio, silent device and the default sink,
//                       against decoding the same file with libavcodec in this process (and,
//                       for the sink, plus a bare libpulse stream of the same PCM);
//   start WAV SINK      Play to the first loud sample at SINK's monitor, against a bare
//                       libpulse stream that starts writing the same tone at once; and Play
//                       after a pause;
//   idle WAV            100 loaded, stopped players (threads, CPU, context switches per
//                       second), the same paused after playing, then 16 of them playing (ticks missed, worst tick gap,
//                       memory per player);
//   gaps RAW            the dropouts in a recording (float32 stereo, 48 kHz) of a steady tone.
// bench/engine.sh makes the media, starts a private sound server with null sinks and runs all
// of it, the five-minute dropout run under load included.

#include <corvid/Player.h>
#include "platform/native/NativePlatform.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libswresample/swresample.h>
}
#include <pulse/pulseaudio.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <dirent.h>
#include <fstream>
#include <memory>
#include <string>
#include <sys/epoll.h>
#include <sys/resource.h>
#include <sys/timerfd.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;
using corvid::native::NativeOptions;
using corvid::native::NativePlatform;
using corvid::native::OutputBackend;

constexpr const char* kSilentDevice = "DirectSound: Brindle Dummy Output Device";

double seconds(Clock::duration d) { return std::chrono::duration<double>(d).count(); }

struct Usage {
    double cpu = 0;      // seconds of user and system time, every thread
    long switches = 0;   // voluntary and involuntary context switches
    static Usage now() {
        rusage u{};
        getrusage(RUSAGE_SELF, &u);
        Usage r;
        r.cpu = double(u.ru_utime.tv_sec + u.ru_stime.tv_sec) +
                double(u.ru_utime.tv_usec + u.ru_stime.tv_usec) / 1e6;
        r.switches = u.ru_nvcsw + u.ru_nivcsw;
        return r;
    }
};

int threadCount() {
    int n = 0;
    if (DIR* d = opendir("/proc/self/task")) {
        while (dirent* e = readdir(d)) n += e->d_name[0] != '.';
        closedir(d);
    }
    return n;
}

double residentMb() {
    long pages = 0, resident = 0;
    std::ifstream("/proc/self/statm") >> pages >> resident;
    return double(resident) * double(sysconf(_SC_PAGESIZE)) / (1024.0 * 1024.0);
}

// ---------------------------------------------------------------- anchors

// Decodes `file` to interleaved float with libavcodec; returns the CPU seconds it took and
// the audio's length in seconds. `pcm` receives the samples when given.
double bareDecode(const std::string& file, double& audioSeconds, std::vector<float>* pcm = nullptr,
                  int* rate = nullptr, int* channels = nullptr) {
    const Usage before = Usage::now();
    AVFormatContext* format = nullptr;
    audioSeconds = 0;
    if (avformat_open_input(&format, file.c_str(), nullptr, nullptr) < 0) return 0;
    avformat_find_stream_info(format, nullptr);
    const int stream = av_find_best_stream(format, AVMEDIA_TYPE_AUDIO, -1, -1, nullptr, 0);
    const AVCodec* codec = avcodec_find_decoder(format->streams[stream]->codecpar->codec_id);
    AVCodecContext* context = avcodec_alloc_context3(codec);
    avcodec_parameters_to_context(context, format->streams[stream]->codecpar);
    avcodec_open2(context, codec, nullptr);
    SwrContext* swr = nullptr;
    swr_alloc_set_opts2(&swr, &context->ch_layout, AV_SAMPLE_FMT_FLT, context->sample_rate,
                        &context->ch_layout, context->sample_fmt, context->sample_rate, 0, nullptr);
    swr_init(swr);
    AVPacket* packet = av_packet_alloc();
    AVFrame* frame = av_frame_alloc();
    int64_t frames = 0;
    std::vector<float> out;
    auto drain = [&] {
        while (avcodec_receive_frame(context, frame) == 0) {
            frames += frame->nb_samples;
            out.resize(size_t(frame->nb_samples) * size_t(context->ch_layout.nb_channels));
            uint8_t* planes[1] = {reinterpret_cast<uint8_t*>(out.data())};
            const int n = swr_convert(swr, planes, frame->nb_samples,
                                      const_cast<const uint8_t**>(frame->extended_data), frame->nb_samples);
            if (pcm && n > 0) pcm->insert(pcm->end(), out.begin(), out.begin() + n * context->ch_layout.nb_channels);
        }
    };
    while (av_read_frame(format, packet) >= 0) {
        if (packet->stream_index == stream && avcodec_send_packet(context, packet) == 0) drain();
        av_packet_unref(packet);
    }
    avcodec_send_packet(context, nullptr);
    drain();
    audioSeconds = double(frames) / context->sample_rate;
    if (rate) *rate = context->sample_rate;
    if (channels) *channels = context->ch_layout.nb_channels;
    av_frame_free(&frame);
    av_packet_free(&packet);
    swr_free(&swr);
    avcodec_free_context(&context);
    avformat_close_input(&format);
    return Usage::now().cpu - before.cpu;
}

// A libpulse client of its own: a threaded loop and a connected context.
struct PulseClient {
    explicit PulseClient(const char* name) {
        loop = pa_threaded_mainloop_new();
        pa_threaded_mainloop_start(loop);
        pa_threaded_mainloop_lock(loop);
        context = pa_context_new(pa_threaded_mainloop_get_api(loop), name);
        pa_context_set_state_callback(context, [](pa_context*, void* l) {
            pa_threaded_mainloop_signal(static_cast<pa_threaded_mainloop*>(l), 0); }, loop);
        pa_context_connect(context, nullptr, PA_CONTEXT_NOFLAGS, nullptr);
        while (PA_CONTEXT_IS_GOOD(pa_context_get_state(context)) &&
               pa_context_get_state(context) != PA_CONTEXT_READY)
            pa_threaded_mainloop_wait(loop);
        pa_threaded_mainloop_unlock(loop);
    }
    // Disconnects `stream` and the context, then stops the loop.
    void close(pa_stream* stream) {
        pa_threaded_mainloop_lock(loop);
        pa_stream_disconnect(stream);
        pa_stream_unref(stream);
        pa_context_disconnect(context);
        pa_context_unref(context);
        pa_threaded_mainloop_unlock(loop);
        pa_threaded_mainloop_stop(loop);
        pa_threaded_mainloop_free(loop);
    }
    pa_threaded_mainloop* loop = nullptr;
    pa_context* context = nullptr;
};

// A bare libpulse playback stream on its own threaded loop, written from the loop's callback.
class BareStream {
public:
    BareStream(const std::vector<float>& pcm, int rate, int channels, const char* sink, int targetMs)
        : pcm_(pcm), channels_(channels), client_("bench-anchor") {
        pa_threaded_mainloop_lock(client_.loop);
        pa_sample_spec sampleFormat{PA_SAMPLE_FLOAT32LE, uint32_t(rate), uint8_t(channels)};
        stream_ = pa_stream_new(client_.context, "bench-anchor", &sampleFormat, nullptr);
        pa_stream_set_state_callback(stream_, [](pa_stream*, void* l) {
            pa_threaded_mainloop_signal(static_cast<pa_threaded_mainloop*>(l), 0); }, client_.loop);
        pa_stream_set_write_callback(stream_, &BareStream::onWrite, this);
        pa_buffer_attr attr{uint32_t(-1), uint32_t(pa_usec_to_bytes(pa_usec_t(targetMs) * 1000, &sampleFormat)),
                            uint32_t(-1), uint32_t(-1), uint32_t(-1)};
        pa_stream_connect_playback(stream_, sink, &attr,
                                   pa_stream_flags_t(PA_STREAM_ADJUST_LATENCY | PA_STREAM_START_CORKED),
                                   nullptr, nullptr);
        while (PA_STREAM_IS_GOOD(pa_stream_get_state(stream_)) && pa_stream_get_state(stream_) != PA_STREAM_READY)
            pa_threaded_mainloop_wait(client_.loop);
        pa_threaded_mainloop_unlock(client_.loop);
    }
    ~BareStream() { client_.close(stream_); }
    void start() {
        pa_threaded_mainloop_lock(client_.loop);
        started_ = true;
        pa_operation_unref(pa_stream_cork(stream_, 0, nullptr, nullptr));
        write(pa_stream_writable_size(stream_));
        pa_threaded_mainloop_unlock(client_.loop);
    }
    bool done() const { return offset_.load() >= pcm_.size(); }

private:
    static void onWrite(pa_stream*, size_t bytes, void* self) { static_cast<BareStream*>(self)->write(bytes); }
    void write(size_t bytes) {
        if (!started_) return;
        const size_t offset = offset_.load();
        const size_t n = std::min(bytes / sizeof(float) / size_t(channels_) * size_t(channels_), pcm_.size() - offset);
        if (n == 0) return;
        pa_stream_write(stream_, pcm_.data() + offset, n * sizeof(float), nullptr, 0, PA_SEEK_RELATIVE);
        offset_.store(offset + n);
    }
    const std::vector<float>& pcm_;
    int channels_;
    bool started_ = false;
    std::atomic<size_t> offset_{0};
    PulseClient client_;
    pa_stream* stream_ = nullptr;
};

// Watches a sink's monitor for the first loud sample; reports its time on the steady clock.
class FirstSound {
public:
    explicit FirstSound(const std::string& sink) : client_("bench-monitor") {
        pa_threaded_mainloop_lock(client_.loop);
        pa_sample_spec sampleFormat{PA_SAMPLE_FLOAT32LE, 48000, 2};
        stream_ = pa_stream_new(client_.context, "bench-monitor", &sampleFormat, nullptr);
        pa_stream_set_read_callback(stream_, &FirstSound::onRead, this);
        pa_buffer_attr attr{uint32_t(-1), uint32_t(-1), uint32_t(-1), uint32_t(-1),
                            uint32_t(pa_usec_to_bytes(2000, &sampleFormat))};
        pa_stream_connect_record(stream_, (sink + ".monitor").c_str(), &attr, PA_STREAM_ADJUST_LATENCY);
        pa_threaded_mainloop_unlock(client_.loop);
    }
    ~FirstSound() { client_.close(stream_); }
    void arm() {
        heard_.store(0);
        armed_.store(true);
    }
    bool heard() const { return heard_.load() != 0; }
    Clock::time_point when() const { return Clock::time_point(Clock::duration(heard_.load())); }

private:
    static void onRead(pa_stream* s, size_t, void* user) {
        auto* self = static_cast<FirstSound*>(user);
        const void* data = nullptr;
        size_t bytes = 0;
        while (pa_stream_peek(s, &data, &bytes) == 0 && bytes > 0) {
            const auto now = Clock::now();
            if (data && self->armed_.load() && self->heard_.load() == 0) {
                const float* f = static_cast<const float*>(data);
                const size_t n = bytes / sizeof(float);
                for (size_t i = 0; i < n; ++i)
                    if (std::fabs(f[i]) > 0.05f) {
                        // The sample's own time: the chunk arrived now, with what follows it.
                        const double after = double(n - i) / 2 / 48000.0;
                        self->heard_.store((now - std::chrono::duration_cast<Clock::duration>(
                                                      std::chrono::duration<double>(after)))
                                               .time_since_epoch()
                                               .count());
                        break;
                    }
            }
            pa_stream_drop(s);
        }
    }
    std::atomic<bool> armed_{false};
    std::atomic<Clock::rep> heard_{0};
    PulseClient client_;
    pa_stream* stream_ = nullptr;
};

// ---------------------------------------------------------------- the player side

struct Host : corvid::PlayerEvents {
    int ends = 0;
    int ticks = 0;
    int quietTicks = 0; // meter readings below a tenth of the tone's level while it plays
    double worstGap = 0;
    Clock::time_point lastTick{};
    void EndOfStream(int32_t result) override { ends += result == 1; }
    void VUPeak(int32_t& left, int32_t&) override {
        const auto now = Clock::now();
        quietTicks += left < 1638;
        if (ticks++ > 0) worstGap = std::max(worstGap, seconds(now - lastTick));
        lastTick = now;
    }
};

std::unique_ptr<NativePlatform> makePlatform(OutputBackend output) {
    NativeOptions options;
    options.output = output;
    options.echoOperatorToStderr = false;
    options.settings = std::make_shared<corvid::native::MemorySettingsStore>();
    return std::make_unique<NativePlatform>(options);
}

bool loadOn(corvid::Player& player, const std::string& device, const std::string& file) {
    bool banned = false; // the native Windows Media reader plays WMA
    player.put_ASFReaderBanned(banned);
    player.Init();
    std::string d = device;
    player.SetSoundcard(d);
    std::string f = file;
    player.put_FileName(f);
    if (player.get_Duration() > 0) return true;
    std::fprintf(stderr, "cannot load %s: %s\n", file.c_str(), player.get_LastError().c_str());
    return false;
}

template <class Done> void pump(NativePlatform& platform, double timeout, Done done) {
    platform.loop().runUntil([&] { return done(); }, int(timeout * 1000));
}

// Plays `file` to its end; returns the process's CPU seconds meanwhile.
// `quiet`: the share of meter ticks that read silence while the tone played.
double playerCpu(OutputBackend output, const std::string& device, const std::string& file, double length,
                 double& quiet) {
    auto platform = makePlatform(output);
    Host host;
    corvid::Player player(*platform);
    player.setEvents(&host);
    if (!loadOn(player, device, file)) return -1;
    // The load's cue and segue scans are not playback: they end before the measure starts.
    pump(*platform, 2, [] { return false; });
    const Usage before = Usage::now();
    player.Play();
    pump(*platform, length + 10, [&] { return host.ends > 0; });
    const double cpu = Usage::now().cpu - before.cpu;
    // The first and last tick may fall before the first sample or after the last.
    quiet = host.ticks > 2 ? double(std::max(0, host.quietTicks - 2)) / host.ticks : 1;
    return cpu;
}

// What the required 20 Hz ticks alone cost per minute: the platform's clock waking the control
// thread's loop once a period for an empty tick, and nothing else.
double tickFloorPerMinute(double window) {
    auto platform = makePlatform(OutputBackend::Silent);
    auto& clock = platform->clock();
    const Usage before = Usage::now();
    const int id = clock.subscribe([] {});
    pump(*platform, window, [] { return false; });
    clock.unsubscribe(id);
    return (Usage::now().cpu - before.cpu) / window * 60 * 1000;
}

// The machine's own price of those wake-ups: a bare timerfd in an epoll set, 20 times a second,
// and no Corvid code at all. On a virtual machine one wake-up of a sleeping thread can cost
// tens of microseconds.
double bareTimerPerMinute(double window) {
    const int timer = timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC);
    const int poller = epoll_create1(EPOLL_CLOEXEC);
    epoll_event interest{};
    interest.events = EPOLLIN;
    epoll_ctl(poller, EPOLL_CTL_ADD, timer, &interest);
    const itimerspec period{{0, 50'000'000}, {0, 50'000'000}};
    timerfd_settime(timer, 0, &period, nullptr);
    const Usage before = Usage::now();
    const auto until = Clock::now() + std::chrono::duration<double>(window);
    while (Clock::now() < until) {
        epoll_event ready{};
        uint64_t expired = 0;
        if (epoll_wait(poller, &ready, 1, -1) == 1 && read(timer, &expired, sizeof expired) < 0) break;
    }
    const double cpu = Usage::now().cpu - before.cpu;
    close(poller);
    close(timer);
    return cpu / window * 60 * 1000;
}

int cpuCommand(int argc, char** argv) {
    // What 20 wake-ups a second cost here, before anything plays: the helpers' ticks are
    // required at 20 Hz while a player plays, whatever the device.
    const double bareTimer = bareTimerPerMinute(10);
    const double ticks = tickFloorPerMinute(10);
    std::printf("20 Hz wake-ups alone, ms per minute: a bare timerfd %.1f, the platform's clock with an empty tick %.1f\n\n",
                bareTimer, ticks);
    std::printf("Playback CPU per minute of audio (ms), against libavcodec decoding the same file in this process\n");
    std::printf("%-14s %9s %9s %9s %9s %7s %9s %9s %7s\n", "file", "decode", "silent", "ratio", "net", "", "pulse",
                "anchor", "ratio");
    // The bare stream's cost depends on the PCM, not the codec: measured once, on the first file.
    double streamPerMinute = -1;
    for (int i = 2; i < argc; ++i) {
        const std::string file = argv[i];
        double length = 0;
        std::vector<float> pcm;
        int rate = 0, channels = 0;
        bareDecode(file, length, &pcm, &rate, &channels); // warms the caches alike for both
        const double decode = bareDecode(file, length) / length * 60 * 1000;
        if (streamPerMinute < 0) {
            BareStream bare(pcm, rate, channels, nullptr, 1000);
            const Usage before = Usage::now();
            bare.start();
            const auto until = Clock::now() + std::chrono::duration<double>(length + 5);
            while (!bare.done() && Clock::now() < until) std::this_thread::sleep_for(std::chrono::milliseconds(50));
            std::this_thread::sleep_for(std::chrono::milliseconds(1200)); // what the server still holds
            streamPerMinute = (Usage::now().cpu - before.cpu) / length * 60 * 1000;
        }
        double quietSilent = 0, quietPulse = 0;
        const double silent = playerCpu(OutputBackend::Silent, kSilentDevice, file, length, quietSilent) / length * 60 * 1000;
        const double pulse = playerCpu(OutputBackend::Auto, "", file, length, quietPulse) / length * 60 * 1000;
        const std::string name = file.substr(file.find_last_of('/') + 1);
        std::printf("%-14s %9.1f %9.1f %9.2f %9.2f %7s %9.1f %9.1f %7.2f   meters at 0: %.0f %% silent, %.0f %% sink\n",
                    name.c_str(), decode, silent, silent / decode, (silent - ticks) / decode, "", pulse,
                    decode + streamPerMinute,
                    pulse / (decode + streamPerMinute), quietSilent * 100, quietPulse * 100);
        std::fflush(stdout);
    }
    std::printf("(silent ratio: player on the silent device / decode; net: the same less the empty ticks' wake-ups;\n"
                " pulse ratio: player on the default sink / (decode + a bare libpulse stream of the same PCM,\n"
                " %.1f ms per minute))\n", streamPerMinute);
    return 0;
}

int startCommand(int argc, char** argv) {
    if (argc < 4) return 2;
    const std::string file = argv[2], sink = argv[3];
    double length = 0;
    std::vector<float> pcm;
    int rate = 0, channels = 0;
    bareDecode(file, length, &pcm, &rate, &channels);
    FirstSound monitor(sink);
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
    std::vector<double> corvid, bare, resumed;
    auto platform = makePlatform(OutputBackend::Auto);
    std::string device;
    for (int round = 0; round < 10; ++round) {
        {
            Host host;
            corvid::Player player(*platform);
            player.setEvents(&host);
            if (!loadOn(player, argc > 4 ? argv[4] : "", file)) return 1;
            pump(*platform, 0.3, [] { return false; });
            monitor.arm();
            const auto t0 = Clock::now();
            player.Play();
            pump(*platform, 3, [&] { return monitor.heard(); });
            if (monitor.heard()) corvid.push_back(seconds(monitor.when() - t0) * 1000);
            // Resumed after a pause (its streaming thread gone): the device plays its full ring.
            pump(*platform, 0.3, [] { return false; });
            player.Pause();
            pump(*platform, 0.5, [] { return false; });
            monitor.arm();
            const auto t1 = Clock::now();
            player.Play();
            pump(*platform, 3, [&] { return monitor.heard(); });
            if (monitor.heard()) resumed.push_back(seconds(monitor.when() - t1) * 1000);
            player.StopPlaying();
        }
        pump(*platform, 0.3, [] { return false; });
        {
            BareStream anchor(pcm, rate, channels, sink.c_str(), 60);
            std::this_thread::sleep_for(std::chrono::milliseconds(300));
            monitor.arm();
            const auto t0 = Clock::now();
            anchor.start();
            const auto until = t0 + std::chrono::seconds(3);
            while (!monitor.heard() && Clock::now() < until) std::this_thread::sleep_for(std::chrono::microseconds(200));
            if (monitor.heard()) bare.push_back(seconds(monitor.when() - t0) * 1000);
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(300));
    }
    auto median = [](std::vector<double> v) {
        if (v.empty()) return -1.0;
        std::sort(v.begin(), v.end());
        return v[v.size() / 2];
    };
    std::printf("Play to first sample at the monitor of %s (median of %zu and %zu rounds)\n", sink.c_str(),
                corvid.size(), bare.size());
    std::printf("  corvid Play: %.1f ms   bare libpulse stream (60 ms target): %.1f ms   difference: %.1f ms\n",
                median(corvid), median(bare), median(corvid) - median(bare));
    std::printf("  corvid Play after a pause (no thread while paused): %.1f ms (median of %zu rounds)\n",
                median(resumed), resumed.size());
    return 0;
}

int idleCommand(int argc, char** argv) {
    if (argc < 3) return 2;
    const std::string file = argv[2];
    const double window = argc > 3 ? std::atof(argv[3]) : 10;
    auto platform = makePlatform(OutputBackend::Silent);
    const int baseThreads = threadCount();
    const double baseMb = residentMb();
    std::vector<std::unique_ptr<Host>> hosts;
    std::vector<std::unique_ptr<corvid::Player>> players;
    for (int i = 0; i < 100; ++i) {
        hosts.push_back(std::make_unique<Host>());
        players.push_back(std::make_unique<corvid::Player>(*platform));
        players.back()->setEvents(hosts.back().get());
        if (!loadOn(*players.back(), kSilentDevice, file)) return 1;
    }
    pump(*platform, 1, [] { return false; });
    const double loadedMb = residentMb();
    Usage before = Usage::now();
    auto started = Clock::now();
    pump(*platform, window, [] { return false; });
    Usage after = Usage::now();
    double elapsed = seconds(Clock::now() - started);
    std::printf("100 loaded, stopped players over %.0f s: threads %d (the platform alone: %d), CPU %.2f %% of a core, "
                "%.1f context switches/s, %.2f MB per player\n",
                window, threadCount(), baseThreads, (after.cpu - before.cpu) / elapsed * 100,
                double(after.switches - before.switches) / elapsed, (loadedMb - baseMb) / 100);

    // Paused after playing: the rings full, the devices held, and still no thread of their own.
    for (auto& p : players) p->Play();
    pump(*platform, 0.5, [] { return false; });
    for (auto& p : players) p->Pause();
    pump(*platform, 1, [] { return false; });
    before = Usage::now();
    started = Clock::now();
    pump(*platform, window, [] { return false; });
    after = Usage::now();
    elapsed = seconds(Clock::now() - started);
    std::printf("100 players paused after playing over %.0f s: threads %d (the platform alone: %d), CPU %.2f %% of a "
                "core, %.1f context switches/s\n",
                window, threadCount(), baseThreads, (after.cpu - before.cpu) / elapsed * 100,
                double(after.switches - before.switches) / elapsed);
    for (auto& p : players) p->StopPlaying();

    for (int i = 0; i < 16; ++i) players[size_t(i)]->Play();
    pump(*platform, 0.5, [] { return false; });
    for (auto& h : hosts) *h = Host{};
    before = Usage::now();
    started = Clock::now();
    pump(*platform, window, [] { return false; });
    after = Usage::now();
    elapsed = seconds(Clock::now() - started);
    int fewest = 1 << 30;
    double worst = 0;
    for (int i = 0; i < 16; ++i) {
        fewest = std::min(fewest, hosts[size_t(i)]->ticks);
        worst = std::max(worst, hosts[size_t(i)]->worstGap);
    }
    const int expected = int(elapsed * 20);
    std::printf("16 of them playing over %.0f s: ticks expected %d, fewest %d (missed %d), worst gap %.1f ms "
                "(20 Hz: 50 ms), clock periods missed %llu, threads %d (%.2f per playing player), CPU %.1f %% of a core\n",
                elapsed, expected, fewest, std::max(0, expected - fewest), worst * 1000,
                static_cast<unsigned long long>(platform->clock().missedTicks()), threadCount(),
                double(threadCount() - baseThreads) / 16, (after.cpu - before.cpu) / elapsed * 100);
    return 0;
}

int gapsCommand(int argc, char** argv) {
    if (argc < 3) return 2;
    std::ifstream in(argv[2], std::ios::binary);
    std::vector<float> s;
    float frame[2];
    while (in.read(reinterpret_cast<char*>(frame), sizeof frame)) s.push_back(frame[0]);
    // The tone is steady: its envelope never falls and its period never jumps. A gap is a
    // stretch of at least 1 ms below a tenth of the tone's level, or a period (between upward
    // zero crossings) more than 10 % off; events closer than 50 ms are one gap.
    double level = 0;
    for (float v : s) level = std::max(level, double(std::fabs(v)));
    size_t start = 0;
    while (start < s.size() && std::fabs(s[start]) < level / 2) ++start;
    size_t end = s.size();
    while (end > start && std::fabs(s[end - 1]) < level / 2) --end;
    std::vector<std::pair<size_t, size_t>> gaps;
    auto note = [&](size_t from, size_t to) {
        if (!gaps.empty() && from < gaps.back().second + 2400) gaps.back().second = std::max(gaps.back().second, to);
        else gaps.emplace_back(from, to);
    };
    size_t quiet = 0;
    for (size_t i = start; i < end; ++i) {
        if (std::fabs(s[i]) < level / 10) {
            ++quiet;
            continue;
        }
        if (quiet >= 48) note(i - quiet, i);
        quiet = 0;
    }
    const double period = argc > 3 ? 48000.0 / std::atof(argv[3]) : 48000.0 / 997;
    double lastCross = -1;
    for (size_t i = start + 1; i < end; ++i) {
        if (!(s[i - 1] < 0 && s[i] >= 0)) continue;
        const double cross = double(i - 1) + s[i - 1] / (s[i - 1] - s[i]);
        if (lastCross >= 0 && std::fabs(cross - lastCross - period) > period * 0.1) note(size_t(lastCross), i);
        lastCross = cross;
    }
    double total = 0;
    for (auto& [a, b] : gaps) total += double(b - a) / 48000;
    std::printf("%s: %.1f s of tone, %zu dropouts, %.3f s in all\n", argv[2], double(end - start) / 48000,
                gaps.size(), total);
    return 0;
}

} // namespace

int main(int argc, char** argv) {
    const std::string command = argc > 1 ? argv[1] : "";
    if (command == "cpu") return cpuCommand(argc, argv);
    if (command == "start") return startCommand(argc, argv);
    if (command == "idle") return idleCommand(argc, argv);
    if (command == "gaps") return gapsCommand(argc, argv);
    std::fprintf(stderr, "usage: corvid_bench_engine cpu FILE... | start WAV SINK [DEVICE] | idle WAV [SECONDS] | gaps RAW [HZ]\n");
    return 2;
}
