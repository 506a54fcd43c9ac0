#pragma once
// Text helpers for the comparisons the player makes: names, extensions and keys compare
// without regard to case (ASCII, as file names and filter names are).

#include "platform/Text.h"

#include <string>
#include <string_view>

namespace corvid::text {

// The last n characters (all of s when shorter), as a device name's speaker-pair suffix is read.
std::string_view lastChars(std::string_view s, std::size_t n);
// "True" / "False", the words in which booleans are logged and stored.
inline const char* boolWord(bool b) { return b ? "True" : "False"; }

} // namespace corvid::text
