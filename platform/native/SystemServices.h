#pragma once
// What the native runtime takes from the operating system outside the media graph: the steady
// clock behind the tick counter, the operator (processes, files, messages on the log and stderr),
// and a settings store kept in memory (for hosts and tests that want no files).

#include "platform/Services.h"

#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <vector>

namespace corvid::native {

// Monotonic milliseconds, truncated to the signed 32-bit reading the player expects.
class SteadyTickCounter final : public platform::TickCounter {
public:
    int32_t nowMs() override;
    void sleepMs(int32_t ms) override;
    double secondsSinceMidnight() override;
};

// Settings held in memory only; names compare without regard to case.
class MemorySettingsStore final : public platform::SettingsStore {
public:
    std::string read(const std::string& application, const std::string& section,
                     const std::string& key, const std::string& defaultValue) override;
    platform::Status write(const std::string& application, const std::string& section,
                           const std::string& key, const std::string& value) override;

private:
    std::mutex mutex_;
    std::map<std::string, std::string> values_;
};

// Message boxes and repair commands go to stderr and to the host's log sink, and message boxes
// also to the host's view when it has one (a toolkit's window). A box never waits: on air the
// next item must not be held up by a box nobody has clicked away yet.
class NativeOperatorServices final : public platform::OperatorServices {
public:
    using LogSink = std::function<void(const std::string&)>;
    // Shows a message box and returns at once.
    using MessageBoxView = std::function<void(const std::string& text, const std::string& title,
                                              platform::MessageIcon icon)>;

    // Control thread: where operator reports go besides stderr (may be empty).
    void setLogSink(LogSink sink) { sink_ = std::move(sink); }
    void setEchoToStderr(bool echo) { echo_ = echo; }
    // Control thread: where message boxes are shown besides the report (may be empty).
    void setMessageBoxView(MessageBoxView view) { view_ = std::move(view); }
    // Everything reported so far, oldest first.
    const std::vector<std::string>& reports() const { return reports_; }
    // Reports a line to the operator (stderr and the sink).
    void report(const std::string& line);

    void messageBox(const std::string& text, const std::string& title,
                    platform::MessageIcon icon) override;
    platform::Status startProcess(const std::string& commandLine,
                                  platform::WindowStyle style) override;
    bool fileExists(const std::string& path) override;
    platform::Status testOpen(const std::string& path) override;
    platform::Status writeTextFile(const std::string& path, const std::string& text) override;
    std::string detectionReportPath() override;
    std::string markerFilePath() override;

private:
    LogSink sink_;
    MessageBoxView view_;
    bool echo_ = true;
    std::vector<std::string> reports_;
};

// $XDG_STATE_HOME or ~/.local/state, and $XDG_CONFIG_HOME or ~/.config, each + "/corvid".
std::string corvidStateDir();
std::string corvidConfigDir();
// Splits a command line at blanks, honouring double quotes.
std::vector<std::string> splitCommandLine(const std::string& commandLine);
// The full path of an executable found through PATH (or as given when it holds a '/').
std::string findExecutable(const std::string& name);

} // namespace corvid::native
