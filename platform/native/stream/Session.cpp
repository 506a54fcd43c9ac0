#include "platform/native/stream/Session.h"

#include "platform/native/filters/FFmpeg.h"

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <pthread.h>
#include <random>

namespace corvid::native {

using platform::Status;
namespace hr = platform::hr;
using namespace std::chrono_literals;

namespace {

// The pre-roll before the probe: 32 kB (about 2 s at 128 kbit/s), or what came in the 2 s
// after the first byte, so that a stream of few bytes per second opens as soon.
constexpr size_t kPrerollBytes = 32 * 1024;
constexpr auto kPrerollTime = 2s;
// What ends a starvation while playing: 16 kB, or 2 s with an eighth of that; a drip of a
// byte now and then does not end one.
constexpr size_t kRefillBytes = 16 * 1024;
constexpr auto kRefillTime = 2s;
constexpr size_t kCapacityBytes = 2u << 20;     // the most of a stream ever held
constexpr size_t kKeepBehindBytes = 256 * 1024; // for the probe's second look at the start
constexpr size_t kReceiveBytes = 16 * 1024;
constexpr size_t kMaxHeaderPages = 64 * 1024; // an Ogg stream's codec headers, kept for a reopen
constexpr auto kCheckEvery = 1s;
// Titles reach the host at most twice a second; a newer one waiting replaces the older.
constexpr auto kTitleSpacing = 500ms;
// The bit rate assumed for a stream that names none: 32 kbit/s.
constexpr int64_t kAssumedByteRate = 4000;

std::atomic<uint64_t> nextSerial{1};

std::mutex limitsMutex;
StreamLimits processLimits;

} // namespace

void setStreamLimits(const StreamLimits& limits) {
    std::lock_guard lock(limitsMutex);
    processLimits = limits;
}

StreamLimits streamLimits() {
    std::lock_guard lock(limitsMutex);
    return processLimits;
}

void streamLog(const std::string& line) { std::fprintf(stderr, "Corvid stream: %s\n", line.c_str()); }

StreamSession::StreamSession(icy::StreamAddress address, std::string addressText,
                             std::shared_ptr<platform::EventLoop> loop, std::weak_ptr<SessionOwner> owner, bool probe)
    : serial_(nextSerial++), address_(std::move(address)), addressText_(std::move(addressText)),
      loop_(std::move(loop)), owner_(std::move(owner)),
      buffer_(std::make_shared<StreamBuffer>(kCapacityBytes, kKeepBehindBytes)), limits_(streamLimits()),
      probe_(probe) {}

Status StreamSession::failure() {
    std::lock_guard lock(mutex_);
    return failure_;
}

StreamSession::~StreamSession() { stop(); }

Status StreamSession::start() {
    if (!waiter_.usable()) return Status::failure(hr::Fail, "Cannot start the stream source: no wakeup descriptor.");
    // Long waits (a server that never answers) still ask whether the filter stands in a graph.
    waiter_.setTick([this] { housekeeping(); });
    network_ = std::thread([this] { runNetwork(); });
    return Status::success();
}

void StreamSession::cancel() {
    waiter_.cancel();
    buffer_->cancel();
}

void StreamSession::stop() {
    cancel();
    if (network_.joinable()) network_.join();
}

void StreamSession::goLive() {
    live_ = true;
    // The buffer may outlive the session (a demuxer holds it): it wakes the session only
    // while there is one.
    auto wake = [weak = weak_from_this()] {
        if (auto s = weak.lock()) s->waiter_.wake();
    };
    buffer_->goLive(wake, wake);
}

template <class Task> void StreamSession::post(Task task) {
    if (owner_.expired()) return; // a reader's session tells nobody
    loop_->post([owner = owner_, serial = serial_, task = std::move(task)]() mutable {
        auto o = owner.lock();
        if (o && o->currentSession() == serial) task(*o);
    });
}

void StreamSession::postBuffering(int32_t percent) {
    post([percent](SessionOwner& o) { o.sessionBuffering(percent); });
}

// ---------------------------------------------------------------- network thread

void StreamSession::runNetwork() {
    // A server that closes while TLS writes must not kill the host with SIGPIPE.
    sigset_t pipe;
    sigemptyset(&pipe);
    sigaddset(&pipe, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &pipe, nullptr);

    std::thread probe;
    if (probe_) probe = std::thread([this] { runProbe(); });
    HttpAnswer answer;
    Status status = connect(answer, StreamClock::now() + limits_.answerDeadline);
    while (status && !waiter_.cancelled()) {
        bool finished = false;
        const Status ended = pump(answer, finished);
        if (finished || waiter_.cancelled()) break;
        // Before the stream is open, a drop is the open's failure; once live, it is retried.
        if (!live_ || !reconnect(answer, ended)) {
            status = ended;
            break;
        }
    }
    if (!status) {
        std::lock_guard lock(mutex_);
        if (failure_.ok()) failure_ = status;
    }
    if (buffer_->finish() && !waiter_.cancelled()) postBuffering(-1); // what is left plays out
    flushTitle(true);
    if (probe.joinable()) probe.join();
}

Status StreamSession::connect(HttpAnswer& answer, StreamClock::time_point deadline) {
    const auto now = StreamClock::now();
    connections_.erase(std::remove_if(connections_.begin(), connections_.end(),
                                      [&](auto t) { return now - t >= 1min; }),
                       connections_.end());
    connections_.push_back(now);
    answer = HttpAnswer{};
    Status s = requestStream(address_, waiter_, deadline, answer);
    if (!s) return s;
    std::vector<std::string> demuxers = icy::demuxersFor(answer.head.contentType);
    const bool page = answer.head.contentType.rfind("text/", 0) == 0;
    if (probe_ ? demuxers.empty() : page)
        return Status::failure(hr::UnknownFileType, "The address " + icy::describe(answer.address) + " serves " +
                                                        answer.head.contentType + ", not audio.");
    bitrateKbps_ = answer.head.bitrateKbps;
    std::lock_guard lock(mutex_);
    if (demuxers_.empty()) demuxers_ = std::move(demuxers);
    return Status::success();
}

Status StreamSession::pump(HttpAnswer& answer, bool& finished) {
    Connection& connection = *answer.connection;
    const icy::ResponseHead& head = answer.head;
    pumping_ = true;
    healthySince_ = StreamClock::time_point::max(); // from the first byte of audio on
    struct Done {
        bool& flag;
        ~Done() { flag = false; }
    } done{pumping_};
    icy::MetadataSplitter splitter(head.metaInterval);
    icy::ChunkedDecoder chunked;
    int64_t bodyLeft = head.chunked ? -1 : head.contentLength;
    int64_t windowBytes = 0;
    auto windowStart = StreamClock::now();
    auto lastByte = windowStart;

    auto audio = [&](const uint8_t* data, size_t size) {
        if (healthySince_ == StreamClock::time_point::max()) healthySince_ = StreamClock::now();
        buffer_->append(data, size);
        windowBytes += int64_t(size);
        // Progress of the pre-roll, in steps of ten, until the probe takes over.
        const int64_t written = buffer_->written();
        if (!live_ && written < int64_t(kPrerollBytes)) {
            const int32_t percent = std::max<int32_t>(1, int32_t(written * 100 / int64_t(kPrerollBytes)));
            if (percent / 10 > reported_ / 10 || reported_ == 0) postBuffering(reported_ = percent);
        }
    };
    auto body = [&](const uint8_t* data, size_t size) {
        splitter.feed(data, size, audio, [&](const std::string& block) { onMetadata(block); });
    };
    // False when the transfer coding is broken.
    auto take = [&](const uint8_t* data, size_t size) {
        if (bodyLeft >= 0) {
            size = size_t(std::min<int64_t>(bodyLeft, int64_t(size)));
            bodyLeft -= int64_t(size);
        }
        return head.chunked ? chunked.feed(data, size, body) : (body(data, size), true);
    };
    auto ended = [&] { return (head.chunked && chunked.ended()) || bodyLeft == 0; };

    if (!answer.bodyStart.empty() &&
        !take(reinterpret_cast<const uint8_t*>(answer.bodyStart.data()), answer.bodyStart.size()))
        return Status::failure(hr::InvalidFileFormat, "The stream server's chunked answer is malformed.");
    std::vector<uint8_t> chunk(kReceiveBytes);
    for (;;) {
        if (ended()) {
            finished = true;
            return Status::success();
        }
        if (waiter_.cancelled()) return Status::failure(hr::Abort, "Opening the stream was cancelled.");
        housekeeping();
        const auto now = StreamClock::now();

        // A full buffer: stop reading, so that the server meets TCP's back-pressure.
        if (buffer_->needsRoom()) {
            waiter_.wait(-1, 0, now + kCheckEvery);
            windowStart = lastByte = StreamClock::now();
            windowBytes = 0;
            continue;
        }
        // The watchdog: a drip or a trickle below the stream's own rate is no stream.
        if (!playing_) {
            windowStart = now;
            windowBytes = 0;
        } else if (live_ && now - windowStart >= limits_.watchWindow) {
            int64_t rate = bitrateKbps_ > 0 ? int64_t(bitrateKbps_) * 125 : byteRate_.load();
            if (rate <= 0) rate = kAssumedByteRate;
            const auto windowMs = std::chrono::duration_cast<std::chrono::milliseconds>(now - windowStart).count();
            const int64_t needed = rate * windowMs / 1000 / 2;
            // A slow server is judged once the deck has run dry and waits for it.
            if (windowBytes < needed && buffer_->starving())
                return Status::failure(hr::Timeout, "The stream server sent " + std::to_string(windowBytes) +
                                                        " bytes in " + std::to_string(windowMs) +
                                                        " ms, less than half of what the stream needs.");
            windowStart = now;
            windowBytes = 0;
        }
        if (!live_ && now - lastByte >= limits_.answerDeadline)
            return Status::failure(hr::Timeout, "The stream server stopped sending.");

        size_t got = 0;
        Status failure;
        switch (connection.readSome(chunk.data(), chunk.size(), got, failure)) {
        case Connection::Read::Data:
            lastByte = StreamClock::now();
            if (!take(chunk.data(), got))
                return Status::failure(hr::InvalidFileFormat, "The stream server's chunked answer is malformed.");
            break;
        case Connection::Read::End:
            if (head.contentLength >= 0 && !head.chunked) { // an item with an end, cut short or not
                finished = bodyLeft <= 0;
                if (finished) return Status::success();
            }
            return Status::failure(hr::CannotConnect, "The stream server ended the stream.");
        case Connection::Read::Failed: return failure;
        case Connection::Read::Again: {
            auto until = now + kCheckEvery;
            if (live_ && playing_) until = std::min(until, windowStart + limits_.watchWindow);
            if (titlePending_) until = std::min(until, lastTitleAt_ + kTitleSpacing);
            if (waiter_.wait(connection.fd(), connection.events(), until) == Waiter::Ready::Failed)
                return Status::failure(hr::Fail, "Waiting for the stream failed.");
            break;
        }
        }
    }
}

bool StreamSession::reconnect(HttpAnswer& answer, const Status& why) {
    // An outage lasts until a connection has brought healthy audio for a while.
    if (!inOutage_) outageStart_ = StreamClock::now();
    inOutage_ = true;
    const auto outageStart = outageStart_;
    streamLog("The stream " + addressText_ + " dropped (" + why.description + "); reconnecting.");
    std::minstd_rand random(std::random_device{}());
    std::uniform_real_distribution<double> jitter(0.8, 1.2);
    Status last = why;
    for (;;) {
        // Back-off with jitter, and never more connections a minute than allowed.
        auto delay = std::min(limits_.longestRetry, limits_.firstRetry * (1 << std::min(backoffStep_, 8)));
        ++backoffStep_;
        auto at = StreamClock::now() + std::chrono::duration_cast<StreamClock::duration>(delay * jitter(random));
        if (int(connections_.size()) >= limits_.connectionsPerMinute)
            at = std::max(at, connections_[connections_.size() - size_t(limits_.connectionsPerMinute)] + 1min);
        if (at - outageStart >= limits_.outageLimit) {
            streamLog("The stream " + addressText_ + " stayed down for " +
                      std::to_string(std::chrono::duration_cast<std::chrono::seconds>(limits_.outageLimit).count()) +
                      " s (" + last.description + "); it ends.");
            return false;
        }
        while (StreamClock::now() < at && !waiter_.cancelled()) {
            waiter_.wait(-1, 0, std::min(at, StreamClock::now() + kCheckEvery));
            housekeeping();
        }
        if (waiter_.cancelled()) return false;
        last = connect(answer, std::min(StreamClock::now() + limits_.answerDeadline, outageStart + limits_.outageLimit));
        if (last) {
            streamLog("The stream " + addressText_ + " is back.");
            return true;
        }
    }
}

void StreamSession::housekeeping() {
    const auto now = StreamClock::now();
    if (now - lastCheck_ >= kCheckEvery) {
        lastCheck_ = now;
        post([](SessionOwner& o) { o.sessionCheck(); });
        // Healthy audio for long enough: the next drop starts its back-off afresh.
        if (pumping_ && !starving_ && now - healthySince_ >= limits_.healthyAfter) {
            backoffStep_ = 0;
            inOutage_ = false;
        }
    }
    watchStarvation();
    flushTitle(false);
}

// A starvation while playing: positive percents while refilling, -1 when playback resumes.
void StreamSession::watchStarvation() {
    if (!buffer_->starving()) {
        starving_ = false;
        return;
    }
    if (!starving_) starvedAt_ = StreamClock::now();
    healthySince_ = std::max(healthySince_, StreamClock::now()); // a deck that runs dry is not healthy
    const size_t unread = buffer_->unread();
    if (unread >= kRefillBytes || (unread >= kRefillBytes / 8 && StreamClock::now() - starvedAt_ >= kRefillTime)) {
        if (buffer_->endStarving()) postBuffering(-1);
        starving_ = false;
        return;
    }
    const int32_t percent = std::max<int32_t>(1, int32_t(unread * 100 / kRefillBytes));
    if (!starving_ || percent / 10 > reported_ / 10) postBuffering(reported_ = percent);
    starving_ = true;
}

// A title reaches the host only when its text changes, and at most twice a second.
void StreamSession::onMetadata(const std::string& block) {
    if (block.find("StreamTitle='") == std::string::npos) return;
    std::string title = icy::field(block, "StreamTitle");
    std::string url = icy::field(block, "StreamUrl");
    std::string whole = block;
    const bool cleaned = icy::cleanText(title) | icy::cleanText(url) | icy::cleanText(whole);
    if (cleaned && !cleanedLogged_) {
        cleanedLogged_ = true;
        streamLog("The stream " + addressText_ + " sends titles that are not clean UTF-8 text; they are cleaned.");
    }
    const bool same = titlePending_ ? (title == pendingTitle_ && url == pendingUrl_)
                                    : (title == lastTitle_ && url == lastUrl_ && lastTitleAt_ != StreamClock::time_point{});
    if (same) return;
    titlePending_ = true;
    pendingTitle_ = std::move(title);
    pendingUrl_ = std::move(url);
    pendingWhole_ = std::move(whole);
    flushTitle(false);
}

void StreamSession::flushTitle(bool force) {
    if (!titlePending_) return;
    const auto now = StreamClock::now();
    if (!force && now - lastTitleAt_ < kTitleSpacing) return;
    titlePending_ = false;
    if (pendingTitle_ == lastTitle_ && pendingUrl_ == lastUrl_ && lastTitleAt_ != StreamClock::time_point{}) return;
    lastTitleAt_ = now;
    lastTitle_ = pendingTitle_;
    lastUrl_ = pendingUrl_;
    post([title = pendingTitle_, url = pendingUrl_, whole = std::move(pendingWhole_)](SessionOwner& o) {
        o.sessionTitle(title, url, whole);
    });
}

// ---------------------------------------------------------------- probe thread

void StreamSession::runProbe() {
    if (!buffer_->waitForBytes(1) || !buffer_->waitForBytes(kPrerollBytes, StreamClock::now() + kPrerollTime))
        return; // cancelled
    std::vector<std::string> demuxers;
    Status failure;
    {
        std::lock_guard lock(mutex_);
        demuxers = demuxers_;
        failure = failure_;
    }
    auto fail = [&](Status status) {
        if (waiter_.cancelled()) return;
        post([status](SessionOwner& o) { o.sessionFailed(status); });
    };
    if (buffer_->written() == 0) {
        fail(failure.ok() ? Status::failure(hr::InvalidFileFormat, "The stream server sent no audio.") : failure);
        return;
    }
    std::unique_ptr<Demuxer> demuxer;
    std::unique_ptr<AudioDecoder> decoder;
    Status status = Demuxer::open(std::make_shared<StreamView>(buffer_, 0, addressText_), demuxers, demuxer);
    if (status) status = AudioDecoder::open(*demuxer->codec(), decoder);
    if (!status) {
        std::lock_guard lock(mutex_);
        fail(failure_.ok() ? status : failure_); // a network failure explains a short stream best
        return;
    }
    if (const int64_t bitRate = demuxer->codec()->params->bit_rate; bitRate > 0) byteRate_ = bitRate / 8;
    const std::string start = buffer_->copyStart(kMaxHeaderPages);
    OpenedStream opened;
    opened.headers = start.substr(0, oggHeaderLength(reinterpret_cast<const uint8_t*>(start.data()), start.size()));
    opened.demuxer = std::shared_ptr<Demuxer>(std::move(demuxer));
    opened.decoder = std::shared_ptr<AudioDecoder>(std::move(decoder));
    opened.demuxers = std::move(demuxers);
    post([opened = std::move(opened)](SessionOwner& o) mutable { o.sessionOpened(opened); });
}

} // namespace corvid::native
