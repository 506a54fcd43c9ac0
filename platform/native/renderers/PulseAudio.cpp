// PulseAudio output: one threaded main loop, context and playback stream per active
// renderer. The stream's write callback is the device callback: it fills what the server
// asks for from the ring buffer (silence when the ring is empty) and never waits.

#include "platform/native/renderers/AudioRenderer.h"
#include "platform/native/renderers/Renderers.h"

#include <pulse/pulseaudio.h>

#include <chrono>
#include <thread>

namespace corvid::native {

namespace {

constexpr int kConnectTimeoutMs = 3000;
constexpr int kTargetLatencyMs = 60; // what the server keeps queued ahead of the speakers

int64_t nowMs() {
    return std::chrono::duration_cast<std::chrono::milliseconds>(
               std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

struct SinkQuery {
    std::vector<SinkInfo>* sinks;
    std::string* defaultSink;
    int pending = 0;
    bool failed = false;
};

} // namespace

Status listPulseSinks(std::vector<SinkInfo>& sinks, std::string& defaultSink, int timeoutMs) {
    sinks.clear();
    defaultSink.clear();
    pa_mainloop* loop = pa_mainloop_new();
    pa_context* ctx = pa_context_new(pa_mainloop_get_api(loop), "corvid-enumeration");
    Status result = Status::failure(hr::NoAudioHardware, "No sound server answered.");
    const int64_t deadline = nowMs() + timeoutMs;
    if (ctx && pa_context_connect(ctx, nullptr, PA_CONTEXT_NOAUTOSPAWN, nullptr) >= 0) {
        SinkQuery query{&sinks, &defaultSink};
        bool asked = false;
        while (nowMs() < deadline) {
            pa_mainloop_iterate(loop, 0, nullptr);
            const pa_context_state_t state = pa_context_get_state(ctx);
            if (state == PA_CONTEXT_FAILED || state == PA_CONTEXT_TERMINATED) break;
            if (state == PA_CONTEXT_READY && !asked) {
                asked = true;
                query.pending = 2;
                pa_operation_unref(pa_context_get_server_info(
                    ctx,
                    [](pa_context*, const pa_server_info* info, void* user) {
                        auto* q = static_cast<SinkQuery*>(user);
                        if (info && info->default_sink_name) *q->defaultSink = info->default_sink_name;
                        --q->pending;
                    },
                    &query));
                pa_operation_unref(pa_context_get_sink_info_list(
                    ctx,
                    [](pa_context*, const pa_sink_info* info, int eol, void* user) {
                        auto* q = static_cast<SinkQuery*>(user);
                        if (eol < 0) q->failed = true;
                        if (eol != 0) {
                            --q->pending;
                            return;
                        }
                        char map[PA_CHANNEL_MAP_SNPRINT_MAX] = {};
                        pa_channel_map_snprint(map, sizeof map, &info->channel_map);
                        q->sinks->push_back(SinkInfo{info->name ? info->name : "",
                                                     info->description ? info->description : "",
                                                     int(info->sample_spec.channels), map});
                    },
                    &query));
            }
            if (asked && query.pending == 0) {
                result = query.failed ? Status::failure(hr::NoAudioHardware, "The sink list failed.")
                                      : Status::success();
                break;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        if (asked && query.pending != 0 && result.number == hr::NoAudioHardware)
            result = Status::failure(hr::Timeout, "The sound server did not answer in time.");
        pa_context_disconnect(ctx);
    }
    if (ctx) pa_context_unref(ctx);
    pa_mainloop_free(loop);
    return result;
}

namespace {

class PulseRenderer final : public AudioRenderer {
public:
    PulseRenderer(const std::string& name, SinkInfo sink, int pair)
        : AudioRenderer(name, sink.channels, pair), sink_(std::move(sink)) {}
    ~PulseRenderer() override { closeDevice(); }

protected:
    Status openDevice(int rate, int channels) override {
        closeDevice();
        loop_ = pa_threaded_mainloop_new();
        if (!loop_ || pa_threaded_mainloop_start(loop_) < 0) {
            closeDevice();
            return Status::failure(hr::NoAudioHardware, "The sound server loop cannot start.");
        }
        pa_threaded_mainloop_lock(loop_);
        context_ = pa_context_new(pa_threaded_mainloop_get_api(loop_), "Corvid");
        bool ok = context_ && pa_context_connect(context_, nullptr, PA_CONTEXT_NOAUTOSPAWN, nullptr) >= 0;
        ok = ok && waitFor([&] {
                 auto s = pa_context_get_state(context_);
                 return s == PA_CONTEXT_READY ? 1 : (s == PA_CONTEXT_FAILED || s == PA_CONTEXT_TERMINATED) ? -1 : 0;
             });
        if (!ok) {
            pa_threaded_mainloop_unlock(loop_);
            closeDevice();
            return Status::failure(hr::NoAudioHardware, "The sound server cannot be reached.");
        }
        pa_sample_spec sampleSpec{PA_SAMPLE_FLOAT32LE, uint32_t(rate), uint8_t(channels)};
        pa_channel_map map;
        if (!(pa_channel_map_parse(&map, sink_.channelMap.c_str()) && map.channels == channels))
            pa_channel_map_init_extend(&map, unsigned(channels), PA_CHANNEL_MAP_DEFAULT);
        stream_ = pa_stream_new(context_, "Corvid player", &sampleSpec, &map);
        if (!stream_) {
            pa_threaded_mainloop_unlock(loop_);
            closeDevice();
            return Status::failure(hr::NoAudioHardware, "The sound server refused the stream.");
        }
        frameBytes_ = size_t(channels) * sizeof(float);
        pa_stream_set_write_callback(stream_, &PulseRenderer::onWrite, this);
        pa_buffer_attr attr;
        attr.maxlength = uint32_t(-1);
        attr.tlength = uint32_t(pa_usec_to_bytes(kTargetLatencyMs * 1000, &sampleSpec));
        attr.prebuf = 0; // play at once: the callback always writes, silence when it has nothing
        attr.minreq = uint32_t(-1);
        attr.fragsize = uint32_t(-1);
        // A device the operator named is not swapped for another behind their back: when it
        // goes, the stream fails and the graph reports the loss.
        auto flags = pa_stream_flags_t(PA_STREAM_ADJUST_LATENCY | PA_STREAM_VARIABLE_RATE |
                                       PA_STREAM_INTERPOLATE_TIMING | PA_STREAM_AUTO_TIMING_UPDATE);
        if (!sink_.name.empty()) flags = pa_stream_flags_t(flags | PA_STREAM_DONT_MOVE);
        ok = pa_stream_connect_playback(stream_, sink_.name.empty() ? nullptr : sink_.name.c_str(),
                                        &attr, flags, nullptr, nullptr) >= 0;
        ok = ok && waitFor([&] {
                 auto s = pa_stream_get_state(stream_);
                 return s == PA_STREAM_READY ? 1 : (s == PA_STREAM_FAILED || s == PA_STREAM_TERMINATED) ? -1 : 0;
             });
        if (ok) {
            pa_stream_set_state_callback(stream_, &PulseRenderer::onStreamState, this);
            pa_context_set_state_callback(context_, &PulseRenderer::onContextState, this);
        }
        pa_threaded_mainloop_unlock(loop_);
        if (!ok) {
            closeDevice();
            return Status::failure(hr::NoAudioHardware, "The sound device " + name() + " cannot be opened.");
        }
        rate_ = rate;
        lostReported_.store(false);
        return Status::success();
    }

    void closeDevice() override {
        if (!loop_) return;
        pa_threaded_mainloop_lock(loop_);
        if (context_) pa_context_set_state_callback(context_, nullptr, nullptr);
        if (stream_) {
            pa_stream_set_state_callback(stream_, nullptr, nullptr);
            pa_stream_set_write_callback(stream_, nullptr, nullptr);
            pa_stream_disconnect(stream_);
            pa_stream_unref(stream_);
            stream_ = nullptr;
        }
        if (context_) {
            pa_context_disconnect(context_);
            pa_context_unref(context_);
            context_ = nullptr;
        }
        pa_threaded_mainloop_unlock(loop_);
        pa_threaded_mainloop_stop(loop_);
        pa_threaded_mainloop_free(loop_);
        loop_ = nullptr;
    }

    void applyRate(double rate) override {
        if (!loop_ || !stream_) return;
        pa_threaded_mainloop_lock(loop_);
        if (pa_operation* op = pa_stream_update_sample_rate(stream_, uint32_t(rate_ * rate), nullptr, nullptr))
            pa_operation_unref(op);
        pa_threaded_mainloop_unlock(loop_);
    }

private:
    // Called with the loop locked; the loop runs the server's replies meanwhile.
    template <class F> bool waitFor(F state) {
        const int64_t deadline = nowMs() + kConnectTimeoutMs;
        for (;;) {
            int s = state();
            if (s != 0) return s > 0;
            if (nowMs() > deadline) return false;
            pa_threaded_mainloop_unlock(loop_);
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
            pa_threaded_mainloop_lock(loop_);
        }
    }

    static void onWrite(pa_stream* stream, size_t bytes, void* user) {
        auto* self = static_cast<PulseRenderer*>(user);
        void* data = nullptr;
        size_t size = bytes;
        if (pa_stream_begin_write(stream, &data, &size) < 0 || !data) return;
        const size_t frames = size / self->frameBytes_;
        self->render(static_cast<float*>(data), frames);
        pa_stream_write(stream, data, frames * self->frameBytes_, nullptr, 0, PA_SEEK_RELATIVE);
        pa_usec_t latency = 0;
        int negative = 0;
        if (pa_stream_get_latency(stream, &latency, &negative) == 0)
            self->setDeviceLatency(negative ? 0.0 : double(latency) / 1e6);
    }

    static void onStreamState(pa_stream* stream, void* user) {
        const auto state = pa_stream_get_state(stream);
        if (state == PA_STREAM_FAILED || state == PA_STREAM_TERMINATED)
            static_cast<PulseRenderer*>(user)->lost();
    }
    static void onContextState(pa_context* context, void* user) {
        const auto state = pa_context_get_state(context);
        if (state == PA_CONTEXT_FAILED || state == PA_CONTEXT_TERMINATED)
            static_cast<PulseRenderer*>(user)->lost();
    }
    void lost() {
        if (lostReported_.exchange(true)) return;
        if (NativeGraph* g = graph()) g->postDeviceLost();
    }

    SinkInfo sink_;
    std::atomic<bool> lostReported_{false};
    pa_threaded_mainloop* loop_ = nullptr;
    pa_context* context_ = nullptr;
    pa_stream* stream_ = nullptr;
    size_t frameBytes_ = 8;
    int rate_ = 0;
};

} // namespace

NativeFilterPtr makePulseRenderer(const std::string& displayName, const SinkInfo& sink, int pair) {
    return std::make_shared<PulseRenderer>(displayName, sink, pair);
}

} // namespace corvid::native
