#pragma once
// The wire side of a network stream, as pure functions over bytes: the stream address, the
// server's response head, and the ICY metadata blocks interleaved with the audio. Nothing
// here touches a socket or a thread; every length a server sends is checked against a fixed
// bound before it is used.

#include "platform/Status.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace corvid::native::icy {

// Largest response head we read; a server that sends more is not a stream server.
inline constexpr size_t kMaxHeadBytes = 16 * 1024;
// Largest audio run between two metadata blocks that we accept (servers use 8 to 64 KiB).
inline constexpr size_t kMaxMetaInterval = 1u << 20;
// Smallest one: below it a server spends more of the stream on metadata than on audio.
inline constexpr size_t kMinMetaInterval = 256;
// Redirections followed for one address at most.
inline constexpr int kMaxRedirects = 5;
// Longest title passed on; a longer one is cut at a character boundary.
inline constexpr size_t kMaxTitleBytes = 512;
// A metadata block's length byte counts 16-byte units: at most 255 * 16 bytes.
inline constexpr size_t kMaxMetaBlock = 255 * 16;

struct StreamAddress {
    bool tls = false;
    std::string host;
    std::string port; // decimal, 1..65535
    std::string path; // starts with '/'
};

// "icystream://host[:port]/mount" and "http://host[:port]/path" (plain HTTP, port 80 when
// none is given); "icystreams://..." and "https://..." (HTTP over TLS, port 443). IPv6 hosts
// in brackets. False for anything else.
bool parseAddress(const std::string& address, StreamAddress& out);
// "host:port/path" for messages.
std::string describe(const StreamAddress& address);

// Where a redirection's Location leads from `from`: an absolute http or https address, or a
// path on the same server. TLS is never given up (https to http is refused), nor is any
// other scheme followed. False when the location is refused or unreadable.
bool resolveLocation(const StreamAddress& from, const std::string& location, StreamAddress& out);

// The GET that asks for the stream with metadata interleaved.
std::string makeRequest(const StreamAddress& address);

struct ResponseHead {
    int status = 0;          // 200 for a stream
    std::string statusLine;  // "HTTP/1.0 200 OK" or "ICY 200 OK"
    std::string contentType; // lower case, parameters cut off
    std::string name;        // icy-name, when the server gives one
    std::string location;    // of a redirection
    bool chunked = false;    // Transfer-Encoding: chunked
    int64_t contentLength = -1; // Content-Length, when given (an item with an end, not a live stream)
    int bitrateKbps = 0;     // icy-br, when the server gives one
    size_t metaInterval = 0; // icy-metaint: audio bytes between metadata blocks; 0 = none
};

inline bool isRedirection(int status) {
    return status == 301 || status == 302 || status == 303 || status == 307 || status == 308;
}

// Index just past the blank line that ends the head in `received`, or 0 while incomplete.
size_t headLength(std::string_view received);
// Parses a complete head. Fails (InvalidFileFormat) on a head that is not HTTP or ICY or
// whose icy-metaint is not a number within 1..kMaxMetaInterval.
platform::Status parseHead(std::string_view head, ResponseHead& out);

// The FFmpeg demuxers that may read a stream of this content type (mp3, aac, ogg); all
// three when the server does not say. Empty for a type that is not audio (a web page).
std::vector<std::string> demuxersFor(const std::string& contentType);

// "StreamTitle='Artist - Title';StreamUrl='http://...';": the value of one field, or "".
std::string field(const std::string& meta, const std::string& name);

// Makes a title fit to show: text that is not UTF-8 is read as Latin-1 (as older servers
// send it), control characters go, and it is cut to kMaxTitleBytes. Returns whether it had
// to change anything.
bool cleanText(std::string& text);

// Undoes HTTP/1.1 chunked transfer coding, in any slicing of the input. A chunk-size line
// that is not hex, or longer than a sane line, is a failure.
class ChunkedDecoder {
public:
    using Sink = std::function<void(const uint8_t*, size_t)>;
    // False on malformed coding; `ended` once the last chunk came.
    bool feed(const uint8_t* data, size_t size, const Sink& body);
    bool ended() const { return part_ == Part::Done; }

private:
    enum class Part { Size, Data, DataEnd, Trailer, Done };
    Part part_ = Part::Size;
    std::string line_;
    uint64_t left_ = 0;
};

// Takes the metadata blocks out of a body: every `interval` audio bytes come one length byte
// and that many 16-byte units of text. Feed it the body as it arrives, in any slicing.
class MetadataSplitter {
public:
    using AudioSink = std::function<void(const uint8_t*, size_t)>;
    using MetaSink = std::function<void(const std::string&)>;

    explicit MetadataSplitter(size_t interval) : interval_(interval), untilMeta_(interval) {}
    // Audio goes to `audio` in runs; each non-empty metadata block, with its padding cut off,
    // to `meta` once complete.
    void feed(const uint8_t* data, size_t size, const AudioSink& audio, const MetaSink& meta);

private:
    enum class Part { Audio, Length, Text };
    size_t interval_;
    size_t untilMeta_;      // audio bytes before the next length byte
    size_t textLeft_ = 0;   // bytes of the current block still to come
    Part part_ = Part::Audio;
    std::string block_;
};

} // namespace corvid::native::icy
