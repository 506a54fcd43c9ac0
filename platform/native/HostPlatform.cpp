// The host's handle on the native runtime (<corvid/NativePlatform.h>): the few things a host
// needs, without the runtime's headers.

#include <corvid/NativePlatform.h>

#include "platform/native/NativePlatform.h"

namespace corvid {
namespace {

native::NativeOptions runtimeOptions(const NativePlatformOptions& options) {
    native::NativeOptions o;
    switch (options.output) {
    case NativePlatformOptions::Output::Auto: o.output = native::OutputBackend::Auto; break;
    case NativePlatformOptions::Output::PulseAudio: o.output = native::OutputBackend::PulseAudio; break;
    case NativePlatformOptions::Output::Silent: o.output = native::OutputBackend::Silent; break;
    }
    o.helperTickHz = options.helperTickHz;
    o.soundServerTimeoutMs = options.soundServerTimeoutMs;
    if (options.settingsInMemory) o.settings = std::make_shared<native::MemorySettingsStore>();
    o.echoOperatorToStderr = options.echoOperatorToStderr;
    return o;
}

} // namespace

NativePlatform::NativePlatform(const NativePlatformOptions& options)
    : runtime_(std::make_unique<native::NativePlatform>(runtimeOptions(options))) {}

NativePlatform::~NativePlatform() = default;

platform::Platform& NativePlatform::platform() { return *runtime_; }

EventLoop& NativePlatform::eventLoop() { return runtime_->eventLoop(); }

void NativePlatform::setLogSink(std::function<void(const std::string&)> sink) {
    runtime_->setLogSink(std::move(sink));
}

} // namespace corvid
