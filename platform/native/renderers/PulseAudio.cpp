// PulseAudio output. Every renderer's playback stream lives on the process's one connection
// (PulseConnection); the stream's write callback is the device callback. It hands the server
// what the ring holds and never writes silence of its own: while nothing is there the server
// waits (prebuffering) instead of queueing silence ahead of the first sample, and when the
// streaming thread has queued more it wakes the loop through an eventfd.
//
// The server holds a long buffer ahead of the speakers so that a loaded machine that keeps the
// decoder off the CPU for a while is not heard; everything a host does still acts at once on
// the server's side: a pause corks the stream, a stop or seek drops what is queued there, the
// volume is the stream's own volume on the server.

#include "platform/native/renderers/AudioRenderer.h"
#include "platform/native/renderers/PulseConnection.h"
#include "platform/native/renderers/Renderers.h"

#include <pulse/pulseaudio.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <string>
#include <sys/eventfd.h>
#include <unistd.h>

namespace corvid::native {

namespace {

constexpr int kConnectTimeoutMs = 3000;
// What the server keeps queued ahead of the speakers: longer than the stalls of a busy
// machine (normal threads kept off the CPU for up to 600 ms were seen).
constexpr int kTargetLatencyMs = 1000;
// What the server waits for before it starts (or starts again after running dry): the first
// sample is heard as soon as this much is there.
constexpr int kPrebufferMs = 10;
// How much the server lets drain before it asks for more: a quarter of what it holds, so that
// the sound-server thread wakes a few times a second, not at each of the sink's periods.
constexpr int kRequestMs = kTargetLatencyMs / 4;

struct SinkQuery {
    PulseConnection* connection;
    std::vector<SinkInfo>* sinks;
    std::string* defaultSink;
    int pending = 2;
    bool failed = false;
};

} // namespace

Status listPulseSinks(std::vector<SinkInfo>& sinks, std::string& defaultSink, int timeoutMs) {
    sinks.clear();
    defaultSink.clear();
    Status status;
    auto connection = PulseConnection::shared(status, timeoutMs);
    if (!connection) return status;
    PulseConnection::Lock lock(*connection);
    SinkQuery query{connection.get(), &sinks, &defaultSink};
    pa_operation* server = pa_context_get_server_info(
        connection->context(),
        [](pa_context*, const pa_server_info* info, void* user) {
            auto* q = static_cast<SinkQuery*>(user);
            if (info && info->default_sink_name) *q->defaultSink = info->default_sink_name;
            --q->pending;
            q->connection->signal();
        },
        &query);
    pa_operation* list = pa_context_get_sink_info_list(
        connection->context(),
        [](pa_context*, const pa_sink_info* info, int eol, void* user) {
            auto* q = static_cast<SinkQuery*>(user);
            if (eol < 0) q->failed = true;
            if (eol != 0) {
                --q->pending;
                q->connection->signal();
                return;
            }
            char map[PA_CHANNEL_MAP_SNPRINT_MAX] = {};
            pa_channel_map_snprint(map, sizeof map, &info->channel_map);
            q->sinks->push_back(SinkInfo{info->name ? info->name : "",
                                         info->description ? info->description : "",
                                         int(info->sample_spec.channels), map});
        },
        &query);
    const bool answered = server && list && connection->waitFor([&] { return query.pending == 0 ? 1 : 0; }, timeoutMs);
    // An answer that comes after the wait must not reach the query on this stack.
    for (pa_operation* op : {server, list}) {
        if (!op) continue;
        if (pa_operation_get_state(op) == PA_OPERATION_RUNNING) pa_operation_cancel(op);
        pa_operation_unref(op);
    }
    if (!server || !list) return Status::failure(hr::NoAudioHardware, "The sink list failed.");
    if (!answered) return Status::failure(hr::Timeout, "The sound server did not answer in time.");
    if (query.failed) return Status::failure(hr::NoAudioHardware, "The sink list failed.");
    return Status::success();
}

namespace {

class PulseRenderer final : public AudioRenderer {
public:
    // A loaded player's renderer joins the connection at once, so that its play waits for
    // nothing but its own stream.
    PulseRenderer(const std::string& name, SinkInfo sink, int pair)
        : AudioRenderer(name, sink.channels, pair), sink_(std::move(sink)) {
        Status ignored; // a server that does not answer now is asked again at the play
        connection_ = PulseConnection::shared(ignored, kConnectTimeoutMs);
    }
    ~PulseRenderer() override { closeDevice(); }

protected:
    Status openDevice(int rate, int channels) override {
        closeDevice();
        // The connection is kept from one play to the next (it is shared: one thread for the
        // whole process), so that a play does not wait for the server's handshake.
        Status status;
        if (!connection_ || !connection_->ready())
            connection_ = PulseConnection::shared(status, kConnectTimeoutMs);
        if (!connection_) return Status::failure(hr::NoAudioHardware, "The sound server cannot be reached.");
        kick_ = eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
        if (kick_ < 0) {
            closeDevice();
            return Status::failure(hr::NoAudioHardware, "The sound device " + name() + " cannot be opened.");
        }
        PulseConnection::Lock lock(*connection_);
        pa_sample_spec sampleSpec{PA_SAMPLE_FLOAT32LE, uint32_t(rate), uint8_t(channels)};
        pa_channel_map map;
        if (!(pa_channel_map_parse(&map, sink_.channelMap.c_str()) && map.channels == channels))
            pa_channel_map_init_extend(&map, unsigned(channels), PA_CHANNEL_MAP_DEFAULT);
        stream_ = pa_stream_new(connection_->context(), "Corvid player", &sampleSpec, &map);
        if (!stream_) return failOpen(lock, "The sound server refused the stream.");
        frameBytes_ = size_t(channels) * sizeof(float);
        rate_ = rate;
        spec_ = sampleSpec;
        kickEvent_ = connection_->api()->io_new(connection_->api(), kick_, PA_IO_EVENT_INPUT,
                                                &PulseRenderer::onKick, this);
        pa_stream_set_write_callback(stream_, &PulseRenderer::onWrite, this);
        pa_stream_set_state_callback(stream_, &PulseRenderer::onStreamState, this);
        pa_stream_set_underflow_callback(stream_, &PulseRenderer::onUnderflow, this);
        pa_buffer_attr attr;
        attr.maxlength = uint32_t(-1);
        attr.tlength = uint32_t(pa_usec_to_bytes(pa_usec_t(kTargetLatencyMs) * 1000, &sampleSpec));
        attr.prebuf = uint32_t(pa_usec_to_bytes(pa_usec_t(kPrebufferMs) * 1000, &sampleSpec));
        attr.minreq = uint32_t(pa_usec_to_bytes(pa_usec_t(kRequestMs) * 1000, &sampleSpec));
        attr.fragsize = uint32_t(-1);
        // A device the operator named is not swapped for another behind their back: when it
        // goes, the stream fails and the graph reports the loss. A paused graph opens corked:
        // what it queues waits on the server and plays the moment it runs.
        auto flags = pa_stream_flags_t(PA_STREAM_VARIABLE_RATE | PA_STREAM_INTERPOLATE_TIMING |
                                       PA_STREAM_AUTO_TIMING_UPDATE | PA_STREAM_START_CORKED);
        if (!sink_.name.empty()) flags = pa_stream_flags_t(flags | PA_STREAM_DONT_MOVE);
        pa_cvolume volume;
        serverVolume(volume);
        bool ok = pa_stream_connect_playback(stream_, sink_.name.empty() ? nullptr : sink_.name.c_str(),
                                             &attr, flags, &volume, nullptr) >= 0;
        ok = ok && connection_->waitFor(
                       [&] {
                           const auto s = pa_stream_get_state(stream_);
                           return s == PA_STREAM_READY ? 1 : PA_STREAM_IS_GOOD(s) ? 0 : -1;
                       },
                       kConnectTimeoutMs);
        if (!ok) return failOpen(lock, "The sound device " + name() + " cannot be opened.");
        corked_ = true;
        sent_.flushed(true);
        lostReported_.store(false);
        underruns_.store(0);
        reportedUnderruns_ = 0;
        if (!paused()) cork(false);
        return Status::success();
    }

    void closeDevice() override {
        if (!connection_) return;
        {
            PulseConnection::Lock lock(*connection_);
            releaseStream();
        }
        if (kick_ >= 0) close(kick_);
        kick_ = -1;
    }

    void applyRate(double rate) override {
        if (!stream_) return;
        PulseConnection::Lock lock(*connection_);
        if (pa_operation* op = pa_stream_update_sample_rate(stream_, uint32_t(std::lround(rate_ * rate)), nullptr, nullptr))
            pa_operation_unref(op);
    }

    void applyPaused(bool paused) override {
        if (!stream_) return;
        PulseConnection::Lock lock(*connection_);
        cork(paused);
    }

    void applyVolume() override {
        if (!stream_) return;
        PulseConnection::Lock lock(*connection_);
        const uint32_t index = pa_stream_get_index(stream_);
        if (index == PA_INVALID_INDEX) return;
        pa_cvolume volume;
        serverVolume(volume);
        if (pa_operation* op = pa_context_set_sink_input_volume(connection_->context(), index, &volume, nullptr, nullptr))
            pa_operation_unref(op);
    }

    void dataQueued() override {
        // A device that asked for more than the ring had is woken; so is one that must drop
        // what it holds (a seek).
        if (hungry_.exchange(false) || flushWaiting()) kick();
        reportUnderruns();
    }

    void endQueued() override { kick(); }

    double deviceLatencyNow() const override {
        if (stream_) {
            PulseConnection::Lock lock(*connection_);
            pa_usec_t latency = 0;
            int negative = 0;
            if (pa_stream_get_latency(stream_, &latency, &negative) == 0)
                return negative ? 0.0 : double(latency) / 1e6;
        }
        return AudioRenderer::deviceLatencyNow();
    }

private:
    Status failOpen(PulseConnection::Lock&, const std::string& why) {
        releaseStream();
        return Status::failure(hr::NoAudioHardware, why);
    }

    // With the lock held.
    void releaseStream() {
        if (kickEvent_) connection_->api()->io_free(kickEvent_);
        kickEvent_ = nullptr;
        if (drain_) {
            pa_operation_cancel(drain_);
            pa_operation_unref(drain_);
            drain_ = nullptr;
        }
        drainAsked_ = false;
        if (!stream_) return;
        pa_stream_set_state_callback(stream_, nullptr, nullptr);
        pa_stream_set_write_callback(stream_, nullptr, nullptr);
        pa_stream_set_underflow_callback(stream_, nullptr, nullptr);
        pa_stream_disconnect(stream_);
        pa_stream_unref(stream_);
        stream_ = nullptr;
    }

    void serverVolume(pa_cvolume& volume) const {
        pa_cvolume_set(&volume, spec_.channels, pa_sw_volume_from_linear(double(gain())));
    }

    // With the lock held.
    void cork(bool corked) {
        if (corked == corked_) return;
        corked_ = corked;
        sent_.cork(corked);
        if (pa_operation* op = pa_stream_cork(stream_, corked ? 1 : 0, nullptr, nullptr)) pa_operation_unref(op);
    }

    void kick() {
        const uint64_t one = 1;
        if (kick_ >= 0) [[maybe_unused]] auto n = write(kick_, &one, sizeof one);
    }

    // The device callback (loop thread): what the server asks for, from the ring.
    void fill() {
        if (!stream_) return;
        hungry_.store(true, std::memory_order_seq_cst);
        size_t wanted = pa_stream_writable_size(stream_);
        bool flushedAny = false;
        while (wanted >= frameBytes_ && wanted != size_t(-1)) {
            void* data = nullptr;
            size_t size = wanted;
            if (pa_stream_begin_write(stream_, &data, &size) < 0 || !data) break;
            bool flushed = false;
            const size_t frames = pull(static_cast<float*>(data), size / frameBytes_, flushed);
            if (flushed && !flushedAny) {
                flushedAny = true;
                // What the server still holds of the old position goes too.
                if (pa_operation* op = pa_stream_flush(stream_, nullptr, nullptr)) pa_operation_unref(op);
                sent_.flushed(corked_);
            }
            if (frames == 0) {
                pa_stream_cancel_write(stream_);
                break;
            }
            pa_stream_write(stream_, data, frames * frameBytes_, nullptr, 0, PA_SEEK_RELATIVE);
            sent_.frames += double(frames);
            wanted -= frames * frameBytes_;
            if (frames * frameBytes_ < size) break;
        }
        if (wanted < frameBytes_) hungry_.store(false, std::memory_order_relaxed);
        if (flushedAny) drainAsked_ = false;
        // The last sample is with the server: it says when it has played it.
        if (endIsQueued() && ringEmpty() && !drainAsked_) {
            drainAsked_ = true;
            if (drain_) pa_operation_unref(drain_);
            drain_ = pa_stream_drain(stream_, &PulseRenderer::onDrained, this);
        }
        pa_usec_t latency = 0;
        int negative = 0;
        if (pa_stream_get_latency(stream_, &latency, &negative) != 0 || negative) latency = 0;
        // Just after a start or a seek the server's timing is not known yet and reads 0, as
        // if all that was sent had played; the meters would show it at once and then nothing.
        setDeviceLatency(std::max(double(latency) / 1e6, sent_.unplayed(double(rate_) * rateFactor())));
    }

    static void onWrite(pa_stream*, size_t, void* user) { static_cast<PulseRenderer*>(user)->fill(); }

    static void onDrained(pa_stream*, int success, void* user) {
        auto* self = static_cast<PulseRenderer*>(user);
        // A drain cut short by a seek's flush is not the end.
        if (success && self->endIsQueued()) self->playedOut();
    }

    static void onKick(pa_mainloop_api*, pa_io_event*, int fd, pa_io_event_flags_t, void* user) {
        uint64_t count = 0;
        [[maybe_unused]] auto n = read(fd, &count, sizeof count);
        auto* self = static_cast<PulseRenderer*>(user);
        self->fill();
        // An item's last samples play even when they are fewer than the server waits for.
        if (self->stream_ && self->endIsQueued())
            if (pa_operation* op = pa_stream_trigger(self->stream_, nullptr, nullptr)) pa_operation_unref(op);
    }

    static void onStreamState(pa_stream* stream, void* user) {
        auto* self = static_cast<PulseRenderer*>(user);
        self->connection_->signal();
        const auto state = pa_stream_get_state(stream);
        if (state == PA_STREAM_FAILED || state == PA_STREAM_TERMINATED) self->lost();
    }

    static void onUnderflow(pa_stream*, void* user) {
        auto* self = static_cast<PulseRenderer*>(user);
        // Running dry after the last sample is how an item ends, not a fault. The count is
        // reported by the streaming thread, which may allocate and post.
        if (!self->endIsQueued()) self->underruns_.fetch_add(1, std::memory_order_relaxed);
    }

    // Stream thread.
    void reportUnderruns() {
        const int count = underruns_.load(std::memory_order_relaxed);
        if (count == reportedUnderruns_) return;
        reportedUnderruns_ = count;
        if (NativeGraph* g = graph())
            g->postReport("The sound device " + name() + " ran out of audio (underrun " +
                          std::to_string(count) + " of this play); it played silence until more came.");
    }

    void lost() {
        if (lostReported_.exchange(true)) return;
        if (NativeGraph* g = graph()) g->postDeviceLost();
    }

    SinkInfo sink_;
    std::shared_ptr<PulseConnection> connection_;
    std::atomic<bool> lostReported_{false};
    std::atomic<bool> hungry_{false};
    pa_stream* stream_ = nullptr;
    pa_io_event* kickEvent_ = nullptr;
    int kick_ = -1;
    pa_sample_spec spec_{};
    size_t frameBytes_ = 8;
    int rate_ = 0;
    bool corked_ = true; // with the lock held
    // What was sent to the server since the stream opened or was flushed, against the time it
    // has played since: the server holds at least the difference. With the lock held.
    struct Sent {
        double frames = 0;
        double playedSeconds = 0; // before the last uncork
        std::chrono::steady_clock::time_point since{};
        bool playing = false;
        void cork(bool corked) {
            const auto now = std::chrono::steady_clock::now();
            if (playing) playedSeconds += std::chrono::duration<double>(now - since).count();
            playing = !corked;
            since = now;
        }
        void flushed(bool corked) {
            *this = Sent{};
            cork(corked);
        }
        double unplayed(double framesPerSecond) const {
            double played = playedSeconds;
            if (playing) played += std::chrono::duration<double>(std::chrono::steady_clock::now() - since).count();
            return framesPerSecond > 0 ? std::max(0.0, frames / framesPerSecond - played) : 0.0;
        }
    } sent_;
    bool drainAsked_ = false;
    pa_operation* drain_ = nullptr;
    std::atomic<int> underruns_{0}; // counted on the loop thread
    int reportedUnderruns_ = 0;     // stream thread
};

} // namespace

NativeFilterPtr makePulseRenderer(const std::string& displayName, const SinkInfo& sink, int pair) {
    return std::make_shared<PulseRenderer>(displayName, sink, pair);
}

} // namespace corvid::native
