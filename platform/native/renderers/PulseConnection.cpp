#include "platform/native/renderers/PulseConnection.h"

#include "platform/native/Realtime.h"

namespace corvid::native {

using platform::Status;
namespace hr = platform::hr;

PulseConnection::Deadline::Deadline(PulseConnection& c, int timeoutMs) : connection(c) {
    timeval when{};
    pa_timeval_add(pa_gettimeofday(&when), pa_usec_t(timeoutMs) * 1000);
    event = c.api()->time_new(
        c.api(), &when,
        [](pa_mainloop_api*, pa_time_event*, const timeval*, void* user) {
            auto* self = static_cast<Deadline*>(user);
            self->passed = true;
            self->connection.signal();
        },
        this);
}

PulseConnection::Deadline::~Deadline() {
    if (event) connection.api()->time_free(event);
}

std::shared_ptr<PulseConnection> PulseConnection::shared(Status& status, int timeoutMs) {
    static std::mutex mutex;
    static std::weak_ptr<PulseConnection> current;
    std::lock_guard guard(mutex);
    if (auto c = current.lock(); c && c->ready()) {
        status = Status::success();
        return c;
    }

    std::shared_ptr<PulseConnection> c(new PulseConnection);
    c->loop_ = pa_threaded_mainloop_new();
    if (!c->loop_) {
        status = Status::failure(hr::NoAudioHardware, "The sound server loop cannot start.");
        return nullptr;
    }
    pa_threaded_mainloop_set_name(c->loop_, "corvid-sound");
    if (pa_threaded_mainloop_start(c->loop_) < 0) {
        pa_threaded_mainloop_free(c->loop_);
        c->loop_ = nullptr;
        status = Status::failure(hr::NoAudioHardware, "The sound server loop cannot start.");
        return nullptr;
    }
    Lock lock(*c);
    // The loop's thread runs every device callback: it asks for real-time scheduling first.
    pa_mainloop_api_once(c->api(), [](pa_mainloop_api*, void*) { requestRealtime(); }, nullptr);
    c->context_ = pa_context_new(c->api(), "Corvid");
    const bool connecting =
        c->context_ && pa_context_connect(c->context_, nullptr, PA_CONTEXT_NOAUTOSPAWN, nullptr) >= 0;
    if (connecting) {
        pa_context_set_state_callback(
            c->context_, [](pa_context*, void* user) { static_cast<PulseConnection*>(user)->signal(); },
            c.get());
    }
    const bool up = connecting && c->waitFor(
                                      [&] {
                                          const auto s = pa_context_get_state(c->context_);
                                          if (s == PA_CONTEXT_READY) return 1;
                                          return PA_CONTEXT_IS_GOOD(s) ? 0 : -1;
                                      },
                                      timeoutMs);
    if (!up) {
        status = Status::failure(hr::NoAudioHardware, "No sound server answered.");
        return nullptr; // the destructor disconnects, after the lock is let go
    }
    current = c;
    status = Status::success();
    return c;
}

bool PulseConnection::ready() const {
    Lock lock(*this);
    return context_ && pa_context_get_state(context_) == PA_CONTEXT_READY;
}

PulseConnection::~PulseConnection() {
    if (!loop_) return;
    pa_threaded_mainloop_lock(loop_);
    if (context_) {
        pa_context_set_state_callback(context_, nullptr, nullptr);
        pa_context_disconnect(context_);
        pa_context_unref(context_);
        context_ = nullptr;
    }
    pa_threaded_mainloop_unlock(loop_);
    pa_threaded_mainloop_stop(loop_);
    pa_threaded_mainloop_free(loop_);
}

} // namespace corvid::native
