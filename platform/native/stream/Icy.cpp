#include "platform/native/stream/Icy.h"

#include <algorithm>
#include <cctype>
#include <charconv>

namespace corvid::native::icy {

using platform::Status;
namespace hr = platform::hr;

namespace {

std::string lower(std::string_view text) {
    std::string out(text);
    for (auto& c : out) c = char(std::tolower(static_cast<unsigned char>(c)));
    return out;
}

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

} // namespace

bool parseAddress(const std::string& address, StreamAddress& out) {
    const std::string low = lower(address);
    size_t schemeEnd = 0;
    if (low.rfind("icystream://", 0) == 0) schemeEnd = 12;
    else if (low.rfind("http://", 0) == 0) schemeEnd = 7;
    else return false;

    const std::string rest = address.substr(schemeEnd);
    const size_t slash = rest.find('/');
    const std::string hostPort = rest.substr(0, slash);
    out.path = slash == std::string::npos ? "/" : rest.substr(slash);
    if (hostPort.find('@') != std::string::npos) return false; // no credentials in addresses
    out.port = "80";
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

std::string makeRequest(const StreamAddress& address) {
    const bool v6 = address.host.find(':') != std::string::npos;
    const std::string host = v6 ? "[" + address.host + "]" : address.host;
    return "GET " + address.path + " HTTP/1.0\r\n"
           "Host: " + host + (address.port == "80" ? "" : ":" + address.port) + "\r\n"
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
    const std::string first = lower(out.statusLine);
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
        const std::string name = lower(trim(line.substr(0, colon)));
        const std::string_view value = trim(line.substr(colon + 1));
        if (name == "content-type") {
            out.contentType = lower(trim(value.substr(0, value.find(';'))));
        } else if (name == "icy-name") {
            out.name = std::string(value);
        } else if (name == "icy-metaint") {
            size_t interval = 0;
            auto [e, err] = std::from_chars(value.data(), value.data() + value.size(), interval);
            if (err != std::errc() || e != value.data() + value.size() || interval == 0 ||
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
