#include "platform/native/SystemServices.h"
#include "platform/Text.h"

#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <thread>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace corvid::native {

using platform::Status;
namespace hr = platform::hr;

namespace {

std::string envOr(const char* name, const std::string& fallback) {
    const char* v = std::getenv(name);
    return (v && *v) ? std::string(v) : fallback;
}

std::string homeDir() { return envOr("HOME", "/tmp"); }

const char* iconWord(platform::MessageIcon icon) {
    switch (icon) {
    case platform::MessageIcon::Critical: return "critical";
    case platform::MessageIcon::Exclamation: return "warning";
    case platform::MessageIcon::Information: return "information";
    case platform::MessageIcon::None: break;
    }
    return "message";
}

// Starts argv as its own process without waiting for it: the intermediate child exits at
// once, so the started program is adopted by init and never becomes our zombie.
Status spawnDetached(const std::string& path, const std::vector<std::string>& args) {
    std::vector<char*> argv;
    for (auto& a : args) argv.push_back(const_cast<char*>(a.c_str()));
    argv.push_back(nullptr);
    pid_t child = ::fork();
    if (child < 0) return Status::failure(hr::Fail, "Cannot start a process: fork failed.");
    if (child == 0) {
        ::setsid();
        if (::fork() != 0) ::_exit(0);
        int devnull = ::open("/dev/null", O_RDWR);
        if (devnull >= 0) {
            ::dup2(devnull, 0);
            ::dup2(devnull, 1);
            ::dup2(devnull, 2);
        }
        ::execv(path.c_str(), argv.data());
        ::_exit(127);
    }
    int status = 0;
    ::waitpid(child, &status, 0);
    return Status::success();
}

} // namespace

int32_t SteadyTickCounter::nowMs() {
    const auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(
                        std::chrono::steady_clock::now().time_since_epoch())
                        .count();
    return static_cast<int32_t>(static_cast<uint32_t>(static_cast<uint64_t>(ms)));
}

void SteadyTickCounter::sleepMs(int32_t ms) {
    if (ms > 0) std::this_thread::sleep_for(std::chrono::milliseconds(ms));
}

double SteadyTickCounter::secondsSinceMidnight() {
    // Asked on every helper tick while the silence check runs: the time zone is consulted
    // once a quarter of an hour (offsets and their changes fall on quarter hours), not on
    // every call, and the day's start is kept in between.
    struct Day {
        int64_t midnight = 0;   // the local midnight, in seconds of the system clock's epoch
        int64_t validUntil = 0; // the next quarter hour: the offset may change there
    };
    thread_local Day day;
    constexpr int64_t kQuarter = 15 * 60;
    const auto now = std::chrono::system_clock::now();
    const double epochSeconds = std::chrono::duration<double>(now.time_since_epoch()).count();
    const auto whole = static_cast<int64_t>(std::floor(epochSeconds));
    if (whole >= day.validUntil || whole < day.midnight || whole - day.midnight >= 86400) {
        const std::time_t t = static_cast<std::time_t>(whole);
        std::tm local{};
        ::localtime_r(&t, &local);
        day.midnight = whole - (local.tm_hour * 3600 + local.tm_min * 60 + local.tm_sec);
        day.validUntil = (whole / kQuarter + 1) * kQuarter;
    }
    return epochSeconds - static_cast<double>(day.midnight);
}

std::string MemorySettingsStore::read(const std::string& application, const std::string& section,
                                      const std::string& key, const std::string& defaultValue) {
    std::lock_guard lock(mutex_);
    auto it = values_.find(text::toLower(application + "\x1f" + section + "\x1f" + key));
    return it == values_.end() ? defaultValue : it->second;
}

Status MemorySettingsStore::write(const std::string& application, const std::string& section,
                                  const std::string& key, const std::string& value) {
    std::lock_guard lock(mutex_);
    values_[text::toLower(application + "\x1f" + section + "\x1f" + key)] = value;
    return Status::success();
}

void NativeOperatorServices::report(const std::string& line) {
    reports_.push_back(line);
    if (echo_) std::cerr << "corvid: " << line << std::endl;
    if (sink_) sink_(line);
}

void NativeOperatorServices::messageBox(const std::string& text, const std::string& title,
                                        platform::MessageIcon icon) {
    report(std::string("message box (") + iconWord(icon) + ") \"" + title + "\": " + text);
    if (view_) view_(text, title, icon);
}

Status NativeOperatorServices::startProcess(const std::string& commandLine,
                                            platform::WindowStyle /*style*/) {
    const auto args = splitCommandLine(commandLine);
    if (args.empty()) return Status::failure(hr::InvalidArg, "Empty command line.");
    const std::string program = text::toLower(std::filesystem::path(args[0]).filename().string());

    // Filter registration is a Windows repair; here the operator only learns what was asked.
    if (program == "regsvr32" || program == "regsvr32.exe") {
        report("repair command (not run on this system): " + commandLine);
        return Status::success();
    }
    if (program == "sndvol32.exe" || program == "sndvol32") {
        for (const char* mixer : {"pavucontrol", "pavucontrol-qt", "pwvucontrol"}) {
            const std::string path = findExecutable(mixer);
            if (!path.empty()) {
                report("starting the volume mixer: " + path);
                return spawnDetached(path, {path});
            }
        }
        report("no desktop volume mixer is installed (pavucontrol)");
        return Status::failure(hr::FileNotFound, "No desktop volume mixer is installed.");
    }
    const std::string path = findExecutable(args[0]);
    if (path.empty())
        return Status::failure(hr::FileNotFound, "The program " + args[0] + " was not found.");
    std::vector<std::string> argv = args;
    argv[0] = path;
    return spawnDetached(path, argv);
}

bool NativeOperatorServices::fileExists(const std::string& path) {
    struct stat st{};
    return !path.empty() && ::stat(path.c_str(), &st) == 0;
}

Status NativeOperatorServices::testOpen(const std::string& path) {
    struct stat st{};
    if (::stat(path.c_str(), &st) != 0)
        return Status::failure(hr::FileNotFound, "The file " + path + " does not exist.");
    if (S_ISDIR(st.st_mode))
        return Status::failure(hr::AccessDenied, path + " is a directory.");
    int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return Status::failure(hr::AccessDenied, "The file " + path + " cannot be read.");
    ::close(fd);
    return Status::success();
}

Status NativeOperatorServices::writeTextFile(const std::string& path, const std::string& text) {
    std::error_code ec;
    const auto parent = std::filesystem::path(path).parent_path();
    if (!parent.empty()) std::filesystem::create_directories(parent, ec);
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    if (!out) return Status::failure(hr::AccessDenied, "Cannot write " + path + ".");
    out << text;
    out.close();
    if (!out) return Status::failure(hr::Fail, "Writing " + path + " failed.");
    return Status::success();
}

std::string NativeOperatorServices::detectionReportPath() {
    return corvidStateDir() + "/DetectionInfo.txt";
}

std::string NativeOperatorServices::markerFilePath() { return corvidConfigDir() + "/marlodev"; }

std::string corvidStateDir() {
    return envOr("XDG_STATE_HOME", homeDir() + "/.local/state") + "/corvid";
}

std::string corvidConfigDir() { return envOr("XDG_CONFIG_HOME", homeDir() + "/.config") + "/corvid"; }

std::vector<std::string> splitCommandLine(const std::string& commandLine) {
    std::vector<std::string> out;
    std::string current;
    bool quoted = false, any = false;
    for (char c : commandLine) {
        if (c == '"') {
            quoted = !quoted;
            any = true;
        } else if (!quoted && (c == ' ' || c == '\t')) {
            if (any) out.push_back(current);
            current.clear();
            any = false;
        } else {
            current += c;
            any = true;
        }
    }
    if (any) out.push_back(current);
    return out;
}

std::string findExecutable(const std::string& name) {
    if (name.find('/') != std::string::npos)
        return ::access(name.c_str(), X_OK) == 0 ? name : std::string();
    const std::string path = envOr("PATH", "/usr/local/bin:/usr/bin:/bin");
    size_t start = 0;
    while (start <= path.size()) {
        size_t end = path.find(':', start);
        if (end == std::string::npos) end = path.size();
        const std::string dir = path.substr(start, end - start);
        if (!dir.empty()) {
            const std::string candidate = dir + "/" + name;
            struct stat st{};
            if (::stat(candidate.c_str(), &st) == 0 && S_ISREG(st.st_mode) &&
                ::access(candidate.c_str(), X_OK) == 0)
                return candidate;
        }
        start = end + 1;
    }
    return {};
}

} // namespace corvid::native
