#pragma once
// Text rules shared by every layer: names, extensions, schemes and keys compare without regard
// to case (ASCII, as file names, filter names and settings keys are). Header-only so that the
// platforms and the player logic use the one definition.

#include <algorithm>
#include <string>
#include <string_view>

namespace corvid::text {

inline char lowerChar(char c) { return (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c; }

inline std::string toLower(std::string_view s) {
    std::string out(s);
    std::transform(out.begin(), out.end(), out.begin(), lowerChar);
    return out;
}

inline std::string toUpper(std::string_view s) {
    std::string out(s);
    std::transform(out.begin(), out.end(), out.begin(),
                   [](char c) { return (c >= 'a' && c <= 'z') ? static_cast<char>(c - 'a' + 'A') : c; });
    return out;
}

inline bool equalsNoCase(std::string_view a, std::string_view b) {
    return a.size() == b.size() &&
           std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) { return lowerChar(x) == lowerChar(y); });
}

inline bool containsNoCase(std::string_view haystack, std::string_view needle) {
    if (needle.empty()) return true;
    auto it = std::search(haystack.begin(), haystack.end(), needle.begin(), needle.end(),
                          [](char x, char y) { return lowerChar(x) == lowerChar(y); });
    return it != haystack.end();
}

inline bool startsWithNoCase(std::string_view s, std::string_view prefix) {
    return s.size() >= prefix.size() && equalsNoCase(s.substr(0, prefix.size()), prefix);
}

inline bool endsWithNoCase(std::string_view s, std::string_view suffix) {
    return s.size() >= suffix.size() && equalsNoCase(s.substr(s.size() - suffix.size()), suffix);
}

} // namespace corvid::text
