#include "support/Text.h"
#include <corvid/KeyedCollection.h>
#include <corvid/NameCollection.h>

#include <algorithm>
#include <cctype>

namespace corvid::text {

std::string_view lastChars(std::string_view s, std::size_t n) {
    return s.size() <= n ? s : s.substr(s.size() - n);
}

} // namespace corvid::text

namespace corvid {

bool sameKey(std::string_view a, std::string_view b) { return text::equalsNoCase(a, b); }

void NameCollection::Remove(std::size_t index) {
    if (index < names_.size()) names_.erase(names_.begin() + static_cast<std::ptrdiff_t>(index));
}

std::optional<std::size_t> NameCollection::IndexOf(const std::string& name) const {
    for (std::size_t i = 0; i < names_.size(); ++i)
        if (text::equalsNoCase(names_[i], name)) return i;
    return std::nullopt;
}

} // namespace corvid
