#pragma once
// The text of a settings file, apart from the file: INI sections of "key=value" entries.
//
//   [Fenwick]
//   NewGraphEveryTime=True
//
// Sections and keys compare without regard to case; the spelling first written is kept.
// Values may hold any text: backslash, control characters (newline, ...), and in names '=',
// '[', ']', ';', '#' are escaped, as are blanks at either end, so every value survives a
// round trip while the file stays readable and editable by hand. Lines that are not ours
// (comments, blank lines, lines we cannot read) are kept as they stand.
//
// Pure functions of text: no disk, any thread.

#include <optional>
#include <string>
#include <string_view>

namespace corvid::native::ini {

// The value of `key` in the first section named `section` (entries before the first header
// belong to the section ""), if the text holds one.
std::optional<std::string> value(std::string_view text, const std::string& section,
                                 const std::string& key);

// The text with `key` in `section` set to `value`: an existing entry is rewritten in place,
// a new one goes after the last entry of its section, a new section at the end.
std::string withValue(std::string_view text, const std::string& section, const std::string& key,
                      const std::string& value);

// The file name of an application's values: the name in lower case, with every character
// other than a-z, 0-9 and '-' written as '_' and two hex digits ("My App" -> "my_20app.ini"),
// so that names differing only in case share a file and no name can leave the directory.
std::string fileNameFor(const std::string& application);

} // namespace corvid::native::ini
