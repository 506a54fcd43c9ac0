#pragma once
// SimPlatform: a deterministic machine for the player's tests and for hosts that test their
// own code against Corvid. Filters, devices, files and streams are described by data; the
// clock moves only when the test advances it; every platform operation can be made to fail.
//
//   auto sim = corvid::sim::SimPlatform::standardMachine();
//   sim->addFile("/music/a.mp3", {"stream/mpeg-audio", 180.0});
//   ... build and run a graph through the platform interfaces ...
//   sim->advanceMs(1000);
//   sim->pump();                                   // deliver the events that are due
//   sim->heard("Default DirectSound Device").playedMs("/music/a.mp3");   // 1000
//
// Threads: control thread only, except eventLoop().post and quit.

#include "platform/Platform.h"
#include "platform/sim/SimGraph.h"
#include "platform/sim/SimHelper.h"
#include "platform/sim/SimServices.h"
#include "platform/sim/SimTypes.h"

#include <memory>
#include <string>
#include <vector>

namespace corvid::sim {

namespace detail {
class World;
}

class SimPlatform : public platform::Platform {
public:
    SimPlatform();
    ~SimPlatform() override;
    SimPlatform(const SimPlatform&) = delete;
    SimPlatform& operator=(const SimPlatform&) = delete;

    // A machine with every filter the player uses and three output devices.
    static std::unique_ptr<SimPlatform> standardMachine();

    // Platform. The services are returned as their simulated classes.
    Status createGraph(platform::GraphPtr& graph) override;
    Status createGraphHelper(platform::GraphHelperKind kind,
                             platform::GraphHelperPtr& helper) override;
    std::unique_ptr<platform::TagReader> createTagReader() override;
    SimCatalogue& catalogue() override;
    SimTickCounter& ticks() override;
    SimSettingsStore& settings() override;
    SimOperatorServices& operatorServices() override;
    SimEventLoop& eventLoop() override;

    // Machine: filters, devices, files, streams.
    void registerFilter(FilterSpec desc);
    // Takes every registration of that display name away; entries already handed out can
    // no longer make instances. Returns how many went.
    int unregisterFilter(const std::string& displayName);
    bool isRegistered(const std::string& displayName) const;
    // The descriptor of a registered filter, to change it in place; null when unknown.
    FilterSpec* filterSpec(const std::string& displayName);
    // An audio output device taking "audio/pcm16". Two devices may share a name.
    void addAudioRenderer(const std::string& name, int32_t numSpeakers);
    // Unplugs every device of that name: graphs rendering to it get GraphEvent::DeviceLost
    // (posted) and it hears nothing more. Returns how many went.
    int removeAudioRenderer(const std::string& name);
    // The device that Pin::render adds when the graph has no free renderer.
    void setDefaultRenderer(const std::string& name);
    // The filter that Graph::addSourceFilter chooses ("File Source (Async.)").
    void setSystemSource(const std::string& displayName);
    void addFile(const std::string& path, SimFile file);
    void removeFile(const std::string& path);
    void addStream(const std::string& address, SimStream stream);

    // Clock. advanceMs moves the tick counter, running graphs, helper ticks and stream
    // timers in order and posts the events that fall due; pump() then delivers them.
    void advanceMs(int64_t ms);
    // The tick counter's reading now; later readings follow it and wrap at 32 bits.
    void setTickCount(int32_t nowMs);
    void setSecondsSinceMidnight(double seconds);
    int64_t elapsedMs() const;
    // Runs the event loop until it is empty; returns how many tasks ran.
    int pump();
    // advanceMs in steps of `stepMs`, pumping after each: a host's loop running for a while.
    void runFor(int64_t ms, int64_t stepMs = 10);

    // Faults. inject returns an id for heal().
    int inject(Fault fault);
    // Shorthand: `point` on `subject` fails every time with `status`.
    int failAlways(FaultPoint point, const std::string& subject, Status status);
    int failOnce(FaultPoint point, const std::string& subject, Status status);
    void heal(int faultId);
    void healAll();
    // How many calls the fault made fail so far.
    int failures(int faultId) const;

    // Observations.
    // What reached the device (the `index`th of that name); an empty log when unknown.
    const RenderLog& heard(const std::string& deviceName, int index = 0) const;
    void clearHeard();
    std::shared_ptr<SimGraphHelper> lastHelper(platform::GraphHelperKind kind) const;
    std::vector<std::shared_ptr<SimGraphHelper>> helpers() const;
    std::vector<std::shared_ptr<SimGraph>> graphs() const;
    int graphsCreated() const;
    // The stream source filter created last, or null.
    std::shared_ptr<SimFilter> lastStreamSource() const;
    // Automation for helpers created from now on.
    HelperAutomation& helperAutomation();

private:
    std::shared_ptr<detail::World> world_;
};

// Registers every filter the player uses, with media types that make the normal chains
// work, and the devices "Default DirectSound Device" (2 speakers), "DirectSound: Brindle
// Dummy Output Device" (2) and "Speakers (Sim 7.1 Surround)" (8).
void addStandardFilters(SimPlatform& sim);

// Names of the standard machine.
namespace names {
inline constexpr const char* DefaultDevice = "Default DirectSound Device";
inline constexpr const char* DummyDevice = "DirectSound: Brindle Dummy Output Device";
inline constexpr const char* SurroundDevice = "Speakers (Sim 7.1 Surround)";
inline constexpr const char* RendererInputPin = "Audio Input pin (rendered)";
} // namespace names

} // namespace corvid::sim
