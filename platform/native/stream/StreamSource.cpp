// "_DShowShoutCast": the network stream source.
//
// open() starts a network thread for the address and returns. The network thread connects,
// asks for the stream with ICY metadata, takes the metadata blocks out of the body and
// appends the audio to a bounded StreamBuffer; a probe thread, started with it, waits for the
// pre-roll and then opens the demuxer and decoder over the buffer (FFmpeg reads only through
// our StreamView: no FFmpeg network protocol is ever involved). The outcome, the buffering
// progress and the titles are posted to the control thread, where openState() shows them.
// Once open, the "Audio" pin appears and the graph's streaming thread pulls packets from the
// demuxer as it does for any other source.
//
// Threads: the filter's members run on the control thread; the network and probe threads
// share only the Session (atomics, its mutex, the buffer's own lock) and post everything
// else. A session carries a serial number: news of a session that was cancelled or replaced
// is dropped on arrival. The control thread ends a session by cancelling it (the buffer wakes
// the probe, an eventfd wakes the network thread) and joining the network thread, which has
// joined the probe.

#include "platform/native/stream/StreamSource.h"

#include "platform/GraphHelper.h"
#include "platform/native/filters/FFmpeg.h"
#include "platform/native/stream/Icy.h"
#include "platform/native/stream/StreamBuffer.h"

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <functional>
#include <mutex>
#include <thread>

#include <fcntl.h>
#include <netdb.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

namespace corvid::native {

namespace {

using OpenState = platform::StreamSourceControl::OpenState;
using Clock = std::chrono::steady_clock;

constexpr int kConnectDeadlineMs = 5000;
// Longer than the player's own 10 s wait, so that a silent server ends there, with the
// player's message; the deadline only frees the thread of a source nobody waits for.
constexpr int kAnswerDeadlineMs = 20000;
// No byte for this long while streaming: the server is gone; the stream ends.
constexpr int kIdleDeadlineMs = 15000;
// How often a connected session asks whether its filter is still in a graph.
constexpr int kOrphanCheckMs = 1000;
// The pre-roll before the probe: 32 kB (about 2 s at 128 kbit/s), or what came in the 2 s
// after the first byte, so that a stream of few bytes per second opens as soon.
constexpr size_t kPrerollBytes = 32 * 1024;
constexpr auto kPrerollTime = std::chrono::seconds(2);
// What ends a starvation while playing: 16 kB, or what came in 2 s.
constexpr size_t kRefillBytes = 16 * 1024;
constexpr auto kRefillTime = std::chrono::seconds(2);
constexpr size_t kCapacityBytes = 2u << 20;     // the most of a stream ever held
constexpr size_t kKeepBehindBytes = 256 * 1024; // for the probe's second look at the start
constexpr size_t kReceiveBytes = 16 * 1024;
constexpr size_t kMaxHeaderPages = 64 * 1024; // an Ogg stream's codec headers, kept for a reopen
// The duration by which a live stream is known (a year of minutes).
constexpr double kLiveDurationSeconds = 525600.0;

std::atomic<uint64_t> nextSerial{1};

// Everything one open shares between the control thread and its two threads.
struct Session {
    Session(icy::StreamAddress a, std::string text, std::shared_ptr<platform::EventLoop> l)
        : address(std::move(a)), addressText(std::move(text)), loop(std::move(l)),
          buffer(std::make_shared<StreamBuffer>(kCapacityBytes, kKeepBehindBytes)),
          wakeFd(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}
    ~Session() {
        if (wakeFd >= 0) ::close(wakeFd);
    }

    // Any thread: makes the network thread look at its flags.
    void wake() const {
        const uint64_t one = 1;
        if (wakeFd >= 0) [[maybe_unused]] auto n = ::write(wakeFd, &one, sizeof one);
    }
    void cancel() {
        cancelled = true;
        buffer->cancel();
        wake();
    }
    void setFailure(platform::Status status) {
        std::lock_guard lock(mutex);
        if (failure.ok()) failure = std::move(status);
    }

    const uint64_t serial = nextSerial++;
    const icy::StreamAddress address;
    const std::string addressText;
    const std::shared_ptr<platform::EventLoop> loop;
    const std::shared_ptr<StreamBuffer> buffer;
    const int wakeFd;
    std::atomic<bool> cancelled{false};
    std::thread network; // started and joined by the control thread
    // Any thread: asks the control thread whether the filter still stands in a graph.
    std::function<void()> orphanCheck;

    std::mutex mutex;                   // guards the two below
    std::vector<std::string> demuxers;  // from the content type, set before any audio
    platform::Status failure;           // why the network side gave up, first reason kept
};

std::string describe(const icy::StreamAddress& a) { return a.host + ":" + a.port; }

class NetworkStreamSource final : public NativeFilter, public platform::StreamSourceControl {
public:
    explicit NetworkStreamSource(const std::string& name) : NativeFilter(name) {}
    ~NetworkStreamSource() override { endSession(); }

    platform::StreamSourceControl* streamSource() override { return this; }
    bool isFileSource() const override { return true; }
    std::string fileName() const override { return address_; }
    // A file name is an address: setting it opens it (the outcome through openState()).
    Status setFileName(const std::string& fileName) override { return open(fileName); }

    // ---- StreamSourceControl (control thread) ----
    void registerCallback(platform::ShoutcastCallback* callback) override { callback_ = callback; }

    Status open(const std::string& address) override {
        if (state_ == OpenState::Opening || state_ == OpenState::Open)
            return Status::failure(hr::WrongState, "The stream source is already open.");
        icy::StreamAddress parsed;
        if (!icy::parseAddress(address, parsed))
            return Status::failure(hr::InvalidArg, "Not a stream address: " + address);
        auto loop = graph() ? graph()->loop() : nullptr;
        if (!loop) return Status::failure(hr::NotInGraph, "The stream source must be in a graph.");

        endSession();
        address_ = address;
        failure_ = Status::success();
        state_ = OpenState::Opening;
        session_ = std::make_shared<Session>(parsed, address, loop);
        buffer_ = session_->buffer;
        if (session_->wakeFd < 0) {
            fail(Status::failure(hr::Fail, "Cannot start the stream source: " +
                                               std::string(std::strerror(errno))));
            return Status::success();
        }
        std::weak_ptr<NativeFilter> self = weak_from_this();
        session_->orphanCheck = [loop, self, serial = session_->serial] {
            loop->post([self, serial] {
                auto f = std::static_pointer_cast<NetworkStreamSource>(self.lock());
                if (f && f->session_ && f->session_->serial == serial && !f->graph()) f->orphaned();
            });
        };
        session_->network = std::thread([s = session_, self] { runNetwork(s, self); });
        return Status::success();
    }

    OpenState openState() const override { return state_; }
    Status openFailure() const override { return failure_; }
    bool canCancel() const override { return state_ == OpenState::Opening; }

    Status cancel() override {
        if (!canCancel()) return Status::failure(hr::WrongState, "The stream is not opening.");
        endSession();
        fail(Status::failure(hr::Abort, "Opening the stream was cancelled."));
        return Status::success();
    }

    // ---- graph (control thread, produce on the streaming thread) ----
    std::vector<MediaType> outputTypes(NativePin&, NativePin*) override {
        if (!decoder_) return {};
        return {MediaType::pcmType(decoder_->outputFormat())};
    }
    bool isStreamHead() const override { return demuxer_ && output_ && output_->peer(); }
    double durationSeconds() const override {
        return state_ == OpenState::Open ? kLiveDurationSeconds : 0;
    }
    Status seekTo(double) override { return Status::success(); } // a live stream goes on

    Status activate() override {
        if (!buffer_) return Status::success();
        buffer_->resume();
        // A restart plays what is live now, not what piled up while stopped.
        if (played_) buffer_->skipToLive(kPrerollBytes);
        played_ = true;
        return Status::success();
    }

    void unblock() override {
        // A stop during a starvation ends that buffering phase without a resume.
        if (buffer_ && buffer_->interrupt()) postBuffering(100);
    }

    Produced produce(uint64_t generation) override {
        // A stop that cut a read short leaves FFmpeg's reader at its end for good (even when
        // the demuxer still made a packet of what it had): the next start opens the demuxer
        // again at the live edge.
        if (spent_ && !reopen()) return buffer_->takeReadCut() ? Produced::Data : Produced::End;
        auto packet = std::make_shared<Packet>();
        const bool more = demuxer_->read(packet->packet);
        if (buffer_->takeReadCut()) {
            spent_ = true;
            return Produced::Data; // the graph is stopping
        }
        decoder_->decode(more ? packet->packet : nullptr,
                         [&](std::vector<uint8_t>&& pcm, double time) {
                             Buffer buffer;
                             buffer.generation = generation;
                             buffer.time = time;
                             buffer.format = decoder_->outputFormat();
                             buffer.bytes = std::move(pcm);
                             deliverAll(buffer);
                         });
        return more ? Produced::Data : Produced::End;
    }

private:
    // ---- control thread ----
    void fail(Status status) {
        state_ = OpenState::Failed;
        failure_ = std::move(status);
    }

    // Cancels the session (if any) and waits for its threads.
    void endSession() {
        if (!session_) return;
        session_->cancel();
        if (session_->network.joinable()) session_->network.join();
        session_.reset();
    }

    // Taken out of its graph, or the graph is gone: nobody will play the stream, so no
    // connection may outlive the graph.
    void orphaned() {
        endSession();
        if (state_ == OpenState::Opening)
            fail(Status::failure(hr::Abort, "The stream source was taken out of its graph."));
    }

    void postBuffering(int32_t percent) {
        auto loop = session_ ? session_->loop : nullptr;
        if (!loop) return;
        std::weak_ptr<NativeFilter> self = weak_from_this();
        loop->post([self, percent] {
            auto f = std::static_pointer_cast<NetworkStreamSource>(self.lock());
            if (f && f->callback_) f->callback_->StreamBuffering(percent);
        });
    }

    void opened(std::shared_ptr<Demuxer> demuxer, std::shared_ptr<AudioDecoder> decoder,
                std::vector<std::string> demuxers, std::string headers) {
        demuxer_ = std::move(demuxer);
        demuxers_ = std::move(demuxers);
        headers_ = std::move(headers);
        decoder_ = std::move(decoder);
        spent_ = false;
        played_ = false;
        if (!output_) output_ = addPin("Audio", platform::PinDirection::Output);
        std::weak_ptr<Session> weak = session_;
        buffer_->goLive([weak] {
            if (auto s = weak.lock()) s->wake();
        });
        state_ = OpenState::Open;
        if (callback_) callback_->StreamBuffering(100);
    }

    // ---- streaming thread ----
    bool reopen() {
        buffer_->takeReadCut();
        std::unique_ptr<Demuxer> demuxer;
        buffer_->skipToLive(kPrerollBytes);
        auto view = std::make_shared<StreamView>(buffer_, buffer_->readPosition(), address_, headers_);
        if (!Demuxer::open(view, demuxers_, demuxer)) return false;
        demuxer_ = std::shared_ptr<Demuxer>(demuxer.release());
        decoder_->flush();
        spent_ = false;
        return true;
    }

    // ---- network and probe threads ----
    static void runNetwork(std::shared_ptr<Session> s, std::weak_ptr<NativeFilter> self);
    static void runProbe(const std::shared_ptr<Session>& s, const std::weak_ptr<NativeFilter>& self);
    // Runs `task` on the control thread if the filter still runs this session.
    template <class Task>
    static void post(const Session& s, const std::weak_ptr<NativeFilter>& self, Task task) {
        s.loop->post([self, serial = s.serial, task = std::move(task)]() mutable {
            auto f = std::static_pointer_cast<NetworkStreamSource>(self.lock());
            if (f && f->session_ && f->session_->serial == serial) task(*f);
        });
    }

    std::string address_;
    platform::ShoutcastCallback* callback_ = nullptr;
    OpenState state_ = OpenState::Idle;
    Status failure_;
    std::shared_ptr<Session> session_;
    std::shared_ptr<StreamBuffer> buffer_;
    std::vector<std::string> demuxers_;
    // An Ogg stream's codec header pages, which only its start carries: a demuxer opened
    // again mid-way reads them first.
    std::string headers_;
    NativePinPtr output_;
    // Streaming state: touched by the control thread only while no streaming thread runs.
    std::shared_ptr<Demuxer> demuxer_;
    std::shared_ptr<AudioDecoder> decoder_;
    bool spent_ = false;  // the demuxer's reader hit a stop and must be opened again
    bool played_ = false; // streamed before: a new start skips to the live edge
};


// ---------------------------------------------------------------- network thread

// Waits for `events` on `fd` until `deadline`; false on time-out, cancel or error.
// Woken: the session was cancelled or has a starvation to look at; the caller checks which.
enum class Ready { Yes, TimedOut, Woken, Failed };

// Waits for `events` on `fd` until `deadline`. Every second of waiting the session asks
// whether its filter is still in a graph.
Ready waitFor(const Session& s, int fd, short events, Clock::time_point deadline) {
    for (;;) {
        if (s.cancelled) return Ready::Woken;
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
        if (left <= 0) return Ready::TimedOut;
        pollfd fds[2] = {{fd, events, 0}, {s.wakeFd, POLLIN, 0}};
        const int n = ::poll(fds, 2, int(std::min<long long>(left, kOrphanCheckMs)));
        if (n < 0 && errno != EINTR) return Ready::Failed;
        if (n == 0) s.orphanCheck();
        if (fds[1].revents & POLLIN) {
            uint64_t count;
            [[maybe_unused]] auto r = ::read(s.wakeFd, &count, sizeof count);
            return Ready::Woken;
        }
        if (n > 0 && fds[0].revents) return Ready::Yes;
    }
}

Status connectTo(const Session& s, int& fd) {
    const auto& a = s.address;
    addrinfo hints{};
    hints.ai_family = AF_UNSPEC;
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_flags = AI_NUMERICSERV;
    addrinfo* found = nullptr;
    if (const int rc = ::getaddrinfo(a.host.c_str(), a.port.c_str(), &hints, &found); rc != 0)
        return Status::failure(hr::CannotConnect, "Cannot find the stream server " + describe(a) +
                                                      ": " + ::gai_strerror(rc) + ".");
    std::string why = "no address";
    const auto deadline = Clock::now() + std::chrono::milliseconds(kConnectDeadlineMs);
    for (addrinfo* ai = found; ai && fd < 0 && !s.cancelled; ai = ai->ai_next) {
        fd = ::socket(ai->ai_family, ai->ai_socktype | SOCK_CLOEXEC | SOCK_NONBLOCK, ai->ai_protocol);
        if (fd < 0) continue;
        int error = 0;
        if (::connect(fd, ai->ai_addr, ai->ai_addrlen) != 0) {
            error = errno;
            if (error == EINPROGRESS) {
                const Ready r = waitFor(s, fd, POLLOUT, deadline);
                socklen_t len = sizeof error;
                if (r == Ready::Yes) ::getsockopt(fd, SOL_SOCKET, SO_ERROR, &error, &len);
                else error = r == Ready::TimedOut ? ETIMEDOUT : r == Ready::Woken ? ECANCELED : EIO;
            }
        }
        if (error != 0) {
            why = std::strerror(error);
            ::close(fd);
            fd = -1;
        }
    }
    ::freeaddrinfo(found);
    if (fd >= 0) return Status::success();
    return Status::failure(hr::CannotConnect, "Cannot reach the stream server " + describe(a) + " (" + why + ").");
}

Status sendAll(const Session& s, int fd, const std::string& text, Clock::time_point deadline) {
    size_t sent = 0;
    while (sent < text.size()) {
        const ssize_t n = ::send(fd, text.data() + sent, text.size() - sent, MSG_NOSIGNAL);
        if (n > 0) {
            sent += size_t(n);
        } else if (n < 0 && (errno == EAGAIN || errno == EINTR)) {
            if (waitFor(s, fd, POLLOUT, deadline) != Ready::Yes)
                return Status::failure(hr::Timeout, "The stream server " + describe(s.address) + " takes no request.");
        } else {
            return Status::failure(hr::CannotConnect, "The stream server " + describe(s.address) + " closed the connection.");
        }
    }
    return Status::success();
}

// Reads the response head; what came after it (the start of the body) stays in `body`.
Status readHead(const Session& s, int fd, icy::ResponseHead& head, std::string& body) {
    const auto deadline = Clock::now() + std::chrono::milliseconds(kAnswerDeadlineMs);
    std::string received;
    char chunk[4096];
    for (;;) {
        if (const size_t length = icy::headLength(received)) {
            body = received.substr(length);
            return icy::parseHead(std::string_view(received).substr(0, length), head);
        }
        if (received.size() > icy::kMaxHeadBytes)
            return Status::failure(hr::InvalidFileFormat, "The stream server's answer has no end.");
        const ssize_t n = ::recv(fd, chunk, sizeof chunk, 0);
        if (n > 0) {
            received.append(chunk, size_t(n));
        } else if (n == 0) {
            return Status::failure(hr::CannotConnect, "The stream server " + describe(s.address) +
                                                          " closed the connection without answering.");
        } else if (errno != EAGAIN && errno != EINTR) {
            return Status::failure(hr::CannotConnect, "Reading from the stream server failed: " +
                                                          std::string(std::strerror(errno)) + ".");
        } else {
            const Ready r = waitFor(s, fd, POLLIN, deadline);
            if (r == Ready::TimedOut)
                return Status::failure(hr::Timeout, "The stream server " + describe(s.address) + " did not answer.");
            if (r == Ready::Failed)
                return Status::failure(hr::Fail, "Waiting for the stream server failed.");
            if (s.cancelled) return Status::failure(hr::Abort, "Opening the stream was cancelled.");
        }
    }
}

Status checkHead(const Session& s, const icy::ResponseHead& head, std::vector<std::string>& demuxers) {
    const std::string where = describe(s.address) + s.address.path;
    if (head.status == 404)
        return Status::failure(hr::FileNotFound, "The stream " + where + " does not exist (" + head.statusLine + ").");
    if (head.status == 401 || head.status == 403)
        return Status::failure(hr::AccessDenied, "The stream " + where + " is not open to us (" + head.statusLine + ").");
    if (head.status >= 300 && head.status < 400)
        return Status::failure(hr::Fail, "The stream " + where + " has moved (" + head.statusLine +
                                             "); redirections are not followed.");
    if (head.status != 200)
        return Status::failure(hr::Fail, "The stream server refused " + where + " (" + head.statusLine + ").");
    demuxers = icy::demuxersFor(head.contentType);
    if (demuxers.empty())
        return Status::failure(hr::UnknownFileType, "The address " + where + " serves " + head.contentType +
                                                        ", not audio.");
    return Status::success();
}

} // namespace

void NetworkStreamSource::runNetwork(std::shared_ptr<Session> s, std::weak_ptr<NativeFilter> self) {
    std::thread probe([&s, &self] { runProbe(s, self); });
    int fd = -1;
    auto buffering = [&](int32_t percent) {
        post(*s, self, [percent](NetworkStreamSource& f) {
            if (f.callback_) f.callback_->StreamBuffering(percent);
        });
    };

    Status status = connectTo(*s, fd);
    icy::ResponseHead head;
    std::string body;
    std::vector<std::string> demuxers;
    if (status) status = sendAll(*s, fd, icy::makeRequest(s->address),
                                 Clock::now() + std::chrono::milliseconds(kAnswerDeadlineMs));
    if (status) status = readHead(*s, fd, head, body);
    if (status) status = checkHead(*s, head, demuxers);
    if (status) {
        std::lock_guard lock(s->mutex);
        s->demuxers = demuxers;
    }

    int32_t reported = 0;  // the pre-roll's last report, then a starvation's
    bool starving = false;
    Clock::time_point starvedAt;
    std::string lastMeta;
    icy::MetadataSplitter splitter(head.metaInterval);
    auto take = [&](const uint8_t* data, size_t size) {
        splitter.feed(
            data, size, [&](const uint8_t* audio, size_t n) { s->buffer->append(audio, n); },
            [&](const std::string& meta) {
                if (meta == lastMeta) return; // a repeat says nothing new
                lastMeta = meta;
                post(*s, self, [meta](NetworkStreamSource& f) {
                    if (f.callback_)
                        f.callback_->MetaChangeCallback(icy::field(meta, "StreamTitle"),
                                                        icy::field(meta, "StreamUrl"), meta);
                });
            });
        // Progress of the pre-roll, in steps of ten, until the probe takes over.
        const int64_t written = s->buffer->written();
        if (written < int64_t(kPrerollBytes)) {
            const int32_t percent = std::max<int32_t>(1, int32_t(written * 100 / int64_t(kPrerollBytes)));
            if (percent / 10 > reported / 10 || reported == 0) buffering(reported = percent);
        }
    };
    // A starvation while playing: positive percents while refilling, -1 when playback resumes.
    auto watchStarvation = [&] {
        if (!s->buffer->starving()) {
            starving = false;
            return;
        }
        if (!starving) starvedAt = Clock::now();
        const size_t unread = s->buffer->unread();
        if (unread >= kRefillBytes || (unread > 0 && Clock::now() - starvedAt >= kRefillTime)) {
            if (s->buffer->endStarving()) buffering(-1);
            starving = false;
            return;
        }
        const int32_t percent = std::max<int32_t>(1, int32_t(unread * 100 / kRefillBytes));
        if (!starving || percent / 10 > reported / 10) buffering(reported = percent);
        starving = true;
    };

    if (status && !body.empty()) take(reinterpret_cast<const uint8_t*>(body.data()), body.size());
    auto idleSince = Clock::now();
    auto lastCheck = Clock::now();
    std::vector<uint8_t> chunk(kReceiveBytes);
    while (status && !s->cancelled) {
        if (Clock::now() - lastCheck >= std::chrono::milliseconds(kOrphanCheckMs)) {
            lastCheck = Clock::now();
            s->orphanCheck();
        }
        const ssize_t n = ::recv(fd, chunk.data(), chunk.size(), 0);
        if (n > 0) {
            take(chunk.data(), size_t(n));
            idleSince = Clock::now();
        } else if (n == 0) {
            status = Status::failure(hr::CannotConnect, "The stream server ended the stream.");
        } else if (errno != EAGAIN && errno != EINTR) {
            status = Status::failure(hr::CannotConnect, "Reading the stream failed: " +
                                                            std::string(std::strerror(errno)) + ".");
        } else {
            const Ready r = waitFor(*s, fd, POLLIN, idleSince + std::chrono::milliseconds(kIdleDeadlineMs));
            if (r == Ready::TimedOut)
                status = Status::failure(hr::Timeout, "The stream server stopped sending.");
            else if (r == Ready::Failed)
                status = Status::failure(hr::Fail, "Waiting for the stream failed.");
        }
        watchStarvation();
    }

    if (!status) s->setFailure(status);
    if (s->buffer->finish() && !s->cancelled) buffering(-1); // what is left plays out
    probe.join();
    if (fd >= 0) ::close(fd);
}

void NetworkStreamSource::runProbe(const std::shared_ptr<Session>& s, const std::weak_ptr<NativeFilter>& self) {
    if (!s->buffer->waitForBytes(1) || !s->buffer->waitForBytes(kPrerollBytes, Clock::now() + kPrerollTime))
        return; // cancelled
    std::vector<std::string> demuxers;
    Status failure;
    {
        std::lock_guard lock(s->mutex);
        demuxers = s->demuxers;
        failure = s->failure;
    }
    auto fail = [&](Status status) {
        if (s->cancelled) return;
        post(*s, self, [status](NetworkStreamSource& f) {
            if (f.state_ != OpenState::Opening) return;
            f.fail(status);
        });
    };
    if (s->buffer->written() == 0) {
        fail(failure.ok() ? Status::failure(hr::InvalidFileFormat, "The stream server sent no audio.") : failure);
        return;
    }
    std::unique_ptr<Demuxer> demuxer;
    std::unique_ptr<AudioDecoder> decoder;
    Status status = Demuxer::open(std::make_shared<StreamView>(s->buffer, 0, s->addressText), demuxers, demuxer);
    if (status) status = AudioDecoder::open(*demuxer->codec(), decoder);
    if (!status) {
        std::lock_guard lock(s->mutex);
        fail(s->failure.ok() ? status : s->failure); // a network failure explains a short stream best
        return;
    }
    const std::string start = s->buffer->copyStart(kMaxHeaderPages);
    std::string headers = start.substr(0, oggHeaderLength(reinterpret_cast<const uint8_t*>(start.data()), start.size()));
    post(*s, self, [d = std::shared_ptr<Demuxer>(std::move(demuxer)), c = std::shared_ptr<AudioDecoder>(std::move(decoder)),
                    demuxers, headers = std::move(headers)](NetworkStreamSource& f) mutable {
        if (f.state_ == OpenState::Opening) f.opened(d, c, demuxers, std::move(headers));
    });
}

NativeFilterPtr makeNetworkStreamSource(const std::string& name) {
    return std::make_shared<NetworkStreamSource>(name);
}

} // namespace corvid::native
