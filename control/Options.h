#pragma once
// The host's settings: the properties a host sets and the player reads where it needs them.
// Some are the player's own, some are kept per user in the settings store, some are shared
// by every player of the process.

#include <corvid/NameCollection.h>

#include "devices/GraphModel.h"
#include "devices/Routing.h"
#include "platform/Platform.h"

#include <string>

namespace corvid {

class Options {
public:
    Options(GraphModel& g, EventChannel& events, DeviceRouting& routing, platform::Platform& platform)
        : g_(g), events_(events), routing_(routing), platform_(platform) {}

    // ---- Public fields: plain stored values, no side effects ----
    bool CanCueIn = false;
    bool UsesVu = false;
    bool UseAutoCue = false;
    std::string ForCart;
    bool StateChangeVerify = false;

    bool get_LoggingEnabled() { return events_.logging(); }
    void put_LoggingEnabled(bool& value) { events_.setLogging(value); }
    std::string get_ID() { return ID_; }
    void put_ID(std::string& value) { ID_ = value; }
    std::string get_ThisCartName() { return g_.ThisCartName_; }
    void put_ThisCartName(std::string& value) { g_.ThisCartName_ = value; }
    bool get_UseACM() { return g_.UseACM_; }
    void put_UseACM(bool& value) { g_.UseACM_ = value; }
    bool get_Pipe2020() { return g_.Pipe2020_; }
    void put_Pipe2020(bool& value) { g_.Pipe2020_ = value; }
    bool get_UsePitchAdjuster() { return g_.UsePitchAdjuster_; }
    void put_UsePitchAdjuster(bool& value);
    std::string get_SurroundRenderName() { return g_.SurroundRenderName_; }
    NameCollection& get_FilterNamesWeNeed();
    void putref_FilterNamesWeNeed(const NameCollection& value);

    // Per user.
    bool get_NewGraphEveryTime();
    void put_NewGraphEveryTime(bool& value);
    bool get_PipeSenderDownstreamMute();
    void put_PipeSenderDownstreamMute(bool& value); // throws AutomationError while !Pipe2020

    // Shared by the process.
    bool get_AutoRenderAllowed() { return g_.process->AutoRenderAllowed; }
    void put_AutoRenderAllowed(bool& value) { g_.process->AutoRenderAllowed = value; }
    bool get_HaldenSourcePrefer() { return g_.process->HaldenSourcePrefer; }
    void put_HaldenSourcePrefer(bool& value) { g_.process->HaldenSourcePrefer = value; }
    bool get_ASFReaderBanned() { return g_.process->ASFReaderBanned; }
    void put_ASFReaderBanned(bool& value) { g_.process->ASFReaderBanned = value; }
    NameCollection get_Plugins();

private:
    GraphModel& g_;
    EventChannel& events_;
    DeviceRouting& routing_;
    platform::Platform& platform_;
    std::string ID_;
};

} // namespace corvid
