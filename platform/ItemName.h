#pragma once
// What an item's name is: a network address or a local path, its scheme and its extension.
// One rule for every layer, so that the load, the source selection, the chains and the
// platforms never disagree about an item.
//
// A name is an address only when it starts with a URI scheme followed by "://"
// ("icystream://host/mount", "https://host/live"). A local path that merely contains "://"
// somewhere (a folder named "icystream:") is a file. The extension is what follows the last
// dot of the name's last segment, in lower case ("/m/Song.MP3" -> "mp3"; "/m.d/song" and
// "http://host/live" have none).

#include "platform/Text.h"

#include <string>
#include <string_view>
#include <utility>

namespace corvid::item {

// The scheme of an address, as written ("icystream", "HTTPS"); empty for a local path.
inline std::string_view scheme(std::string_view name) {
    auto isAlpha = [](char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); };
    auto isDigit = [](char c) { return c >= '0' && c <= '9'; };
    if (name.empty() || !isAlpha(name[0])) return {};
    std::size_t i = 1;
    while (i < name.size() && (isAlpha(name[i]) || isDigit(name[i]) || name[i] == '+' || name[i] == '-' || name[i] == '.'))
        ++i;
    if (name.substr(i, 3) != "://") return {};
    return name.substr(0, i);
}

inline bool isAddress(std::string_view name) { return !scheme(name).empty(); }

// Whether the name is an address of the given scheme ("icystream"), without regard to case.
inline bool hasScheme(std::string_view name, std::string_view wanted) {
    return text::equalsNoCase(scheme(name), wanted);
}

// Whether the name is an ICY stream address, which the stream source plays itself:
// "icystream://" (over HTTP) or "icystreams://" (over TLS).
inline bool isIcyStream(std::string_view name) {
    return hasScheme(name, "icystream") || hasScheme(name, "icystreams");
}

// The extension, in lower case; empty when the last segment has no dot.
inline std::string extension(std::string_view name) {
    const std::size_t slash = name.find_last_of('/');
    const std::size_t dot = name.find_last_of('.');
    if (dot == std::string_view::npos || (slash != std::string_view::npos && dot < slash)) return {};
    return text::toLower(name.substr(dot + 1));
}

// An item's name parsed once, when the host names it; the layers below read what it is from
// here instead of looking at the text again.
class Name {
public:
    Name() = default;
    Name(std::string text) : text_(std::move(text)) { parse(); }
    Name(const char* text) : Name(std::string(text)) {}

    const std::string& text() const { return text_; }
    operator const std::string&() const { return text_; }
    operator std::string_view() const { return text_; }
    bool empty() const { return text_.empty(); }
    void clear() { *this = Name(); }

    std::string_view scheme() const { return std::string_view(text_).substr(0, schemeLength_); }
    bool isAddress() const { return schemeLength_ != 0; }
    bool isIcyStream() const { return item::isIcyStream(text_); }
    // Local files and addresses alike ("http://host/a.wma" has "wma").
    const std::string& extension() const { return extension_; }
    bool extensionIs(std::string_view lowerCase) const { return extension_ == lowerCase; }

    friend bool operator==(const Name& a, const Name& b) { return a.text_ == b.text_; }

private:
    void parse() {
        schemeLength_ = item::scheme(text_).size();
        extension_ = item::extension(text_);
    }

    std::string text_;
    std::size_t schemeLength_ = 0;
    std::string extension_;
};

} // namespace corvid::item
