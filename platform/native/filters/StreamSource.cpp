// "_DShowShoutCast": the network stream source. open() starts a network thread that asks the
// server for the stream (HTTP, with ICY metadata), takes the metadata out of the audio,
// buffers, reports the buffering progress, and once enough has arrived reads the stream's
// header and decoder. The control thread then gets the output pin, which delivers decoded PCM
// (the stream chain connects it to the renderer with no decoder between).
//
// Callbacks (buffering, metadata) and the outcome of the open are posted to the control
// thread; the network thread never touches the filter's pins.

#include "platform/GraphHelper.h"
#include "platform/native/filters/FFmpeg.h"
#include "platform/native/filters/Filters.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>

#include <fcntl.h>
#include <netdb.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace corvid::native {

namespace {

using OpenState = platform::StreamSourceControl::OpenState;

constexpr int kConnectTimeoutMs = 5000;
constexpr size_t kPrebufferBytes = 32 * 1024;   // what must arrive before the header is read
constexpr size_t kMaxQueuedBytes = 4u << 20;      // never hold more than this of a stream
constexpr size_t kKeptBehindBytes = 256 * 1024;   // already read, kept for the probe's re-reads
constexpr size_t kMaxHeaderBytes = 16 * 1024;
// The demuxers a stream may use: MPEG audio, ADTS AAC, Ogg.
const std::vector<std::string> kStreamFormats = {"mp3", "aac", "ogg"};

struct Address {
    std::string host, port, path;
};

bool parseAddress(const std::string& address, Address& out) {
    const auto scheme = address.find("://");
    if (scheme == std::string::npos) return false;
    std::string rest = address.substr(scheme + 3);
    const auto slash = rest.find('/');
    std::string hostPort = rest.substr(0, slash);
    out.path = slash == std::string::npos ? "/" : rest.substr(slash);
    const auto colon = hostPort.rfind(':');
    if (colon != std::string::npos && hostPort.find(']') == std::string::npos) {
        out.host = hostPort.substr(0, colon);
        out.port = hostPort.substr(colon + 1);
    } else {
        out.host = hostPort;
        out.port = "80";
    }
    return !out.host.empty() && !out.port.empty();
}

// "StreamTitle='Artist - Title';StreamUrl='http://...';"
std::string icyField(const std::string& meta, const std::string& name) {
    const std::string key = name + "='";
    const auto start = meta.find(key);
    if (start == std::string::npos) return {};
    const auto from = start + key.size();
    const auto end = meta.find("';", from);
    return meta.substr(from, end == std::string::npos ? std::string::npos : end - from);
}

// The bytes received so far, read by offset: the network thread appends, the demuxer reads
// (waiting for bytes not yet there). Bytes far behind the reader are dropped.
class StreamBytes final : public ByteReader {
public:
    int64_t size() const override { return -1; }
    bool seekable() const override { return false; }
    std::string path() const override { return address; }

    int read(int64_t offset, uint8_t* destination, int count) override {
        std::unique_lock lock(mutex);
        auto ready = [&] {
            return interrupted || cancelled || ended || offset < base + int64_t(data.size());
        };
        if (!ready() && playing && onBuffering) {
            // The stream ran dry while playing: buffer again, and say how far it got.
            int reported = 0;
            lock.unlock();
            onBuffering(0);
            lock.lock();
            auto refilled = [&] {
                return interrupted || cancelled || ended ||
                       base + int64_t(data.size()) - offset >= int64_t(kPrebufferBytes);
            };
            while (!refilled()) {
                wake.wait(lock);
                const int64_t have = base + int64_t(data.size()) - offset;
                const int percent = int(std::clamp<int64_t>(have * 100 / int64_t(kPrebufferBytes), 0, 99));
                if (percent / 10 > reported / 10) {
                    reported = percent;
                    lock.unlock();
                    onBuffering(percent);
                    lock.lock();
                }
            }
            lock.unlock();
            onBuffering(100);
            lock.lock();
        }
        wake.wait(lock, ready);
        if (offset < base) return -1;
        const int64_t available = base + int64_t(data.size()) - offset;
        if (available <= 0) return (ended && !interrupted && !cancelled) ? 0 : -1;
        const int n = int(std::min<int64_t>(available, count));
        std::copy_n(data.begin() + (offset - base), n, destination);
        readTo = std::max(readTo, offset + n);
        // Keep a window behind the reader for the type probe's second look; drop the rest.
        const int64_t keepFrom = readTo - int64_t(kKeptBehindBytes);
        while (base < keepFrom && !data.empty()) {
            const auto drop = size_t(std::min<int64_t>(keepFrom - base, int64_t(data.size())));
            data.erase(data.begin(), data.begin() + long(drop));
            base += int64_t(drop);
        }
        return n;
    }

    // Network thread. A reader that falls further behind than the limit loses the oldest bytes.
    void append(const uint8_t* bytes, size_t n) {
        {
            std::lock_guard lock(mutex);
            if (data.size() + n > kMaxQueuedBytes) {
                const size_t drop = std::min(data.size(), data.size() + n - kMaxQueuedBytes);
                data.erase(data.begin(), data.begin() + long(drop));
                base += int64_t(drop);
            }
            data.insert(data.end(), bytes, bytes + n);
        }
        wake.notify_all();
    }
    size_t queued() {
        std::lock_guard lock(mutex);
        return size_t(base + int64_t(data.size()) - readTo);
    }
    // Stored under the lock, so that a waiting reader cannot miss the change.
    void set(std::atomic<bool> StreamBytes::*flag, bool value) {
        {
            std::lock_guard lock(mutex);
            this->*flag = value;
        }
        wake.notify_all();
    }

    std::string address;
    std::mutex mutex;
    std::condition_variable wake;
    std::deque<uint8_t> data;
    int64_t base = 0, readTo = 0;
    // Read without the lock by the network thread; see set().
    std::atomic<bool> ended{false}, cancelled{false}, interrupted{false};
    std::atomic<bool> playing{false}; // the stream is open: a dry spell now is rebuffering
    std::function<void(int)> onBuffering; // any thread; posts to the control thread
};

class StreamSourceFilter final : public NativeFilter, public platform::StreamSourceControl {
public:
    explicit StreamSourceFilter(const std::string& name) : NativeFilter(name) {}

    ~StreamSourceFilter() override { shutdownNetwork(); }

    platform::StreamSourceControl* streamSource() override { return this; }
    bool isFileSource() const override { return true; }
    std::string fileName() const override { return address_; }
    Status setFileName(const std::string& fileName) override { return open(fileName); }

    // --- control ---
    void registerCallback(platform::ShoutcastCallback* callback) override { callback_ = callback; }

    Status open(const std::string& address) override {
        if (state_ == OpenState::Opening || state_ == OpenState::Open)
            return Status::failure(hr::WrongState, "The stream source is already open.");
        Address parsed;
        if (!parseAddress(address, parsed))
            return Status::failure(hr::InvalidArg, "Not a stream address: " + address);
        auto loop = graph() ? graph()->loop() : nullptr;
        if (!loop) return Status::failure(hr::NotInGraph, "The stream source must be in a graph.");
        shutdownNetwork();
        bytes_ = std::make_shared<StreamBytes>();
        bytes_->address = address;
        std::weak_ptr<NativeFilter> weakSelf = weak_from_this();
        bytes_->onBuffering = [loop, weakSelf, bytes = std::weak_ptr<StreamBytes>(bytes_)](int percent) {
            loop->post([weakSelf, bytes, percent] {
                auto f = std::static_pointer_cast<StreamSourceFilter>(weakSelf.lock());
                if (f && f->bytes_ == bytes.lock() && f->callback_) f->callback_->StreamBuffering(percent);
            });
        };
        address_ = address;
        state_ = OpenState::Opening;
        failure_ = Status::success();
        std::weak_ptr<NativeFilter> self = weak_from_this();
        network_ = std::thread([this, parsed, loop, self, bytes = bytes_] {
            receive(parsed, std::move(loop), self, bytes);
        });
        return Status::success();
    }

    OpenState openState() const override { return state_; }
    Status openFailure() const override { return failure_; }
    bool canCancel() const override { return state_ == OpenState::Opening; }

    Status cancel() override {
        if (!canCancel()) return Status::failure(hr::WrongState, "Nothing to cancel.");
        shutdownNetwork();
        state_ = OpenState::Failed;
        failure_ = Status::failure(hr::Abort, "Opening the stream was cancelled.");
        return Status::success();
    }

    // --- graph ---
    std::vector<MediaType> outputTypes(NativePin&, NativePin*) override {
        if (!decoder_) return {};
        return {MediaType::pcmType(decoder_->outputFormat())};
    }
    bool isStreamHead() const override { return demuxer_ && output_ && output_->peer(); }
    Status activate() override {
        if (bytes_) bytes_->set(&StreamBytes::interrupted, false);
        return Status::success();
    }
    void unblock() override {
        if (bytes_) bytes_->set(&StreamBytes::interrupted, true);
    }
    Status seekTo(double) override { return Status::success(); } // a live stream goes on

    Produced produce(uint64_t generation) override {
        auto packet = std::make_shared<Packet>();
        const bool more = demuxer_->read(packet->packet);
        if (!more && bytes_->interrupted) return Produced::Data; // stopping: not an end
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
    // Network thread.
    void receive(Address address, std::shared_ptr<platform::EventLoop> loop,
                 std::weak_ptr<NativeFilter> self, std::shared_ptr<StreamBytes> bytes) {
        auto post = [&](std::function<void(StreamSourceFilter&)> task) {
            loop->post([self, task = std::move(task)] {
                if (auto f = std::static_pointer_cast<StreamSourceFilter>(self.lock())) task(*f);
            });
        };
        auto fail = [&](Status status) {
            post([status, bytes](StreamSourceFilter& f) {
                if (f.bytes_ != bytes || f.state_ != OpenState::Opening) return;
                f.state_ = OpenState::Failed;
                f.failure_ = status;
            });
        };
        auto buffering = [&](int percent) {
            post([percent, bytes](StreamSourceFilter& f) {
                if (f.bytes_ == bytes && f.callback_) f.callback_->StreamBuffering(percent);
            });
        };

        const int fd = connectTo(address, *bytes);
        if (fd < 0) {
            if (!bytes->cancelled)
                fail(Status::failure(hr::CannotConnect, "Cannot reach the stream server " +
                                                            address.host + ":" + address.port + "."));
            return;
        }
        {
            std::lock_guard lock(socketMutex_);
            socket_ = fd;
        }
        if (bytes->cancelled) return;
        const std::string request = "GET " + address.path + " HTTP/1.0\r\nHost: " + address.host +
                                    "\r\nUser-Agent: Corvid\r\nIcy-MetaData: 1\r\nAccept: */*\r\n\r\n";
        if (::send(fd, request.data(), request.size(), MSG_NOSIGNAL) != ssize_t(request.size())) {
            fail(Status::failure(hr::CannotConnect, "The stream server closed the connection."));
            return;
        }

        // Response header.
        std::string header;
        uint8_t chunk[16384];
        std::vector<uint8_t> leftover;
        while (header.find("\r\n\r\n") == std::string::npos) {
            const ssize_t n = ::recv(fd, chunk, sizeof chunk, 0);
            if (n <= 0 || header.size() > kMaxHeaderBytes) {
                if (!bytes->cancelled)
                    fail(Status::failure(hr::CannotConnect, "The stream server sent no answer."));
                return;
            }
            header.append(reinterpret_cast<char*>(chunk), size_t(n));
        }
        const auto end = header.find("\r\n\r\n") + 4;
        leftover.assign(header.begin() + long(end), header.end());
        header.resize(end);
        const auto firstLine = header.substr(0, header.find("\r\n"));
        if (firstLine.find(" 200") == std::string::npos) {
            fail(Status::failure(hr::FileNotFound, "The stream server answered: " + firstLine));
            return;
        }
        size_t metaInterval = 0;
        {
            std::string lower = header;
            for (auto& c : lower) c = char(std::tolower(static_cast<unsigned char>(c)));
            const auto at = lower.find("icy-metaint:");
            if (at != std::string::npos) metaInterval = size_t(std::strtoul(lower.c_str() + at + 12, nullptr, 10));
        }

        // Body: audio bytes, with a metadata block after every metaInterval of them. The header
        // is read on a thread of its own, since reading it may wait for more of the body.
        bool opened = false;
        std::thread opener;
        int reported = -1;
        size_t untilMeta = metaInterval;
        std::vector<uint8_t> pending = std::move(leftover);
        buffering(0);
        for (;;) {
            size_t at = 0;
            while (at < pending.size()) {
                if (metaInterval == 0 || untilMeta > 0) {
                    const size_t n = metaInterval ? std::min(untilMeta, pending.size() - at) : pending.size() - at;
                    bytes->append(pending.data() + at, n);
                    at += n;
                    if (metaInterval) untilMeta -= n;
                    continue;
                }
                const size_t length = size_t(pending[at]) * 16; // a metadata block
                if (pending.size() - at < 1 + length) break;    // wait for the rest of it
                if (length > 0) {
                    std::string meta(reinterpret_cast<char*>(pending.data() + at + 1), length);
                    meta.erase(std::find(meta.begin(), meta.end(), '\0'), meta.end());
                    post([meta, bytes](StreamSourceFilter& f) {
                        if (f.bytes_ == bytes && f.callback_)
                            f.callback_->MetaChangeCallback(icyField(meta, "StreamTitle"),
                                                            icyField(meta, "StreamUrl"), meta);
                    });
                }
                at += 1 + length;
                untilMeta = metaInterval;
            }
            pending.erase(pending.begin(), pending.begin() + long(at));

            if (!opened) {
                const size_t queued = bytes->queued();
                const int percent = int(std::min<size_t>(100, queued * 100 / kPrebufferBytes));
                if (percent / 10 != reported / 10 && percent < 100) buffering(reported = percent);
                if (queued >= kPrebufferBytes) {
                    opened = true;
                    opener = std::thread([&] { openStream(bytes, post, fail, buffering); });
                }
            }
            const ssize_t n = ::recv(fd, chunk, sizeof chunk, 0);
            if (n <= 0) break;
            pending.insert(pending.end(), chunk, chunk + n);
        }
        bytes->set(&StreamBytes::ended, true);
        if (!opened && !bytes->cancelled) openStream(bytes, post, fail, buffering);
        if (opener.joinable()) opener.join();
    }

    template <class Post, class Fail, class Buffering>
    void openStream(const std::shared_ptr<StreamBytes>& bytes, Post& post, Fail& fail, Buffering& buffering) {
        std::unique_ptr<Demuxer> demuxer;
        Status s = Demuxer::open(bytes, kStreamFormats, demuxer);
        std::unique_ptr<AudioDecoder> decoder;
        if (s) s = AudioDecoder::open(*demuxer->codec(), decoder);
        if (!s) {
            fail(s);
            return;
        }
        buffering(100);
        bytes->set(&StreamBytes::playing, true);
        std::shared_ptr<Demuxer> d(demuxer.release());
        std::shared_ptr<AudioDecoder> c(decoder.release());
        post([d, c, bytes](StreamSourceFilter& f) {
            if (f.bytes_ != bytes || f.state_ != OpenState::Opening) return;
            f.demuxer_ = d;
            f.decoder_ = c;
            if (!f.output_) f.output_ = f.addPin("Audio", platform::PinDirection::Output);
            f.state_ = OpenState::Open;
        });
    }

    static int connectTo(const Address& address, StreamBytes& bytes) {
        addrinfo hints{};
        hints.ai_family = AF_UNSPEC;
        hints.ai_socktype = SOCK_STREAM;
        addrinfo* found = nullptr;
        if (::getaddrinfo(address.host.c_str(), address.port.c_str(), &hints, &found) != 0) return -1;
        int fd = -1;
        for (addrinfo* a = found; a && fd < 0 && !bytes.cancelled; a = a->ai_next) {
            fd = ::socket(a->ai_family, a->ai_socktype | SOCK_CLOEXEC | SOCK_NONBLOCK, a->ai_protocol);
            if (fd < 0) continue;
            if (::connect(fd, a->ai_addr, a->ai_addrlen) != 0 && errno != EINPROGRESS) {
                ::close(fd);
                fd = -1;
                continue;
            }
            // Wait in short steps, so that a cancel is not held up by a silent host.
            int ready = 0;
            for (int waited = 0; waited < kConnectTimeoutMs && ready == 0 && !bytes.cancelled; waited += 50) {
                pollfd p{fd, POLLOUT, 0};
                ready = ::poll(&p, 1, 50);
            }
            int error = 0;
            socklen_t len = sizeof error;
            if (ready != 1 ||
                ::getsockopt(fd, SOL_SOCKET, SO_ERROR, &error, &len) != 0 || error != 0) {
                ::close(fd);
                fd = -1;
                continue;
            }
            const int flags = ::fcntl(fd, F_GETFL);
            ::fcntl(fd, F_SETFL, flags & ~O_NONBLOCK);
        }
        ::freeaddrinfo(found);
        return fd;
    }

    // Control thread: ends the network thread (cancelling an open in progress).
    void shutdownNetwork() {
        if (bytes_) bytes_->set(&StreamBytes::cancelled, true);
        {
            std::lock_guard lock(socketMutex_);
            if (socket_ >= 0) ::shutdown(socket_, SHUT_RDWR);
        }
        if (network_.joinable()) network_.join();
        std::lock_guard lock(socketMutex_);
        if (socket_ >= 0) ::close(socket_);
        socket_ = -1;
    }

    std::string address_;
    platform::ShoutcastCallback* callback_ = nullptr;
    OpenState state_ = OpenState::Idle;
    Status failure_;
    std::shared_ptr<StreamBytes> bytes_;
    std::shared_ptr<Demuxer> demuxer_;
    std::shared_ptr<AudioDecoder> decoder_;
    NativePinPtr output_;
    std::thread network_;
    std::mutex socketMutex_;
    int socket_ = -1;
};

} // namespace

NativeFilterPtr makeStreamSource(const std::string& name) {
    return std::make_shared<StreamSourceFilter>(name);
}

} // namespace corvid::native
