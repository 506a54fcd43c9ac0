#pragma once
// The fake stream server of the native tests, on 127.0.0.1: good answers and hostile ones.

#include "NativeTestSupport.h"

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <fstream>
#include <mutex>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace corvid::native::test {

// The stream server of these tests, on 127.0.0.1. It serves every connection the same way,
// one at a time, for as long as it lives, and counts them and the bytes it sent. Every wait
// in it is bounded by its own stop.
class StreamServer {
public:
    enum class Mode {
        File,         // ICY, the whole file with a Content-Length (an item with an end), title first
        Held,         // the same, holding after `holdAfter` body bytes until release()
        NotFound,     // answers HTTP 404
        Silent,       // takes the connection and never answers
        Stall,        // 3 s of audio, then nothing
        Drip,         // 3 s of audio, then a byte every 2 s
        Trickle,      // 3 s of audio, then 1 kB/s
        Drop,         // 200 bytes of audio, then closes
        Flood,        // the file over and over, as fast as the socket takes it
        RedirectLoop, // 302 to /a, /a to /b, /b to /a
        RedirectTo,   // 302 to `location`
        Chunked,      // HTTP/1.1, chunked, the whole file; the connection stays open
        TinyInterval, // icy-metaint: 1 and garbage
        TitleFlood,   // icy-metaint: 256 and a new title (in Latin-1) in every block
    };
    explicit StreamServer(Mode mode, const std::string& file = "", std::string contentType = "audio/mpeg",
                        size_t holdAfter = 0, std::string location = "")
        : mode_(mode), contentType_(std::move(contentType)), holdAfter_(holdAfter), location_(std::move(location)) {
        std::ifstream in(file, std::ios::binary);
        audio_.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
        listener_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_in a{};
        a.sin_family = AF_INET;
        a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        ::bind(listener_, reinterpret_cast<sockaddr*>(&a), sizeof a);
        ::listen(listener_, 8);
        socklen_t len = sizeof a;
        ::getsockname(listener_, reinterpret_cast<sockaddr*>(&a), &len);
        port_ = ntohs(a.sin_port);
        thread_ = std::thread([this] { run(); });
    }
    ~StreamServer() {
        stop_ = true;
        release();
        thread_.join();
        ::close(listener_);
    }
    std::string address(const std::string& path = "/live.mp3") const {
        return "icystream://127.0.0.1:" + std::to_string(port_) + path;
    }
    int port() const { return port_; }
    int connections() const { return connections_; }
    int64_t bytesSent() const { return sent_; }
    std::string request() const {
        std::lock_guard lock(mutex_);
        return request_;
    }
    void release() {
        std::lock_guard lock(mutex_);
        released_ = true;
        wake_.notify_all();
    }

private:
    void run() {
        while (!stop_) {
            pollfd p{listener_, POLLIN, 0};
            if (::poll(&p, 1, 50) != 1) continue;
            const int fd = ::accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
            if (fd < 0) continue;
            ++connections_;
            serve(fd);
            ::close(fd);
        }
    }
    // Sends all of `data` unless the server stops or the client goes.
    bool send(int fd, const std::string& data) {
        for (size_t at = 0; at < data.size();) {
            pollfd p{fd, POLLOUT, 0};
            if (stop_) return false;
            if (::poll(&p, 1, 50) != 1) continue;
            const ssize_t n = ::send(fd, data.data() + at, data.size() - at, MSG_NOSIGNAL | MSG_DONTWAIT);
            if (n < 0 && errno != EAGAIN) return false;
            if (n > 0) at += size_t(n), sent_ += n;
        }
        return true;
    }
    bool pause(int ms) {
        std::unique_lock lock(mutex_);
        return !wake_.wait_for(lock, std::chrono::milliseconds(ms), [&] { return stop_.load(); });
    }
    std::string audio(size_t from, size_t n) const {
        return from >= audio_.size() ? "" : std::string(audio_.data() + from, std::min(n, audio_.size() - from));
    }
    // The audio with a metadata block after every `interval` bytes: the title in the first.
    std::string icyBody(size_t interval) const {
        std::string meta = std::string("StreamTitle='") + kStreamTitle + "';StreamUrl='http://127.0.0.1/';";
        meta.resize((meta.size() + 15) / 16 * 16, '\0');
        std::string body;
        for (size_t at = 0; at < audio_.size(); at += interval) {
            body += audio(at, interval);
            if (at + interval <= audio_.size()) body += at == 0 ? char(meta.size() / 16) + meta : std::string(1, '\0');
        }
        return body;
    }

    void serve(int fd) {
        std::string request;
        char buf[2048];
        for (int i = 0; i < 40 && request.find("\r\n\r\n") == std::string::npos && !stop_; ++i) {
            pollfd p{fd, POLLIN, 0};
            if (::poll(&p, 1, 50) != 1) continue;
            const ssize_t n = ::recv(fd, buf, sizeof buf, 0);
            if (n <= 0) return;
            request.append(buf, size_t(n));
        }
        {
            std::lock_guard lock(mutex_);
            if (request_.empty()) request_ = request;
        }
        const std::string path = request.substr(4, request.find(' ', 4) - 4);
        const std::string icy = "ICY 200 OK\r\nicy-name: Corvid Test\r\nicy-br: 128\r\ncontent-type: " + contentType_ + "\r\n";
        constexpr size_t kThreeSeconds = 48000; // at 128 kbit/s
        switch (mode_) {
        case Mode::File:
        case Mode::Held: {
            const std::string body = icyBody(8192);
            const size_t hold = mode_ == Mode::Held ? std::min(holdAfter_, body.size()) : body.size();
            if (!send(fd, icy + "icy-metaint: 8192\r\ncontent-length: " + std::to_string(body.size()) + "\r\n\r\n") ||
                !send(fd, body.substr(0, hold)))
                return;
            {
                std::unique_lock lock(mutex_);
                wake_.wait_for(lock, std::chrono::seconds(20), [&] { return released_ || mode_ == Mode::File; });
            }
            send(fd, body.substr(hold));
            return;
        }
        case Mode::NotFound: send(fd, "HTTP/1.0 404 File Not Found\r\n\r\n"); return;
        case Mode::Silent:
            while (pause(1000)) {
            }
            return;
        case Mode::Stall:
        case Mode::Drip:
        case Mode::Trickle: {
            if (!send(fd, icy + "\r\n" + audio(0, kThreeSeconds))) return;
            for (size_t at = kThreeSeconds; pause(mode_ == Mode::Drip ? 2000 : 100);) {
                if (mode_ == Mode::Stall) continue;
                const size_t n = mode_ == Mode::Drip ? 1 : 100;
                if (!send(fd, audio(at, n))) return;
                at += n;
            }
            return;
        }
        case Mode::Drop: send(fd, icy + "\r\n" + audio(0, 200)); return;
        case Mode::Flood:
            if (!send(fd, icy + "\r\n")) return;
            while (send(fd, std::string(audio_.begin(), audio_.end()))) {
            }
            return;
        case Mode::RedirectLoop:
        case Mode::RedirectTo: {
            const std::string to = mode_ == Mode::RedirectTo ? location_ : path == "/a" ? "/b" : "/a";
            send(fd, "HTTP/1.1 302 Found\r\nLocation: " + to + "\r\nContent-Length: 0\r\n\r\n");
            return;
        }
        case Mode::Chunked: {
            std::string body;
            for (size_t at = 0; at < audio_.size(); at += 1000) {
                const std::string piece = audio(at, 1000);
                char size[16];
                std::snprintf(size, sizeof size, "%zx\r\n", piece.size());
                body += size + piece + "\r\n";
            }
            if (!send(fd, "HTTP/1.1 200 OK\r\nContent-Type: audio/mpeg\r\nTransfer-Encoding: chunked\r\n\r\n" + body +
                              "0\r\n\r\n"))
                return;
            while (pause(1000)) { // an HTTP/1.1 server keeps the connection
            }
            return;
        }
        case Mode::TinyInterval:
            send(fd, icy + "icy-metaint: 1\r\n\r\n" + std::string(4096, '\x7f'));
            return;
        case Mode::TitleFlood: {
            if (!send(fd, icy + "icy-metaint: 256\r\n\r\n")) return;
            for (int n = 0;; ++n) {
                std::string meta = "StreamTitle='Caf\xe9 " + std::to_string(n) + "';";
                meta.resize((meta.size() + 15) / 16 * 16, '\0');
                if (!send(fd, audio(size_t(n) * 256 % (audio_.size() - 256), 256) + char(meta.size() / 16) + meta))
                    return;
            }
        }
        }
    }

    const Mode mode_;
    const std::string contentType_;
    const size_t holdAfter_;
    const std::string location_;
    std::vector<char> audio_;
    int listener_ = -1;
    int port_ = 0;
    std::atomic<bool> stop_{false};
    std::atomic<int> connections_{0};
    std::atomic<int64_t> sent_{0};
    mutable std::mutex mutex_;
    std::condition_variable wake_;
    bool released_ = false;
    std::string request_;
    std::thread thread_;
};

} // namespace corvid::native::test
