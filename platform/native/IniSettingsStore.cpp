#include "platform/native/IniSettingsStore.h"

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string_view>
#include <vector>

#include <dirent.h>
#include <fcntl.h>
#include <pwd.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace corvid::native {

namespace {

using platform::Status;

// A settings file larger than this is not ours: it is treated as corrupt rather than read.
constexpr off_t MaxFileBytes = 4 * 1024 * 1024;

char lowerAscii(char c) { return (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c; }

bool equalsNoCase(std::string_view a, std::string_view b) {
    if (a.size() != b.size()) return false;
    for (std::size_t i = 0; i < a.size(); ++i)
        if (lowerAscii(a[i]) != lowerAscii(b[i])) return false;
    return true;
}

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

std::vector<Line> parseFile(const std::string& text) {
    std::vector<Line> lines;
    std::size_t from = 0;
    while (from < text.size()) {
        std::size_t end = text.find('\n', from);
        if (end == std::string::npos) end = text.size();
        std::string raw = text.substr(from, end - from);
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
            inSection = equalsNoCase(lines[i].name, section);
        else if (inSection && lines[i].kind == Line::Kind::Entry &&
                 equalsNoCase(lines[i].name, key))
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
        if (lines[i].kind != Line::Kind::Section || !equalsNoCase(lines[i].name, section))
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

// ---- files ------------------------------------------------------------------------------

int32_t errorNumber(int err) {
    switch (err) {
    case EACCES:
    case EPERM:
    case EROFS: return platform::hr::AccessDenied;
    case ENOENT: return platform::hr::FileNotFound;
    default: return platform::hr::Fail;
    }
}

Status failure(const std::string& what, const std::string& path, int err) {
    return Status::failure(errorNumber(err),
                           "Cannot " + what + " the settings file " + path + ": " +
                               std::strerror(err));
}

class Fd {
public:
    explicit Fd(int fd = -1) : fd_(fd) {}
    ~Fd() {
        if (fd_ >= 0) ::close(fd_);
    }
    Fd(const Fd&) = delete;
    Fd& operator=(const Fd&) = delete;
    int get() const { return fd_; }
    bool valid() const { return fd_ >= 0; }
    int release() {
        const int fd = fd_;
        fd_ = -1;
        return fd;
    }

private:
    int fd_;
};

enum class FileState { Absent, Text, Corrupt, Unreadable };

struct FileContents {
    FileState state = FileState::Absent;
    std::string text;
    int error = 0;
};

FileContents readFile(const std::string& path) {
    FileContents out;
    Fd fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    if (!fd.valid()) {
        out.state = errno == ENOENT ? FileState::Absent : FileState::Unreadable;
        out.error = errno;
        return out;
    }
    struct stat st {};
    if (::fstat(fd.get(), &st) != 0) {
        out.state = FileState::Unreadable;
        out.error = errno;
        return out;
    }
    if (!S_ISREG(st.st_mode)) {
        out.state = FileState::Unreadable;
        out.error = S_ISDIR(st.st_mode) ? EISDIR : EINVAL;
        return out;
    }
    if (st.st_size > MaxFileBytes) {
        out.state = FileState::Corrupt;
        return out;
    }
    char buffer[16384];
    for (;;) {
        const ssize_t n = ::read(fd.get(), buffer, sizeof buffer);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) {
            out.state = FileState::Unreadable;
            out.error = errno;
            out.text.clear();
            return out;
        }
        if (n == 0) break;
        out.text.append(buffer, static_cast<std::size_t>(n));
        if (out.text.size() > static_cast<std::size_t>(MaxFileBytes)) {
            out.state = FileState::Corrupt;
            out.text.clear();
            return out;
        }
    }
    if (out.text.find('\0') != std::string::npos) {
        out.state = FileState::Corrupt;
        out.text.clear();
        return out;
    }
    out.state = FileState::Text;
    return out;
}

bool writeAll(int fd, const std::string& text) {
    std::size_t done = 0;
    while (done < text.size()) {
        const ssize_t n = ::write(fd, text.data() + done, text.size() - done);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return false;
        done += static_cast<std::size_t>(n);
    }
    return true;
}

int makeDirectories(const std::string& path) {
    if (path.empty()) return ENOENT;
    for (std::size_t slash = path.find('/', 1);; slash = path.find('/', slash + 1)) {
        const std::string part = path.substr(0, slash);
        if (::mkdir(part.c_str(), 0700) != 0 && errno != EEXIST) return errno;
        if (slash == std::string::npos) break;
    }
    struct stat st {};
    if (::stat(path.c_str(), &st) != 0) return errno;
    return S_ISDIR(st.st_mode) ? 0 : ENOTDIR;
}

std::string tempPrefix(const std::string& fileName) { return "." + fileName + ".tmp."; }

// Temporary files of writers that died before their rename. Only called under the lock,
// when no live writer of this file can own one.
void removeStaleTemps(const std::string& dir, const std::string& fileName) {
    DIR* d = ::opendir(dir.c_str());
    if (!d) return;
    const std::string prefix = tempPrefix(fileName);
    while (const dirent* e = ::readdir(d)) {
        if (std::strncmp(e->d_name, prefix.c_str(), prefix.size()) == 0)
            ::unlinkat(::dirfd(d), e->d_name, 0);
    }
    ::closedir(d);
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

IniSettingsStore::IniSettingsStore(std::string baseDirectory)
    : base_(baseDirectory.empty() ? defaultBaseDirectory() : std::move(baseDirectory)) {
    while (base_.size() > 1 && base_.back() == '/') base_.pop_back();
}

std::string IniSettingsStore::defaultBaseDirectory() {
    if (const char* xdg = std::getenv("XDG_CONFIG_HOME"); xdg && xdg[0] == '/')
        return std::string(xdg) + "/corvid";
    std::string home;
    if (const char* h = std::getenv("HOME"); h && h[0] == '/') {
        home = h;
    } else {
        struct passwd pw {};
        struct passwd* found = nullptr;
        std::vector<char> buffer(16384);
        if (::getpwuid_r(::getuid(), &pw, buffer.data(), buffer.size(), &found) == 0 && found &&
            found->pw_dir && found->pw_dir[0] == '/')
            home = found->pw_dir;
    }
    if (home.empty()) return {};
    return home + "/.config/corvid";
}

std::string IniSettingsStore::fileNameFor(const std::string& application) {
    std::string name;
    for (char ch : application) {
        const char c = lowerAscii(ch);
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

std::string IniSettingsStore::filePath(const std::string& application) const {
    return base_ + "/" + fileNameFor(application);
}

std::string IniSettingsStore::read(const std::string& application, const std::string& section,
                                   const std::string& key, const std::string& defaultValue) {
    if (base_.empty()) return defaultValue;
    const FileContents file = readFile(filePath(application));
    if (file.state != FileState::Text) return defaultValue;
    const std::vector<Line> lines = parseFile(file.text);
    if (auto i = findEntry(lines, section, key)) return lines[*i].value;
    return defaultValue;
}

Status IniSettingsStore::write(const std::string& application, const std::string& section,
                               const std::string& key, const std::string& value) {
    if (base_.empty())
        return Status::failure(platform::hr::FileNotFound,
                               "Cannot write settings: there is no configuration directory.");
    const std::string fileName = fileNameFor(application);
    const std::string path = base_ + "/" + fileName;

    if (const int err = makeDirectories(base_)) return failure("create the folder of", path, err);

    // One writer per file at a time, across processes: the read-modify-write below must
    // see every earlier writer's keys. The lock file stays; removing it would race.
    const std::string lockPath = path + ".lock";
    Fd lock(::open(lockPath.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
    if (!lock.valid()) return failure("lock", path, errno);
    while (::flock(lock.get(), LOCK_EX) != 0) {
        if (errno != EINTR) return failure("lock", path, errno);
    }

    const FileContents current = readFile(path);
    std::vector<Line> lines;
    switch (current.state) {
    case FileState::Absent: break;
    case FileState::Text: lines = parseFile(current.text); break;
    case FileState::Corrupt:
        // Kept for whoever wants to look; its values are lost to us either way.
        ::rename(path.c_str(), (path + ".corrupt").c_str());
        break;
    case FileState::Unreadable:
        // Replacing it would drop every other value in it.
        return failure("read", path, current.error);
    }
    setEntry(lines, section, key, value);
    const std::string text = joinLines(lines);

    removeStaleTemps(base_, fileName);
    std::string tempPath = base_ + "/" + tempPrefix(fileName) + "XXXXXX";
    Fd temp(::mkostemp(tempPath.data(), O_CLOEXEC));
    if (!temp.valid()) return failure("write", path, errno);
    const auto abandon = [&](const char* what) {
        const int err = errno;
        ::unlink(tempPath.c_str());
        return failure(what, path, err);
    };
    if (!writeAll(temp.get(), text) || ::fsync(temp.get()) != 0) return abandon("write");
    if (::close(temp.release()) != 0) return abandon("write");
    if (::rename(tempPath.c_str(), path.c_str()) != 0) return abandon("replace");

    // The rename itself must reach the disk before the write counts as done.
    Fd dir(::open(base_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (dir.valid()) ::fsync(dir.get());
    return Status::success();
}

} // namespace corvid::native
