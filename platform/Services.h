#pragma once
// The platform services outside the media graph: the millisecond tick counter, the per-user
// settings store, the operator (message boxes, processes, files), the tag reader and the
// event loop of the control thread.

#include "platform/Status.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

namespace corvid::platform {

// Milliseconds since an arbitrary start, as a 32-bit reading that wraps like the system
// tick counter it stands for. Also the only sleep the player uses (the stream wait).
class TickCounter {
public:
    virtual ~TickCounter() = default;
    virtual int32_t nowMs() = 0;
    virtual void sleepMs(int32_t ms) = 0;
    // Wall-clock seconds since local midnight, for the few date-time values the player keeps.
    virtual double secondsSinceMidnight() = 0;
};

// String values by application name, section and key. A read of an absent value returns the
// default and writes nothing. Names compare without regard to case.
class SettingsStore {
public:
    virtual ~SettingsStore() = default;
    virtual std::string read(const std::string& application, const std::string& section,
                             const std::string& key, const std::string& defaultValue) = 0;
    virtual Status write(const std::string& application, const std::string& section,
                         const std::string& key, const std::string& value) = 0;
};

enum class MessageIcon { None, Critical, Exclamation, Information };
enum class WindowStyle { Normal, Minimized, Hidden };

// Everything the player tells the operator or asks of the machine outside the graph.
class OperatorServices {
public:
    virtual ~OperatorServices() = default;
    // A message box with one OK button; returns when the operator has seen it (or at once
    // where nobody can see it: then it is logged).
    virtual void messageBox(const std::string& text, const std::string& title,
                            MessageIcon icon) = 0;
    // Starts a command line as its own process and does not wait for it.
    virtual Status startProcess(const std::string& commandLine, WindowStyle style) = 0;
    virtual bool fileExists(const std::string& path) = 0;
    // Opens a file for binary reading and closes it again: whether it can be read.
    virtual Status testOpen(const std::string& path) = 0;
    // Writes a whole text file, replacing it.
    virtual Status writeTextFile(const std::string& path, const std::string& text) = 0;
    // Where the filter enumeration writes its detection report.
    virtual std::string detectionReportPath() = 0;
    // The marker file whose presence allows fast play on test machines.
    virtual std::string markerFilePath() = 0;
};

// Reads the tags of one file. Attribute names are the Windows Media ones ("WM/Year",
// "WM/OriginalReleaseYear", "WM/Genre"); each format's own fields are mapped onto them.
class TagReader {
public:
    virtual ~TagReader() = default;
    virtual Status open(const std::string& path) = 0;
    virtual void close() = 0;
    virtual Status artist(std::string& value) = 0;
    virtual Status title(std::string& value) = 0;
    // Empty when the attribute is absent.
    virtual Status attribute(const std::string& name, std::string& value) = 0;
};

// The control thread's queue. Work done on other threads reaches the player only through
// post(); tasks run in the order posted, on the thread that pumps the loop.
//
// A host pumps it in one of three ways: run() blocks until quit(); runUntil() pumps for a
// while; or the host waits for wakeupFd() in its own loop and calls processPending() when it
// becomes readable.
class EventLoop {
public:
    virtual ~EventLoop() = default;
    // Thread-safe.
    virtual void post(std::function<void()> task) = 0;
    // Runs the tasks pending now; returns how many ran. Control thread only.
    virtual int processPending() = 0;
    // Pumps until quit() is called. Control thread only.
    virtual void run() = 0;
    // Pumps until `done` holds or `timeoutMs` has passed; whether it held. Control thread only.
    virtual bool runUntil(const std::function<bool()>& done, int timeoutMs) = 0;
    // Thread-safe.
    virtual void quit() = 0;
    // A descriptor that is readable while tasks are pending, for the host's own poll(), GLib
    // source, QSocketNotifier or asyncio reader. The pumps above drain it; the host only
    // waits on it, never reads or closes it. Owned by the loop for its whole life.
    virtual int wakeupFd() const = 0;
};

} // namespace corvid::platform
