#pragma once
// One open of a network stream: its network thread (the connection, the ICY metadata, the
// buffering reports, the throughput watchdog and the reconnect supervisor) and, until the
// stream is open, its probe thread (the demuxer and decoder over the first bytes).
//
// Threads: start(), goLive() and stop() on the control thread; cancel() from any thread. The
// network and probe threads share the session's atomics, its mutex and the buffer's own lock,
// and tell the owner everything through the event loop, tagged with the session's serial so
// that the news of a session that was replaced is dropped.

#include "platform/Services.h"
#include "platform/Status.h"
#include "platform/native/stream/Connection.h"
#include "platform/native/stream/Icy.h"
#include "platform/native/stream/StreamBuffer.h"

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace corvid::native {

class Demuxer;
class AudioDecoder;

// How long a stream is waited for and retried. One set for the process (setStreamLimits).
struct StreamLimits {
    // A silent server that never answers frees its thread after this (the player gives up
    // after its own 10 s wait).
    std::chrono::milliseconds answerDeadline{20000};
    // Throughput watchdog: while the stream plays and has run dry, the bytes of the last
    // `watchWindow` must be at least half of what the stream's own bit rate brings (icy-br,
    // else the decoder's, else 32 kbit/s).
    std::chrono::milliseconds watchWindow{4000};
    // Reconnects: back-off from `firstRetry`, doubling up to `longestRetry`, with +-20 %
    // jitter; reset after `healthyAfter` of healthy audio; at most `connectionsPerMinute`.
    std::chrono::milliseconds firstRetry{500};
    std::chrono::milliseconds longestRetry{3000};
    std::chrono::milliseconds healthyAfter{10000};
    int connectionsPerMinute = 10;
    // A stream that stays down this long ends (the graph reports its end).
    std::chrono::milliseconds outageLimit{20000};
};

void setStreamLimits(const StreamLimits& limits);
StreamLimits streamLimits();

// What a probe found: the stream's demuxer and decoder, ready to stream.
struct OpenedStream {
    std::shared_ptr<Demuxer> demuxer;
    std::shared_ptr<AudioDecoder> decoder;
    std::vector<std::string> demuxers; // the ones the content type allows, for a reopen
    std::string headers;               // an Ogg stream's codec header pages
};

// The filter's side, called on the control thread for the session it runs now.
class SessionOwner {
public:
    virtual ~SessionOwner() = default;
    virtual uint64_t currentSession() const = 0;
    virtual void sessionBuffering(int32_t percent) = 0;
    virtual void sessionTitle(const std::string& title, const std::string& url, const std::string& whole) = 0;
    virtual void sessionOpened(OpenedStream& stream) = 0;
    virtual void sessionFailed(const platform::Status& why) = 0;
    // About once a second: the owner checks that it still stands in a graph.
    virtual void sessionCheck() = 0;
};

class StreamSession : public std::enable_shared_from_this<StreamSession> {
public:
    // `probe`: open the demuxer over the first bytes (the stream source); without it the
    // session only fills the buffer, for a reader that demuxes the bytes itself, and takes
    // any content type but a page.
    StreamSession(icy::StreamAddress address, std::string addressText, std::shared_ptr<platform::EventLoop> loop,
                  std::weak_ptr<SessionOwner> owner, bool probe = true);
    ~StreamSession(); // stops

    platform::Status start();
    // The stream is open: an empty buffer is now a starvation, reported as buffering.
    void goLive();
    // Whether the graph plays the stream: the watchdog judges the server only then (a
    // stopped deck reads nothing, and a server may well hold back meanwhile).
    void setPlaying(bool playing) { playing_ = playing; }
    // Cancels and joins the threads.
    void stop();
    void cancel();

    uint64_t serial() const { return serial_; }
    // Why the network side gave up, once it did.
    platform::Status failure();
    const std::shared_ptr<StreamBuffer>& buffer() const { return buffer_; }

private:
    struct Link; // one connection's reading state
    void runNetwork();
    void runProbe();
    // Reads one connection until it ends, fails, falls below the watchdog's rate or the
    // session is cancelled. `finished`: the item ended as announced (no reconnect).
    platform::Status pump(HttpAnswer& answer, bool& finished);
    // Waits out the back-off and connects again, until the outage limit; false when given up.
    bool reconnect(HttpAnswer& answer, const platform::Status& why);
    platform::Status connect(HttpAnswer& answer, StreamClock::time_point deadline);
    // Periodic work of the network thread: the owner's check, starvation reports, a held title.
    void housekeeping();
    void watchStarvation();
    void onMetadata(const std::string& block);
    void flushTitle(bool force);
    template <class Task> void post(Task task);
    void postBuffering(int32_t percent);

    const uint64_t serial_;
    const icy::StreamAddress address_;
    const std::string addressText_;
    const std::shared_ptr<platform::EventLoop> loop_;
    const std::weak_ptr<SessionOwner> owner_;
    const std::shared_ptr<StreamBuffer> buffer_;
    const StreamLimits limits_;
    const bool probe_;
    Waiter waiter_;
    std::thread network_;
    std::atomic<bool> live_{false};
    std::atomic<bool> playing_{false};
    std::atomic<int64_t> byteRate_{0}; // the decoder's idea of the stream's bytes per second

    std::mutex mutex_;                   // guards the two below
    std::vector<std::string> demuxers_;  // from the content type, set before any audio
    platform::Status failure_;           // why the network side gave up, first reason kept

    // Network thread only.
    StreamClock::time_point lastCheck_{};
    int32_t reported_ = 0; // the pre-roll's last report, then a starvation's
    bool starving_ = false;
    StreamClock::time_point starvedAt_{};
    std::string lastTitle_, lastUrl_;
    bool titlePending_ = false;
    std::string pendingTitle_, pendingUrl_, pendingWhole_;
    StreamClock::time_point lastTitleAt_{};
    bool cleanedLogged_ = false;
    std::vector<StreamClock::time_point> connections_; // attempts in the last minute
    int backoffStep_ = 0;
    bool inOutage_ = false;
    bool pumping_ = false; // a connection is being read
    StreamClock::time_point healthySince_ = StreamClock::time_point::max(); // audio flowing, deck fed
    StreamClock::time_point outageStart_{};
    int bitrateKbps_ = 0; // icy-br of the current answer
};

// An operator-facing line about a stream (stderr).
void streamLog(const std::string& line);

} // namespace corvid::native
