#include "support/Text.h"
#include "support/NameCollection.h"

#include <algorithm>
#include <cctype>

namespace corvid::text {

namespace {
char upper(char c) { return static_cast<char>(std::toupper(static_cast<unsigned char>(c))); }
} // namespace

std::string toUpper(std::string_view s) {
    std::string out(s);
    std::transform(out.begin(), out.end(), out.begin(), upper);
    return out;
}

std::string_view lastChars(std::string_view s, std::size_t n) {
    return s.size() <= n ? s : s.substr(s.size() - n);
}

} // namespace corvid::text

namespace corvid {

void NameCollection::Remove(std::size_t index) {
    if (index < names_.size()) names_.erase(names_.begin() + static_cast<std::ptrdiff_t>(index));
}

std::optional<std::size_t> NameCollection::IndexOf(const std::string& name) const {
    for (std::size_t i = 0; i < names_.size(); ++i)
        if (text::equalsNoCase(names_[i], name)) return i;
    return std::nullopt;
}

} // namespace corvid
