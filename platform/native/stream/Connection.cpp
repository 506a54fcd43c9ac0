#include "platform/native/stream/Connection.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <mutex>
#include <set>
#include <utility>
#include <thread>

#include <arpa/inet.h>
#include <netdb.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <openssl/err.h>
#include <openssl/ssl.h>
#include <openssl/x509v3.h>

namespace corvid::native {

using platform::Status;
namespace hr = platform::hr;

namespace {

Status cancelled() { return Status::failure(hr::Abort, "Opening the stream was cancelled."); }

SSL* asSsl(void* p) { return static_cast<SSL*>(p); }

// The last OpenSSL error as text, and the queue emptied.
std::string tlsError() {
    std::string text;
    while (const unsigned long e = ERR_get_error()) {
        char buf[256];
        ERR_error_string_n(e, buf, sizeof buf);
        text = buf;
    }
    return text.empty() ? std::string(std::strerror(errno)) : text;
}

bool isIpLiteral(const std::string& host) {
    unsigned char buf[sizeof(in6_addr)];
    return ::inet_pton(AF_INET, host.c_str(), buf) == 1 || ::inet_pton(AF_INET6, host.c_str(), buf) == 1;
}

// A host-name lookup on a thread of its own, since getaddrinfo cannot be interrupted: the
// waiter can give up on it at once, and the thread ends with the lookup.
struct Lookup {
    ~Lookup() {
        if (result) ::freeaddrinfo(result);
        if (fd >= 0) ::close(fd);
    }
    int fd = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    std::mutex mutex;
    addrinfo* result = nullptr;
    int rc = EAI_AGAIN;
    bool done = false;
};

Status resolve(const icy::StreamAddress& a, const Waiter& waiter, StreamClock::time_point deadline,
               addrinfo*& found) {
    addrinfo hints{};
    hints.ai_family = AF_UNSPEC;
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_flags = AI_NUMERICSERV | AI_NUMERICHOST;
    if (isIpLiteral(a.host)) {
        const int rc = ::getaddrinfo(a.host.c_str(), a.port.c_str(), &hints, &found);
        if (rc == 0) return Status::success();
        return Status::failure(hr::CannotConnect, "Cannot use the address " + a.host + ": " + ::gai_strerror(rc) + ".");
    }
    hints.ai_flags = AI_NUMERICSERV;
    auto lookup = std::make_shared<Lookup>();
    if (lookup->fd < 0) return Status::failure(hr::Fail, "Cannot look up " + a.host + ": " + std::strerror(errno) + ".");
    std::thread([lookup, host = a.host, port = a.port, hints] {
        addrinfo* result = nullptr;
        const int rc = ::getaddrinfo(host.c_str(), port.c_str(), &hints, &result);
        std::lock_guard lock(lookup->mutex);
        lookup->result = result;
        lookup->rc = rc;
        lookup->done = true;
        const uint64_t one = 1;
        [[maybe_unused]] auto n = ::write(lookup->fd, &one, sizeof one);
    }).detach();
    for (;;) {
        {
            std::lock_guard lock(lookup->mutex);
            if (lookup->done) {
                if (lookup->rc != 0)
                    return Status::failure(hr::CannotConnect, "Cannot find the stream server " + a.host + ": " +
                                                                  ::gai_strerror(lookup->rc) + ".");
                found = std::exchange(lookup->result, nullptr);
                return Status::success();
            }
        }
        const Waiter::Ready r = waiter.wait(lookup->fd, POLLIN, deadline);
        if (r == Waiter::Ready::Woken && waiter.cancelled()) return cancelled();
        if (r == Waiter::Ready::TimedOut)
            return Status::failure(hr::Timeout, "Looking up the stream server " + a.host + " took too long.");
    }
}

} // namespace

// ---------------------------------------------------------------- Waiter

Waiter::Waiter() : fd_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}

Waiter::~Waiter() {
    if (fd_ >= 0) ::close(fd_);
}

void Waiter::wake() const {
    const uint64_t one = 1;
    if (fd_ >= 0) [[maybe_unused]] auto n = ::write(fd_, &one, sizeof one);
}

void Waiter::cancel() {
    cancelled_ = true;
    wake();
}

Waiter::Ready Waiter::wait(int fd, short events, StreamClock::time_point deadline) const {
    for (;;) {
        if (cancelled_) return Ready::Woken;
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - StreamClock::now()).count();
        if (left <= 0) return Ready::TimedOut;
        pollfd fds[2] = {{fd_, POLLIN, 0}, {fd, events, 0}};
        const int n = ::poll(fds, fd >= 0 ? 2 : 1, int(std::min<long long>(left, 1000)));
        if (n < 0 && errno != EINTR) return Ready::Failed;
        if (n == 0 && tick_) tick_();
        if (n <= 0) continue;
        if (fds[0].revents & POLLIN) {
            uint64_t count;
            [[maybe_unused]] auto r = ::read(fd_, &count, sizeof count);
            return Ready::Woken;
        }
        if (fd >= 0 && fds[1].revents) return Ready::Yes;
    }
}

// ---------------------------------------------------------------- Connection

Connection::~Connection() {
    if (ssl_) {
        SSL_free(asSsl(ssl_));
    }
    if (fd_ >= 0) ::close(fd_);
}

Status Connection::open(const icy::StreamAddress& a, const Waiter& waiter, StreamClock::time_point deadline,
                        std::unique_ptr<Connection>& out) {
    const std::string server = a.host + ":" + a.port;
    addrinfo* found = nullptr;
    if (Status s = resolve(a, waiter, deadline, found); !s) return s;

    std::unique_ptr<Connection> c(new Connection());
    c->where_ = server;
    std::string why = "no address";
    bool timedOut = false;
    for (addrinfo* ai = found; ai && c->fd_ < 0 && !waiter.cancelled(); ai = ai->ai_next) {
        const int fd = ::socket(ai->ai_family, ai->ai_socktype | SOCK_CLOEXEC | SOCK_NONBLOCK, ai->ai_protocol);
        if (fd < 0) continue;
        int error = 0;
        if (::connect(fd, ai->ai_addr, ai->ai_addrlen) != 0) {
            error = errno;
            if (error == EINPROGRESS) {
                const Waiter::Ready r = waiter.wait(fd, POLLOUT, deadline);
                socklen_t len = sizeof error;
                if (r == Waiter::Ready::Yes) ::getsockopt(fd, SOL_SOCKET, SO_ERROR, &error, &len);
                else error = r == Waiter::Ready::TimedOut ? ETIMEDOUT : r == Waiter::Ready::Woken ? ECANCELED : EIO;
                timedOut = r == Waiter::Ready::TimedOut;
            }
        }
        if (error != 0) {
            why = std::strerror(error);
            ::close(fd);
        } else {
            c->fd_ = fd;
        }
    }
    ::freeaddrinfo(found);
    if (waiter.cancelled()) return cancelled();
    if (c->fd_ < 0)
        return Status::failure(timedOut ? hr::Timeout : hr::CannotConnect,
                               "Cannot reach the stream server " + server + " (" + why + ").");
    c->events_ = POLLIN;
    if (!a.tls) {
        out = std::move(c);
        return Status::success();
    }

    // TLS. A context per connection, so that the trust store is read as it stands now
    // (SSL_CERT_FILE and SSL_CERT_DIR are honoured by the default paths).
    std::unique_ptr<SSL_CTX, decltype(&SSL_CTX_free)> context(SSL_CTX_new(TLS_client_method()), SSL_CTX_free);
    if (!context) return Status::failure(hr::Fail, "TLS is not available: " + tlsError());
    SSL_CTX_set_min_proto_version(context.get(), TLS1_2_VERSION);
    SSL_CTX_set_options(context.get(), SSL_OP_IGNORE_UNEXPECTED_EOF);
    SSL_CTX_set_verify(context.get(), SSL_VERIFY_PEER, nullptr);
    if (SSL_CTX_set_default_verify_paths(context.get()) != 1)
        return Status::failure(hr::Fail, "The system's trusted certificates cannot be read: " + tlsError());
    SSL* ssl = SSL_new(context.get());
    if (!ssl) return Status::failure(hr::Fail, "TLS is not available: " + tlsError());
    c->ssl_ = ssl;
    SSL_set_fd(ssl, c->fd_);
    if (isIpLiteral(a.host)) {
        X509_VERIFY_PARAM_set1_ip_asc(SSL_get0_param(ssl), a.host.c_str());
    } else {
        SSL_set_tlsext_host_name(ssl, a.host.c_str());
        SSL_set1_host(ssl, a.host.c_str());
    }
    for (;;) {
        ERR_clear_error();
        const int rc = SSL_connect(ssl);
        if (rc == 1) break;
        const int e = SSL_get_error(ssl, rc);
        if (e != SSL_ERROR_WANT_READ && e != SSL_ERROR_WANT_WRITE) {
            const long verify = SSL_get_verify_result(ssl);
            if (verify != X509_V_OK)
                return Status::failure(hr::CannotConnect, "The stream server " + server +
                                                              " could not prove who it is (certificate: " +
                                                              X509_verify_cert_error_string(verify) + ").");
            return Status::failure(hr::CannotConnect,
                                   "The secure connection to the stream server " + server + " failed: " + tlsError() + ".");
        }
        const Waiter::Ready r = waiter.wait(c->fd_, e == SSL_ERROR_WANT_READ ? POLLIN : POLLOUT, deadline);
        if (r == Waiter::Ready::Woken && waiter.cancelled()) return cancelled();
        if (r == Waiter::Ready::TimedOut)
            return Status::failure(hr::Timeout, "The stream server " + server + " did not finish the secure handshake.");
        if (r == Waiter::Ready::Failed) return Status::failure(hr::Fail, "Waiting for the stream server failed.");
    }
    out = std::move(c);
    return Status::success();
}

Status Connection::sendAll(const std::string& text, const Waiter& waiter, StreamClock::time_point deadline) {
    size_t sent = 0;
    while (sent < text.size()) {
        short want = POLLOUT;
        ssize_t n;
        if (ssl_) {
            ERR_clear_error();
            const int rc = SSL_write(asSsl(ssl_), text.data() + sent, int(text.size() - sent));
            n = rc;
            if (rc <= 0) {
                const int e = SSL_get_error(asSsl(ssl_), rc);
                if (e == SSL_ERROR_WANT_READ) want = POLLIN;
                else if (e != SSL_ERROR_WANT_WRITE)
                    return Status::failure(hr::CannotConnect, "The stream server " + where_ + " closed the connection.");
                n = -1;
                errno = EAGAIN;
            }
        } else {
            n = ::send(fd_, text.data() + sent, text.size() - sent, MSG_NOSIGNAL);
        }
        if (n > 0) {
            sent += size_t(n);
        } else if (n < 0 && (errno == EAGAIN || errno == EINTR)) {
            const Waiter::Ready r = waiter.wait(fd_, want, deadline);
            if (r == Waiter::Ready::Woken && waiter.cancelled()) return cancelled();
            if (r == Waiter::Ready::TimedOut || r == Waiter::Ready::Failed)
                return Status::failure(hr::Timeout, "The stream server " + where_ + " takes no request.");
        } else {
            return Status::failure(hr::CannotConnect, "The stream server " + where_ + " closed the connection.");
        }
    }
    return Status::success();
}

Connection::Read Connection::readSome(uint8_t* destination, size_t size, size_t& got, Status& failure) {
    got = 0;
    if (ssl_) {
        ERR_clear_error();
        const int rc = SSL_read(asSsl(ssl_), destination, int(std::min<size_t>(size, 1 << 30)));
        if (rc > 0) {
            got = size_t(rc);
            return Read::Data;
        }
        switch (SSL_get_error(asSsl(ssl_), rc)) {
        case SSL_ERROR_WANT_READ: events_ = POLLIN; return Read::Again;
        case SSL_ERROR_WANT_WRITE: events_ = POLLOUT; return Read::Again;
        case SSL_ERROR_ZERO_RETURN: return Read::End;
        default:
            failure = Status::failure(hr::CannotConnect, "Reading the secure stream from " + where_ + " failed: " +
                                                             tlsError() + ".");
            return Read::Failed;
        }
    }
    const ssize_t n = ::recv(fd_, destination, size, 0);
    if (n > 0) {
        got = size_t(n);
        return Read::Data;
    }
    if (n == 0) return Read::End;
    if (errno == EAGAIN || errno == EINTR) {
        events_ = POLLIN;
        return Read::Again;
    }
    failure = Status::failure(hr::CannotConnect, "Reading the stream from " + where_ + " failed: " +
                                                     std::string(std::strerror(errno)) + ".");
    return Read::Failed;
}

// ---------------------------------------------------------------- the request

namespace {

// Reads the response head; what came after it (the start of the body) goes to `body`.
Status readHead(Connection& c, const icy::StreamAddress& a, const Waiter& waiter, StreamClock::time_point deadline,
                icy::ResponseHead& head, std::string& body) {
    std::string received;
    uint8_t chunk[4096];
    for (;;) {
        if (const size_t length = icy::headLength(received)) {
            body = received.substr(length);
            return icy::parseHead(std::string_view(received).substr(0, length), head);
        }
        if (received.size() > icy::kMaxHeadBytes)
            return Status::failure(hr::InvalidFileFormat, "The stream server's answer has no end.");
        size_t got = 0;
        Status failure;
        switch (c.readSome(chunk, sizeof chunk, got, failure)) {
        case Connection::Read::Data: received.append(reinterpret_cast<const char*>(chunk), got); break;
        case Connection::Read::End:
            return Status::failure(hr::CannotConnect, "The stream server " + icy::describe(a) +
                                                          " closed the connection without answering.");
        case Connection::Read::Failed: return failure;
        case Connection::Read::Again: {
            const Waiter::Ready r = waiter.wait(c.fd(), c.events(), deadline);
            if (r == Waiter::Ready::TimedOut)
                return Status::failure(hr::Timeout, "The stream server " + icy::describe(a) + " did not answer.");
            if (r == Waiter::Ready::Failed) return Status::failure(hr::Fail, "Waiting for the stream server failed.");
            if (waiter.cancelled()) return cancelled();
            break;
        }
        }
    }
}

} // namespace

Status requestStream(const icy::StreamAddress& address, const Waiter& waiter, StreamClock::time_point deadline,
                     HttpAnswer& out) {
    icy::StreamAddress at = address;
    std::set<std::string> visited;
    for (int redirects = 0;; ++redirects) {
        const std::string where = icy::describe(at);
        visited.insert(std::string(at.tls ? "s:" : "p:") + where);
        std::unique_ptr<Connection> connection;
        Status s = Connection::open(at, waiter, deadline, connection);
        if (s) s = connection->sendAll(icy::makeRequest(at), waiter, deadline);
        icy::ResponseHead head;
        std::string body;
        if (s) s = readHead(*connection, at, waiter, deadline, head, body);
        if (!s) return s;

        if (icy::isRedirection(head.status)) {
            icy::StreamAddress next;
            if (!icy::resolveLocation(at, head.location, next))
                return Status::failure(hr::Fail, "The stream " + where + " has moved (" + head.statusLine + ") to " +
                                                     (head.location.empty() ? "nowhere" : head.location) +
                                                     ", which is not an http or https address that may be followed.");
            if (visited.count(std::string(next.tls ? "s:" : "p:") + icy::describe(next)))
                return Status::failure(hr::Fail, "The stream " + where + " redirects in a loop (" + head.statusLine + ").");
            if (redirects >= icy::kMaxRedirects)
                return Status::failure(hr::Fail, "The stream " + icy::describe(address) + " was redirected more than " +
                                                     std::to_string(icy::kMaxRedirects) + " times.");
            at = next;
            continue;
        }
        if (head.status == 404 || head.status == 410)
            return Status::failure(hr::FileNotFound, "The stream " + where + " does not exist (" + head.statusLine + ").");
        if (head.status == 401 || head.status == 403)
            return Status::failure(hr::AccessDenied, "The stream " + where + " is not open to us (" + head.statusLine + ").");
        if (head.status != 200)
            return Status::failure(hr::Fail, "The stream server refused " + where + " (" + head.statusLine + ").");
        out.connection = std::move(connection);
        out.address = at;
        out.head = std::move(head);
        out.bodyStart = std::move(body);
        return Status::success();
    }
}

} // namespace corvid::native
