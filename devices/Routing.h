#pragma once
// The player's output routing, and the names it uses: the default and the silent device, and the speaker pairs through which
// a stereo player addresses two channels of a multichannel device.

#include "devices/GraphModel.h"
#include "devices/clsCards.h"
#include "platform/Platform.h"

#include <corvid/NameCollection.h>
#include <corvid/SoundCards.h>

#include <memory>
#include <optional>
#include <string>

namespace corvid::routing {

inline constexpr const char* kDefaultDevice = "Default DirectSound Device";
inline constexpr const char* kDummyDevice = "DirectSound: Brindle Dummy Output Device";

// The device name without its speaker-pair suffix (" [1-2]" ... " [7-8]", any case); a name
// without one is returned unchanged.
std::string BaseDeviceName(const std::string& name);

// The surround routing filter ("Sondrel 1-2" ... "Sondrel 7-8") that places stereo on the
// pair a renderer name ends in; empty for any other name.
std::string SurroundFilterFor(const std::string& rendererName);

bool IsDefaultDevice(const std::string& name);

} // namespace corvid::routing

namespace corvid {

// The main and pre-fade-listen devices of one player, the renderers that stand for them in the
// graphs, and the catalogue of devices and filters the player reads them from.
class DeviceRouting {
public:
    DeviceRouting(GraphModel& g, EventChannel& events, TransportHost& transport, RoutingHost& session,
                  platform::Platform& platform)
        : g_(g), events_(events), transport_(transport), session_(session), platform_(platform) {}

    SoundCardCollection QuerySoundCards(bool ForceEnum = false);
    void putref_SetSoundCardCollection(const SoundCardCollection& value);
    bool SetSoundcard(std::string& NewSoundCardName);
    std::string GetMainSoundcard();
    std::string GetPFLSoundcard();
    bool SetPFLSoundcard(std::string& NewPFLCard);
    bool DefaultSoundDeviceExists();
    void SoundCardRouterSet();
    void SoundCardNullSet(); // throws AutomationError 963 when even the dummy device fails
    SoundCardCollection EnumRenders(bool ForceRefresh);
    clsCards& Cards();             // the process-wide catalogue, made and filled on first use
    const FilterCatalogue& colDShowFilters();
    CardsEvents CardsEventsForThisPlayer();
    void OnCardsGotFiltersWeNeed(FilterCatalogue& found, NameCollection& weNeed);
    std::optional<clsDShowRender> FindDevice(const std::string& name);
    // The name under which the device is listed: `name` itself, or the listed name of the device
    // whose alias (the sound server's name for it) `name` is, with any speaker-pair suffix kept.
    std::string ListedName(const std::string& name);
    bool DeviceExists(const std::string& name);
    // Adds the device's renderer to the main or the PFL graph in place of the current one; a
    // main renderer added with `remember` becomes the main card name.
    bool AddSoundCard(const std::string& name, bool forPFL, bool remember = true);
    bool RouteMainOutput(const std::string& name);
    bool RoutePflOutput(const std::string& name);
    bool PFLButtonRequired() const;
    void RaiseIsPFLButtonRequired(bool required);
    // Called by the load before it builds: applies a device asked for while playing.
    void ApplyPendingSoundCards();

    // The filters the catalogue found missing, as the host last saw or set them.
    std::shared_ptr<NameCollection> FilterNamesWeNeed_;

private:
    GraphModel& g_;
    EventChannel& events_;
    TransportHost& transport_;
    RoutingHost& session_;
    platform::Platform& platform_;
    std::unique_ptr<SoundCardCollection> soundCards_;
    std::unique_ptr<SoundCardCollection> renderEnum_;
    std::string mainCardName_;
    std::string pflCardName_;
    std::string pendingMainCard_;
    std::string pendingPflCard_;
};

} // namespace corvid
