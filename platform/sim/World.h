#pragma once
// The state of one simulated machine, shared by the platform object and everything it makes:
// registrations, files, streams, faults, the virtual clock and the live graphs, helpers and
// stream sources that the clock drives. Graphs and filters hold it by shared pointer, so a
// filter that outlives its platform stays safe to call.
//
// Internal to the simulation; tests use SimPlatform.

#include "platform/sim/SimGraph.h"
#include "platform/sim/SimHelper.h"
#include "platform/sim/SimServices.h"
#include "platform/sim/SimTypes.h"

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace corvid::sim::detail {

// Class not registered: a catalogue entry whose filter was unregistered since.
inline constexpr int32_t ClassNotRegistered = static_cast<int32_t>(0x80040154);

struct Registration {
    FilterSpec desc;
    bool registered = true;
    // Renderers: what reached this device.
    RenderLog heard;
};

class World : public std::enable_shared_from_this<World> {
public:
    World();

    // Registry.
    std::vector<std::shared_ptr<Registration>> registrations;
    std::map<std::string, SimFile> files;
    std::map<std::string, SimStream> streams;
    std::string systemSource = "File Source (Async.)";
    std::string defaultRenderer = "Default DirectSound Device";
    std::shared_ptr<Registration> registered(const std::string& displayName) const;
    const SimFile* file(const std::string& path) const;
    const SimStream* stream(const std::string& address) const;

    // Faults: the failure to return, when an active fault matches this call.
    struct ActiveFault {
        int id = 0;
        Fault fault;
        int matched = 0;
        int failed = 0;
    };
    std::vector<ActiveFault> faults;
    int nextFaultId = 1;
    // `subjects` are the names the subject may go by (a filter's display and instance name).
    bool fails(FaultPoint point, const std::vector<std::string>& subjects,
               const std::vector<std::string>& objects, Status& failure);
    bool fails(FaultPoint point, const std::string& subject, Status& failure) {
        return fails(point, std::vector<std::string>{subject}, {}, failure);
    }
    // For operations on a filter: matched by its display name and its name in the graph.
    bool filterFails(FaultPoint point, const SimFilter& filter, const SimFilter* other,
                     Status& failure);
    bool filterFails(FaultPoint point, const SimFilter& filter, const std::string& object,
                     Status& failure);

    // Virtual clock.
    int64_t elapsedMs = 0;
    uint32_t tickBase = 0;
    double midnightBaseSeconds = 12 * 3600.0;
    int32_t nowMs() const { return static_cast<int32_t>(tickBase + static_cast<uint32_t>(elapsedMs)); }
    // Moves the machine on: graphs, helper ticks, stream timers, in order of their due times.
    void advance(int64_t ms);

    // Live objects driven by the clock.
    std::vector<std::weak_ptr<SimGraph>> graphs;
    std::vector<std::weak_ptr<SimGraphHelper>> helpers;
    std::vector<std::weak_ptr<SimFilter>> streamSources;
    std::weak_ptr<SimGraphHelper> lastHelper[2];
    int nextGraphId = 1;
    HelperAutomation helperAutomation;
    int graphsCreated = 0;

    // Services.
    SimEventLoop loop;
    SimTickCounter ticks{*this};
    SimSettingsStore settings{*this};
    SimOperatorServices operatorServices{*this};
    SimCatalogue catalogue{*this};

private:
    int64_t nextDue(int64_t limit);
    void runDue();
};

} // namespace corvid::sim::detail
