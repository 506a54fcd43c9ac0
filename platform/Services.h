#pragma once
// The platform services outside the media graph: the millisecond tick counter, the per-user
// settings store, the operator (message boxes, processes, files), the tag reader, and the
// event loop of the control thread (public, in <corvid/EventLoop.h>).

#include "platform/Status.h"

#include <corvid/EventLoop.h>

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

using corvid::EventLoop;

} // namespace corvid::platform
