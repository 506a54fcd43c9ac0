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
// A metadata block's length byte counts 16-byte units: at most 255 * 16 bytes.
inline constexpr size_t kMaxMetaBlock = 255 * 16;

struct StreamAddress {
    std::string host;
    std::string port; // decimal, 1..65535
    std::string path; // starts with '/'
};

// "icystream://host[:port]/mount" and "http://host[:port]/path" (icystream is plain HTTP).
// Port 80 when none is given; IPv6 hosts in brackets. False for anything else.
bool parseAddress(const std::string& address, StreamAddress& out);

// The GET that asks for the stream with metadata interleaved.
std::string makeRequest(const StreamAddress& address);

struct ResponseHead {
    int status = 0;          // 200 for a stream
    std::string statusLine;  // "HTTP/1.0 200 OK" or "ICY 200 OK"
    std::string contentType; // lower case, parameters cut off
    std::string name;        // icy-name, when the server gives one
    size_t metaInterval = 0; // icy-metaint: audio bytes between metadata blocks; 0 = none
};

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
