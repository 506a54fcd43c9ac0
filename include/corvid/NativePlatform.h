#pragma once
// The native Linux runtime, as a host makes it: FFmpeg reads and decodes, PulseAudio (or
// PipeWire's PulseAudio service) plays, TagLib reads tags. One per process, made and pumped
// on the host's control thread, outliving every Player made over it:
//
//     corvid::NativePlatform platform;                       // the sound server's devices
//     corvid::Player deck(platform);
//     ...
//     platform.eventLoop().run();                           // or wakeupFd() in the host's loop

#include <corvid/EventLoop.h>

#include <functional>
#include <memory>
#include <string>

namespace corvid {

namespace platform {
class Platform;
}
namespace native {
class NativePlatform;
}

struct NativePlatformOptions {
    enum class Output {
        Auto,       // the sound server's sinks; the silent device when no server answers
        PulseAudio, // the same, for hosts that want to say so
        Silent,     // only the silent device (tests, headless machines)
    };
    Output output = Output::Auto;
    // Rate of the player's periodic work: meters, position, silence check (1 to 1000).
    int helperTickHz = 20;
    // How long the sound server may take to list its devices.
    int soundServerTimeoutMs = 2000;
    // Settings kept in memory instead of one INI file per application under
    // $XDG_CONFIG_HOME/corvid/.
    bool settingsInMemory = false;
    // Operator reports (message boxes, repair commands) also go to stderr.
    bool echoOperatorToStderr = true;
};

class NativePlatform {
public:
    explicit NativePlatform(const NativePlatformOptions& options = {});
    ~NativePlatform();
    NativePlatform(const NativePlatform&) = delete;
    NativePlatform& operator=(const NativePlatform&) = delete;

    // What a Player is made over.
    platform::Platform& platform();
    operator platform::Platform&() { return platform(); }
    EventLoop& eventLoop();
    // Receives each operator report (message boxes, repair commands, device notes).
    void setLogSink(std::function<void(const std::string&)> sink);

    // The runtime itself, for programs built inside Corvid's source tree.
    native::NativePlatform& runtime() { return *runtime_; }

private:
    std::unique_ptr<native::NativePlatform> runtime_;
};

} // namespace corvid
