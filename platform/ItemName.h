#pragma once
// What an item's name is: a network address or a local path. One rule for every layer.
//
// A name is an address only when it starts with a URI scheme followed by "://"
// ("icystream://host/mount", "https://host/live"). A local path that merely contains "://"
// somewhere (a folder named "icystream:") is a file.

#include "platform/Text.h"

#include <string_view>

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

} // namespace corvid::item
