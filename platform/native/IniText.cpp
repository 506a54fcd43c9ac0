#include "platform/native/IniText.h"

#include "platform/Text.h"

#include <cstring>
#include <vector>

namespace corvid::native::ini {

namespace {

const char* hexDigits = "0123456789abcdef";

void appendHex(std::string& out, unsigned char c) {
    out += hexDigits[c >> 4];
    out += hexDigits[c & 0x0f];
}

int hexValue(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

// ---- text form of one line ---------------------------------------------------------------

bool isBlank(char c) { return c == ' ' || c == '\t'; }

std::string_view trim(std::string_view s) {
    while (!s.empty() && isBlank(s.front())) s.remove_prefix(1);
    while (!s.empty() && isBlank(s.back())) s.remove_suffix(1);
    return s;
}

// Escapes what the line syntax would otherwise eat: the escape character, control
// characters, blanks at either end (lines are trimmed when read) and, in section and key
// names, the characters that delimit them.
std::string encode(std::string_view s, bool isName) {
    std::string out;
    out.reserve(s.size());
    for (std::size_t i = 0; i < s.size(); ++i) {
        const unsigned char c = static_cast<unsigned char>(s[i]);
        const bool atEdge = i == 0 || i + 1 == s.size();
        if (c == '\\') {
            out += "\\\\";
        } else if (c == '\n') {
            out += "\\n";
        } else if (c == '\r') {
            out += "\\r";
        } else if (c == '\t') {
            out += "\\t";
        } else if (c < 0x20 || c == 0x7f || (atEdge && c == ' ') ||
                   (isName && std::strchr("=[];#", c) != nullptr)) {
            out += "\\x";
            appendHex(out, c);
        } else {
            out += static_cast<char>(c);
        }
    }
    return out;
}

std::optional<std::string> decode(std::string_view s) {
    std::string out;
    out.reserve(s.size());
    for (std::size_t i = 0; i < s.size(); ++i) {
        if (s[i] != '\\') {
            out += s[i];
            continue;
        }
        if (++i == s.size()) return std::nullopt;
        switch (s[i]) {
        case '\\': out += '\\'; break;
        case 'n': out += '\n'; break;
        case 'r': out += '\r'; break;
        case 't': out += '\t'; break;
        case 'x': {
            if (i + 2 >= s.size()) return std::nullopt;
            const int hi = hexValue(s[i + 1]), lo = hexValue(s[i + 2]);
            if (hi < 0 || lo < 0) return std::nullopt;
            out += static_cast<char>(hi * 16 + lo);
            i += 2;
            break;
        }
        default: return std::nullopt;
        }
    }
    return out;
}

// ---- the file as lines ------------------------------------------------------------------

struct Line {
    enum class Kind { Other, Section, Entry } kind = Kind::Other;
    std::string raw;   // as in the file; blank lines, comments and lines we cannot read
    std::string name;  // section name or key, decoded
    std::string value; // entry value, decoded
};

Line parseLine(std::string raw) {
    Line line;
    const std::string_view t = trim(raw);
    if (t.size() >= 2 && t.front() == '[' && t.back() == ']') {
        if (auto name = decode(t.substr(1, t.size() - 2))) {
            line.kind = Line::Kind::Section;
            line.name = std::move(*name);
        }
    } else if (!t.empty() && t.front() != ';' && t.front() != '#') {
        const auto eq = t.find('=');
        if (eq != std::string_view::npos) {
            auto key = decode(trim(t.substr(0, eq)));
            auto value = decode(trim(t.substr(eq + 1)));
            if (key && value) {
                line.kind = Line::Kind::Entry;
                line.name = std::move(*key);
                line.value = std::move(*value);
            }
        }
    }
    line.raw = std::move(raw);
    return line;
}

std::vector<Line> parseFile(std::string_view text) {
    std::vector<Line> lines;
    std::size_t from = 0;
    while (from < text.size()) {
        std::size_t end = text.find('\n', from);
        if (end == std::string_view::npos) end = text.size();
        std::string raw(text.substr(from, end - from));
        if (!raw.empty() && raw.back() == '\r') raw.pop_back();
        lines.push_back(parseLine(std::move(raw)));
        from = end + 1;
    }
    return lines;
}

std::string entryText(const std::string& key, const std::string& value) {
    return encode(key, true) + "=" + encode(value, false);
}

std::string joinLines(const std::vector<Line>& lines) {
    std::string out;
    for (const Line& line : lines) {
        out += line.raw;
        out += '\n';
    }
    return out;
}

// Index of the first entry `key` in a section named `section` (lines before the first
// header belong to the section ""), if any.
std::optional<std::size_t> findEntry(const std::vector<Line>& lines, const std::string& section,
                                     const std::string& key) {
    bool inSection = section.empty();
    for (std::size_t i = 0; i < lines.size(); ++i) {
        if (lines[i].kind == Line::Kind::Section)
            inSection = text::equalsNoCase(lines[i].name, section);
        else if (inSection && lines[i].kind == Line::Kind::Entry &&
                 text::equalsNoCase(lines[i].name, key))
            return i;
    }
    return std::nullopt;
}

void setEntry(std::vector<Line>& lines, const std::string& section, const std::string& key,
              const std::string& value) {
    if (auto i = findEntry(lines, section, key)) {
        Line& line = lines[*i];
        line.value = value;
        line.raw = entryText(line.name, value); // the key keeps its first spelling
        return;
    }
    Line entry;
    entry.kind = Line::Kind::Entry;
    entry.name = key;
    entry.value = value;
    entry.raw = entryText(key, value);

    // Into the first section of that name, after its last entry.
    for (std::size_t i = 0; i < lines.size(); ++i) {
        if (lines[i].kind != Line::Kind::Section || !text::equalsNoCase(lines[i].name, section))
            continue;
        std::size_t insertAt = i + 1;
        for (std::size_t j = i + 1; j < lines.size() && lines[j].kind != Line::Kind::Section; ++j)
            if (lines[j].kind == Line::Kind::Entry) insertAt = j + 1;
        lines.insert(lines.begin() + static_cast<std::ptrdiff_t>(insertAt), std::move(entry));
        return;
    }
    // A new section at the end.
    if (!lines.empty() && !trim(lines.back().raw).empty()) lines.push_back(Line{});
    Line header;
    header.kind = Line::Kind::Section;
    header.name = section;
    header.raw = "[" + encode(section, true) + "]";
    lines.push_back(std::move(header));
    lines.push_back(std::move(entry));
}

uint64_t fnv1a(std::string_view s) {
    uint64_t h = 1469598103934665603ull;
    for (char c : s) {
        h ^= static_cast<unsigned char>(c);
        h *= 1099511628211ull;
    }
    return h;
}

} // namespace

std::optional<std::string> value(std::string_view text, const std::string& section,
                                 const std::string& key) {
    const std::vector<Line> lines = parseFile(text);
    if (auto i = findEntry(lines, section, key)) return lines[*i].value;
    return std::nullopt;
}

std::string withValue(std::string_view text, const std::string& section, const std::string& key,
                      const std::string& value) {
    std::vector<Line> lines = parseFile(text);
    setEntry(lines, section, key, value);
    return joinLines(lines);
}

std::string fileNameFor(const std::string& application) {
    std::string name;
    for (char ch : application) {
        const char c = text::lowerChar(ch);
        if ((c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-') {
            name += c;
        } else {
            name += '_';
            appendHex(name, static_cast<unsigned char>(c));
        }
    }
    if (name.empty()) name = "_"; // no escape is a lone '_'
    // Keep within the file system's name limit; the hash keeps long names apart.
    if (name.size() > 200) {
        const uint64_t h = fnv1a(name);
        name.resize(180);
        name += '~';
        for (int shift = 60; shift >= 0; shift -= 4) name += hexDigits[(h >> shift) & 0x0f];
    }
    return name + ".ini";
}

} // namespace corvid::native::ini
