#pragma once
// One HTTP or HTTPS connection to a stream server, and the request that follows redirections
// to the stream's answer. Every wait (host-name lookup, connect, TLS handshake, each read)
// ends at its deadline or at once when the session's Waiter is woken for a cancel.
//
// TLS: OpenSSL, certificates verified against the system's trust store (or the file named by
// SSL_CERT_FILE), with the host name (or IP address) checked against the certificate.
//
// Threads: a Connection belongs to one thread (the session's network thread); the Waiter's
// wake() and cancel() may be called from any thread.

#include "platform/Status.h"
#include "platform/native/stream/Icy.h"

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <string>

namespace corvid::native {

using StreamClock = std::chrono::steady_clock;

class Waiter {
public:
    Waiter();
    ~Waiter();
    Waiter(const Waiter&) = delete;
    Waiter& operator=(const Waiter&) = delete;

    enum class Ready { Yes, TimedOut, Woken, Failed };
    // Waits for `events` on `fd` (or for nothing but a wake, with fd < 0) until `deadline`.
    Ready wait(int fd, short events, StreamClock::time_point deadline) const;
    // Any thread: makes the current (or next) wait return Woken.
    void wake() const;
    // Any thread: every wait from now on returns Woken at once.
    void cancel();
    bool cancelled() const { return cancelled_.load(); }
    bool usable() const { return fd_ >= 0; }
    // Called about once a second while a wait goes on (set before any wait).
    void setTick(std::function<void()> tick) { tick_ = std::move(tick); }

private:
    std::function<void()> tick_;
    int fd_ = -1;
    std::atomic<bool> cancelled_{false};
};

class Connection {
public:
    ~Connection();
    // Looks the host up, connects and, for TLS, shakes hands and checks the certificate.
    static platform::Status open(const icy::StreamAddress& address, const Waiter& waiter,
                                 StreamClock::time_point deadline, std::unique_ptr<Connection>& out);

    platform::Status sendAll(const std::string& text, const Waiter& waiter, StreamClock::time_point deadline);

    enum class Read { Data, Again, End, Failed };
    // Reads what is there without waiting: Data (`got` bytes), Again (wait for events()),
    // End (the server closed), Failed (`failure` says why).
    Read readSome(uint8_t* destination, size_t size, size_t& got, platform::Status& failure);
    // What the next wait must wait for (TLS may need to write to read).
    short events() const { return events_; }
    int fd() const { return fd_; }

private:
    Connection() = default;
    int fd_ = -1;
    void* ssl_ = nullptr; // SSL*, kept opaque so that no TLS header leaks out of this file
    short events_ = 0;
    std::string where_;
};

// A stream server's answer: the connection, its head, and the body's decoding.
struct HttpAnswer {
    std::unique_ptr<Connection> connection;
    icy::StreamAddress address; // where the answer came from, after redirections
    icy::ResponseHead head;
    std::string bodyStart; // body bytes that came with the head (still transfer-coded)
};

// Asks for `address` (with ICY metadata) and follows up to icy::kMaxRedirects redirections,
// each to http or https only and never from https down to http. A loop or too many ends with
// a failure. Statuses other than 200 and redirections are failures that say what the server
// answered; so are heads that are not HTTP or ICY.
platform::Status requestStream(const icy::StreamAddress& address, const Waiter& waiter,
                               StreamClock::time_point deadline, HttpAnswer& out);

} // namespace corvid::native
