#include "platform/native/stream/Icy.h"

#include "platform/ItemName.h"
#include "platform/Text.h"

#include <algorithm>
#include <charconv>

namespace corvid::native::icy {

using platform::Status;
namespace hr = platform::hr;

namespace {

using text::toLower;

std::string_view trim(std::string_view text) {
    while (!text.empty() && (text.front() == ' ' || text.front() == '\t')) text.remove_prefix(1);
    while (!text.empty() && (text.back() == ' ' || text.back() == '\t' || text.back() == '\r'))
        text.remove_suffix(1);
    return text;
}

bool validPort(const std::string& port) {
    unsigned value = 0;
    auto [end, ec] = std::from_chars(port.data(), port.data() + port.size(), value);
    return ec == std::errc() && end == port.data() + port.size() && value >= 1 && value <= 65535;
}

// Host, port and path after the scheme's "://".
bool parseAuthorityAndPath(const std::string& rest, StreamAddress& out) {
    const size_t slash = rest.find_first_of("/?#");
    const std::string hostPort = rest.substr(0, slash);
    out.path = slash == std::string::npos ? "/" : rest.substr(slash);
    if (out.path.front() != '/') out.path.insert(0, "/");
    if (const size_t hash = out.path.find('#'); hash != std::string::npos) out.path.resize(hash);
    if (hostPort.find('@') != std::string::npos) return false; // no credentials in addresses
    out.port = out.tls ? "443" : "80";
    if (!hostPort.empty() && hostPort.front() == '[') {
        const size_t close = hostPort.find(']');
        if (close == std::string::npos) return false;
        out.host = hostPort.substr(1, close - 1);
        if (close + 1 < hostPort.size()) {
            if (hostPort[close + 1] != ':') return false;
            out.port = hostPort.substr(close + 2);
        }
    } else {
        const size_t colon = hostPort.find(':');
        out.host = hostPort.substr(0, colon);
        if (colon != std::string::npos) out.port = hostPort.substr(colon + 1);
    }
    for (char c : out.path)
        if (static_cast<unsigned char>(c) <= ' ') return false; // would break the request line
    return !out.host.empty() && validPort(out.port);
}

} // namespace

bool parseAddress(const std::string& address, StreamAddress& out) {
    const std::string scheme = toLower(item::scheme(address));
    if (scheme == "icystream" || scheme == "http") out.tls = false;
    else if (scheme == "icystreams" || scheme == "https") out.tls = true;
    else return false;
    return parseAuthorityAndPath(address.substr(scheme.size() + 3), out);
}

std::string describe(const StreamAddress& a) {
    const bool v6 = a.host.find(':') != std::string::npos;
    return (v6 ? "[" + a.host + "]" : a.host) + ":" + a.port + a.path;
}

bool resolveLocation(const StreamAddress& from, const std::string& location, StreamAddress& out) {
    const std::string where(trim(location));
    if (where.empty()) return false;
    if (item::isAddress(where)) {
        const std::string scheme = toLower(item::scheme(where));
        if (scheme != "http" && scheme != "https") return false;
        if (!parseAddress(where, out)) return false;
        return out.tls || !from.tls;
    }
    if (where.rfind("//", 0) == 0) { // scheme-relative
        out = StreamAddress{};
        out.tls = from.tls;
        return parseAuthorityAndPath(where.substr(2), out);
    }
    out = from;
    if (where.front() == '/') {
        out.path = where;
    } else {
        const std::string base = from.path.substr(0, from.path.find('?'));
        out.path = base.substr(0, base.rfind('/') + 1) + where;
    }
    for (char c : out.path)
        if (static_cast<unsigned char>(c) <= ' ') return false;
    return true;
}

std::string makeRequest(const StreamAddress& address) {
    const bool v6 = address.host.find(':') != std::string::npos;
    const std::string host = v6 ? "[" + address.host + "]" : address.host;
    const bool standardPort = address.port == (address.tls ? "443" : "80");
    return "GET " + address.path + " HTTP/1.1\r\n"
           "Host: " + host + (standardPort ? "" : ":" + address.port) + "\r\n"
           "User-Agent: Corvid\r\n"
           "Accept: */*\r\n"
           "Icy-MetaData: 1\r\n"
           "Connection: close\r\n"
           "\r\n";
}

size_t headLength(std::string_view received) {
    const size_t crlf = received.find("\r\n\r\n");
    if (crlf != std::string_view::npos) return crlf + 4;
    const size_t lf = received.find("\n\n"); // some ICY servers end lines with LF alone
    return lf != std::string_view::npos ? lf + 2 : 0;
}

Status parseHead(std::string_view head, ResponseHead& out) {
    out = ResponseHead{};
    const size_t lineEnd = head.find('\n');
    out.statusLine = std::string(trim(head.substr(0, lineEnd)));
    const std::string first = toLower(out.statusLine);
    if (first.rfind("http/1.", 0) != 0 && first.rfind("icy ", 0) != 0)
        return Status::failure(hr::InvalidFileFormat,
                               "The server did not answer as a stream server: " + out.statusLine);
    const size_t space = first.find(' ');
    const char* code = first.c_str() + space + 1;
    auto [end, ec] = std::from_chars(code, first.c_str() + first.size(), out.status);
    if (ec != std::errc() || end == code)
        return Status::failure(hr::InvalidFileFormat, "The server's answer has no status: " + out.statusLine);

    size_t at = lineEnd == std::string_view::npos ? head.size() : lineEnd + 1;
    while (at < head.size()) {
        size_t next = head.find('\n', at);
        if (next == std::string_view::npos) next = head.size();
        const std::string_view line = head.substr(at, next - at);
        at = next + 1;
        const size_t colon = line.find(':');
        if (colon == std::string_view::npos) continue;
        const std::string name = toLower(trim(line.substr(0, colon)));
        const std::string_view value = trim(line.substr(colon + 1));
        if (name == "content-type") {
            out.contentType = toLower(trim(value.substr(0, value.find(';'))));
        } else if (name == "icy-name") {
            out.name = std::string(value);
        } else if (name == "location") {
            out.location = std::string(value);
        } else if (name == "transfer-encoding") {
            out.chunked = text::containsNoCase(value, "chunked");
        } else if (name == "content-length") {
            int64_t length = -1;
            auto [e, err] = std::from_chars(value.data(), value.data() + value.size(), length);
            if (err == std::errc() && length >= 0) out.contentLength = length;
        } else if (name == "icy-br") {
            int kbps = 0;
            auto [e, err] = std::from_chars(value.data(), value.data() + value.size(), kbps);
            if (err == std::errc() && kbps > 0 && kbps <= 10000) out.bitrateKbps = kbps;
        } else if (name == "icy-metaint") {
            size_t interval = 0;
            auto [e, err] = std::from_chars(value.data(), value.data() + value.size(), interval);
            if (err != std::errc() || e != value.data() + value.size() || interval < kMinMetaInterval ||
                interval > kMaxMetaInterval)
                return Status::failure(hr::InvalidFileFormat,
                                       "The server announced an unusable metadata interval: " +
                                           std::string(value));
            out.metaInterval = interval;
        }
    }
    return Status::success();
}

std::vector<std::string> demuxersFor(const std::string& contentType) {
    if (contentType.empty() || contentType == "application/octet-stream") return {"mp3", "aac", "ogg"};
    if (contentType == "audio/mpeg" || contentType == "audio/mp3" || contentType == "audio/mpeg3" ||
        contentType == "audio/x-mpeg")
        return {"mp3"};
    if (contentType == "audio/aac" || contentType == "audio/aacp" || contentType == "audio/x-aac")
        return {"aac"};
    if (contentType == "application/ogg" || contentType == "audio/ogg" || contentType == "audio/x-ogg")
        return {"ogg"};
    if (contentType.rfind("audio/", 0) == 0) return {"mp3", "aac", "ogg"};
    return {};
}

std::string field(const std::string& meta, const std::string& name) {
    const std::string key = name + "='";
    const size_t start = meta.find(key);
    if (start == std::string::npos) return {};
    const size_t from = start + key.size();
    const size_t end = meta.find("';", from);
    if (end != std::string::npos) return meta.substr(from, end - from);
    // The last field may lack its ';'.
    const size_t quote = meta.rfind('\'');
    return meta.substr(from, quote != std::string::npos && quote >= from ? quote - from : std::string::npos);
}

namespace {

// Length of the UTF-8 sequence at `at`, or 0 when it is not one.
size_t utf8Sequence(const std::string& s, size_t at) {
    const auto c = static_cast<unsigned char>(s[at]);
    size_t n = c < 0x80 ? 1 : (c >> 5) == 0x6 ? 2 : (c >> 4) == 0xE ? 3 : (c >> 3) == 0x1E ? 4 : 0;
    if (n == 0 || at + n > s.size()) return 0;
    for (size_t i = 1; i < n; ++i)
        if ((static_cast<unsigned char>(s[at + i]) >> 6) != 0x2) return 0;
    if (n == 2 && c < 0xC2) return 0; // overlong
    return n;
}

} // namespace

bool cleanText(std::string& text) {
    bool utf8 = true;
    for (size_t at = 0; at < text.size() && utf8;) {
        const size_t n = utf8Sequence(text, at);
        utf8 = n != 0;
        at += n;
    }
    std::string out;
    out.reserve(text.size());
    if (utf8) {
        out = text;
    } else {
        for (unsigned char c : text) { // Latin-1 to UTF-8
            if (c < 0x80) {
                out += char(c);
            } else {
                out += char(0xC0 | (c >> 6));
                out += char(0x80 | (c & 0x3F));
            }
        }
    }
    std::string kept;
    kept.reserve(out.size());
    for (unsigned char c : out)
        if (c >= 0x20 && c != 0x7F) kept += char(c);
    if (kept.size() > kMaxTitleBytes) {
        size_t cut = kMaxTitleBytes;
        while (cut > 0 && (static_cast<unsigned char>(kept[cut]) >> 6) == 0x2) --cut;
        kept.resize(cut);
    }
    const bool changed = kept != text;
    text = std::move(kept);
    return changed;
}

bool ChunkedDecoder::feed(const uint8_t* data, size_t size, const Sink& body) {
    constexpr size_t kMaxLine = 1024;
    size_t at = 0;
    while (at < size) {
        switch (part_) {
        case Part::Size:
        case Part::DataEnd:
        case Part::Trailer: {
            const char c = char(data[at++]);
            if (c != '\n') {
                line_ += c;
                if (line_.size() > kMaxLine) return false;
                break;
            }
            std::string_view line = trim(line_);
            if (part_ == Part::DataEnd) {
                if (!line.empty()) return false;
                part_ = Part::Size;
            } else if (part_ == Part::Trailer) {
                if (line.empty()) part_ = Part::Done;
            } else {
                line = line.substr(0, line.find(';'));
                auto [end, ec] = std::from_chars(line.data(), line.data() + line.size(), left_, 16);
                if (ec != std::errc() || end != line.data() + line.size() || line.empty()) return false;
                part_ = left_ == 0 ? Part::Trailer : Part::Data;
            }
            line_.clear();
            break;
        }
        case Part::Data: {
            const size_t n = size_t(std::min<uint64_t>(left_, size - at));
            body(data + at, n);
            at += n;
            left_ -= n;
            if (left_ == 0) part_ = Part::DataEnd;
            break;
        }
        case Part::Done:
            return true; // what follows the last chunk is not ours
        }
    }
    return true;
}

void MetadataSplitter::feed(const uint8_t* data, size_t size, const AudioSink& audio,
                            const MetaSink& meta) {
    size_t at = 0;
    while (at < size) {
        switch (part_) {
        case Part::Audio: {
            const size_t n = interval_ == 0 ? size - at : std::min(untilMeta_, size - at);
            if (n > 0) audio(data + at, n);
            at += n;
            if (interval_ != 0) {
                untilMeta_ -= n;
                if (untilMeta_ == 0) part_ = Part::Length;
            }
            break;
        }
        case Part::Length:
            textLeft_ = size_t(data[at++]) * 16; // at most kMaxMetaBlock
            block_.clear();
            untilMeta_ = interval_;
            part_ = textLeft_ ? Part::Text : Part::Audio;
            break;
        case Part::Text: {
            const size_t n = std::min(textLeft_, size - at);
            block_.append(reinterpret_cast<const char*>(data + at), n);
            at += n;
            textLeft_ -= n;
            if (textLeft_ == 0) {
                block_.erase(std::find(block_.begin(), block_.end(), '\0'), block_.end());
                if (!block_.empty()) meta(block_);
                part_ = Part::Audio;
            }
            break;
        }
        }
    }
}

} // namespace corvid::native::icy
