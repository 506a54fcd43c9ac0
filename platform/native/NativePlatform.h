#pragma once
// The native Linux runtime behind the platform interfaces: FFmpeg filters in a real media
// graph, PulseAudio (or PipeWire) sinks as renderers, TagLib tags, an event loop for the
// control thread. A host makes one:
//
//     corvid::native::NativePlatform platform;                 // defaults
//     corvid::native::NativePlatform quiet({.output = corvid::native::OutputBackend::Silent});
//
// and pumps platform.eventLoop() on its control thread (run(), or processPending() from its
// own loop). The platform must outlive the players and graphs made over it.

#include "platform/Platform.h"
#include "platform/native/NativeCatalogue.h"
#include "platform/native/EventLoop.h"
#include "platform/native/PlatformClock.h"
#include "platform/native/SystemServices.h"

#include <functional>
#include <memory>
#include <string>

namespace corvid::native {

struct NativeOptions {
    OutputBackend output = OutputBackend::Auto;
    // Rate of the helpers' ticks (meters, position refresh, silence check).
    int helperTickHz = 20;
    // How long the sound server may take to answer the device enumeration.
    int soundServerTimeoutMs = 2000;
    // Where settings live; empty: one INI file per application under $XDG_CONFIG_HOME/corvid/
    // (MemorySettingsStore keeps them in memory instead).
    std::shared_ptr<platform::SettingsStore> settings;
    // Operator reports (message boxes, repair commands) also go to stderr.
    bool echoOperatorToStderr = true;
};

class NativePlatform final : public platform::Platform {
public:
    explicit NativePlatform(NativeOptions options = {});
    ~NativePlatform() override;

    // All members: control thread (the event loop's post() and quit() are thread-safe).
    platform::Status createGraph(platform::GraphPtr& graph) override;
    platform::Status createGraphHelper(platform::GraphHelperKind kind,
                                       platform::GraphHelperPtr& helper) override;
    std::unique_ptr<platform::TagReader> createTagReader() override;
    platform::Catalogue& catalogue() override { return *catalogue_; }
    platform::TickCounter& ticks() override { return ticks_; }
    platform::SettingsStore& settings() override { return *settings_; }
    platform::OperatorServices& operatorServices() override { return operator_; }
    platform::EventLoop& eventLoop() override { return *loop_; }

    NativeEventLoop& loop() { return *loop_; }
    // Receives each operator report (message boxes, repair commands, device notes).
    void setLogSink(std::function<void(const std::string&)> sink) { operator_.setLogSink(std::move(sink)); }
    NativeOperatorServices& operatorReports() { return operator_; }
    const NativeOptions& options() const { return options_; }
    // The clock that ticks the helpers (armed only while one of them needs it), pumped by the
    // event loop.
    PlatformClock& clock() const { return *loop_->clock(); }

private:
    NativeOptions options_;
    std::shared_ptr<NativeEventLoop> loop_;
    SteadyTickCounter ticks_;
    NativeOperatorServices operator_;
    std::shared_ptr<platform::SettingsStore> settings_;
    std::shared_ptr<NativeCatalogue> catalogue_;
};

} // namespace corvid::native
