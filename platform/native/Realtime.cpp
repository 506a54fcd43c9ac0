#include "platform/native/Realtime.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <pthread.h>
#include <sched.h>
#include <sys/resource.h>
#include <unistd.h>

#if CORVID_HAVE_DBUS
#include <dbus/dbus.h>
#endif

namespace corvid::native {

namespace {
// Low on the real-time scale: above every normal thread, below the sound server's own
// (PulseAudio asks for 5 and up) and far below the kernel's interrupt threads.
constexpr int kWantedPriority = 4;

// SCHED_FIFO from the kernel itself: RLIMIT_RTPRIO above zero, or a privileged process.
bool fifoFromKernel(int& priority, std::string& why) {
    rlimit limit{};
    priority = kWantedPriority;
    if (geteuid() != 0 && getrlimit(RLIMIT_RTPRIO, &limit) == 0 && limit.rlim_cur != RLIM_INFINITY &&
        limit.rlim_cur > 0)
        priority = std::min<int>(priority, int(limit.rlim_cur));
    priority = std::max(priority, sched_get_priority_min(SCHED_FIFO));
    sched_param param{};
    param.sched_priority = priority;
    const int error = pthread_setschedparam(pthread_self(), SCHED_FIFO, &param);
    if (error == 0) return true;
    why = std::string("SCHED_FIFO: ") + std::strerror(error);
    return false;
}

#if CORVID_HAVE_DBUS
// The process's one connection to rtkit on the system bus: opened at the first request, kept
// for the process's life. What makes every later request pointless (no bus, no rtkit, a
// daemon that does not answer in time) is remembered, so no thread waits on it again.
class RealtimeKit {
public:
    bool makeRealtime(int& priority, std::string& why) {
        std::lock_guard lock(mutex_);
        if (!bus_ && failure_.empty()) connect();
        if (!failure_.empty()) {
            why = failure_;
            return false;
        }
        priority = maxPriority_;
        const dbus_uint64_t thread = dbus_uint64_t(gettid());
        const dbus_uint32_t wanted = dbus_uint32_t(priority);
        DBusMessage* call = newCall(kService, "MakeThreadRealtime");
        if (!call || !dbus_message_append_args(call, DBUS_TYPE_UINT64, &thread, DBUS_TYPE_UINT32,
                                               &wanted, DBUS_TYPE_INVALID)) {
            if (call) dbus_message_unref(call);
            why = "rtkit: out of memory";
            return false;
        }
        if (DBusMessage* reply = send(call, why)) dbus_message_unref(reply);
        else return false;
        // rtkit answers after it changed the thread's scheduling; the kernel has the last word.
        const int policy = sched_getscheduler(0) & ~SCHED_RESET_ON_FORK;
        if (policy == SCHED_RR || policy == SCHED_FIFO) return true;
        why = "rtkit: answered, yet the thread is not real-time";
        return false;
    }

private:
    static constexpr const char* kService = "org.freedesktop.RealtimeKit1";
    static constexpr const char* kPath = "/org/freedesktop/RealtimeKit1";
    // Every call waits at most this long: a thread's start must never hang on the bus.
    static constexpr int kTimeoutMs = 200;

    void connect() {
        const char* env = std::getenv("DBUS_SYSTEM_BUS_ADDRESS");
        const char* address = env && *env ? env : "unix:path=/var/run/dbus/system_bus_socket";
        DBusError error;
        dbus_error_init(&error);
        bus_ = dbus_connection_open_private(address, &error);
        if (!bus_) {
            failure_ = std::string("rtkit: no system bus: ") + (error.message ? error.message : address);
            dbus_error_free(&error);
            return;
        }
        dbus_connection_set_exit_on_disconnect(bus_, FALSE);
        // The handshake and the bus's greeting are ours to time: the library's own waits
        // (15 s and more for a socket that never answers) ignore a call's time limit.
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(kTimeoutMs);
        while (!dbus_connection_get_is_authenticated(bus_) && dbus_connection_get_is_connected(bus_)) {
            const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
                deadline - std::chrono::steady_clock::now()).count();
            if (left <= 0)
                return giveUp("rtkit: no system bus answered within " + std::to_string(kTimeoutMs) + " ms");
            dbus_connection_read_write(bus_, int(left));
        }
        std::string why;
        DBusMessage* hello = dbus_message_new_method_call(DBUS_SERVICE_DBUS, DBUS_PATH_DBUS,
                                                          DBUS_INTERFACE_DBUS, "Hello");
        if (DBusMessage* reply = hello ? send(hello, why) : nullptr) dbus_message_unref(reply);
        else return giveUp(why.empty() ? "rtkit: out of memory" : why);
        long long rttime = 0;
        long long priority = 0;
        if (!property("MaxRealtimePriority", priority, why) || !property("RTTimeUSecMax", rttime, why))
            return giveUp(why);
        if (priority < 1 || rttime < 1)
            return giveUp("rtkit: grants no real-time priority");
        maxPriority_ = int(std::min<long long>(priority, kWantedPriority));
        // rtkit serves only processes whose real-time threads the kernel stops after
        // RTTimeUSecMax of CPU without a blocking call; ours block on the ring long before.
        rlimit limit{};
        getrlimit(RLIMIT_RTTIME, &limit);
        if (limit.rlim_max == RLIM_INFINITY || limit.rlim_max > rlim_t(rttime))
            limit.rlim_max = rlim_t(rttime);
        limit.rlim_cur = limit.rlim_max;
        if (setrlimit(RLIMIT_RTTIME, &limit) != 0)
            return giveUp(std::string("rtkit: RLIMIT_RTTIME cannot be set: ") + std::strerror(errno));
    }

    void giveUp(const std::string& why) {
        failure_ = why;
        if (!bus_) return;
        dbus_connection_close(bus_);
        dbus_connection_unref(bus_);
        bus_ = nullptr;
    }

    DBusMessage* newCall(const char* interface, const char* method) {
        return dbus_message_new_method_call(kService, kPath, interface, method);
    }

    // Sends a call and waits for its reply; nullptr and why on failure. A bus that is gone
    // or a daemon that does not answer ends every further attempt.
    DBusMessage* send(DBusMessage* call, std::string& why) {
        DBusError error;
        dbus_error_init(&error);
        DBusMessage* reply = dbus_connection_send_with_reply_and_block(bus_, call, kTimeoutMs, &error);
        dbus_message_unref(call);
        if (reply) return reply;
        const bool late = dbus_error_has_name(&error, DBUS_ERROR_NO_REPLY);
        why = "rtkit: " + (late ? "no answer within " + std::to_string(kTimeoutMs) + " ms"
                                : std::string(error.message ? error.message : "refused"));
        const bool hopeless = late ||
                              dbus_error_has_name(&error, DBUS_ERROR_SERVICE_UNKNOWN) ||
                              dbus_error_has_name(&error, DBUS_ERROR_DISCONNECTED) ||
                              !dbus_connection_get_is_connected(bus_);
        dbus_error_free(&error);
        if (hopeless) giveUp(why);
        return nullptr;
    }

    bool property(const char* name, long long& value, std::string& why) {
        DBusMessage* call = newCall(DBUS_INTERFACE_PROPERTIES, "Get");
        if (!call) {
            why = "rtkit: out of memory";
            return false;
        }
        const char* interface = kService;
        dbus_message_append_args(call, DBUS_TYPE_STRING, &interface, DBUS_TYPE_STRING, &name,
                                 DBUS_TYPE_INVALID);
        DBusMessage* reply = send(call, why);
        if (!reply) return false;
        DBusMessageIter it, variant;
        bool read = false;
        if (dbus_message_iter_init(reply, &it) && dbus_message_iter_get_arg_type(&it) == DBUS_TYPE_VARIANT) {
            dbus_message_iter_recurse(&it, &variant);
            const int type = dbus_message_iter_get_arg_type(&variant);
            if (type == DBUS_TYPE_INT32 || type == DBUS_TYPE_INT64) {
                DBusBasicValue v{};
                dbus_message_iter_get_basic(&variant, &v);
                value = type == DBUS_TYPE_INT32 ? v.i32 : v.i64;
                read = true;
            }
        }
        dbus_message_unref(reply);
        if (!read) why = std::string("rtkit: ") + name + " is not a number";
        return read;
    }

    std::mutex mutex_;
    DBusConnection* bus_ = nullptr;
    std::string failure_;
    int maxPriority_ = kWantedPriority;
};
#endif
} // namespace

RealtimeGrant requestRealtime() {
    RealtimeGrant grant;
    int priority = 0;
    std::string kernelWhy;
    if (fifoFromKernel(priority, kernelWhy)) {
        grant.granted = true;
        grant.note = "Real-time scheduling: granted (SCHED_FIFO, priority " + std::to_string(priority) + ").";
        return grant;
    }
    std::string kitWhy = "rtkit: not built in";
#if CORVID_HAVE_DBUS
    static RealtimeKit kit;
    if (kit.makeRealtime(priority, kitWhy)) {
        grant.granted = true;
        grant.note = "Real-time scheduling: granted by rtkit (priority " + std::to_string(priority) + ").";
        return grant;
    }
#endif
    grant.note = "Real-time scheduling: not granted (" + kernelWhy + "; " + kitWhy +
                 "), playing at normal priority.";
    return grant;
}

bool realtimeNoteIsNew(const RealtimeGrant& grant) {
    static std::atomic<bool> saidGranted{false};
    static std::atomic<bool> saidRefused{false};
    return !(grant.granted ? saidGranted : saidRefused).exchange(true);
}

} // namespace corvid::native
