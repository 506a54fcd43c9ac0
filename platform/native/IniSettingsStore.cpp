#include "platform/native/IniSettingsStore.h"

#include "platform/native/IniText.h"

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
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
    return ini::fileNameFor(application);
}

std::string IniSettingsStore::filePath(const std::string& application) const {
    return base_ + "/" + fileNameFor(application);
}

std::string IniSettingsStore::read(const std::string& application, const std::string& section,
                                   const std::string& key, const std::string& defaultValue) {
    if (base_.empty()) return defaultValue;
    const FileContents file = readFile(filePath(application));
    if (file.state != FileState::Text) return defaultValue;
    return ini::value(file.text, section, key).value_or(defaultValue);
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
    std::string before;
    switch (current.state) {
    case FileState::Absent: break;
    case FileState::Text: before = current.text; break;
    case FileState::Corrupt:
        // Kept for whoever wants to look; its values are lost to us either way.
        ::rename(path.c_str(), (path + ".corrupt").c_str());
        break;
    case FileState::Unreadable:
        // Replacing it would drop every other value in it.
        return failure("read", path, current.error);
    }
    const std::string text = ini::withValue(before, section, key, value);

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
