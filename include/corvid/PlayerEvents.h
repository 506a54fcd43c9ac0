#pragma once
// The player's events. A host subclasses PlayerEvents, overrides what it listens to and
// registers with Player::setEvents. Events are raised synchronously on the control thread,
// in the middle of the operation that raises them; a handler may call back into the player.
// Parameters passed by non-const reference may be changed by the handler, and the player
// goes on with the changed values where it says so.

#include <corvid/NameCollection.h>

#include <cstdint>
#include <string>

namespace corvid {

class PlayerEvents {
public:
    virtual ~PlayerEvents() = default;

    virtual void PlayerLogInfo(std::string& /*Info*/) {}                                   // 1
    virtual void StreamBufferingStarted() {}                                                // 2
    virtual void StreamBufferingFinished() {}                                               // 3
    virtual void RenderedAutomatically(std::string& /*FilePath*/) {}                        // 4
    virtual void PlayAboutToHappen() {}                                                     // 5
    virtual void StreamBuffering(int16_t& /*Percent*/) {}                                   // 6
    virtual void ShoutCastMeta(std::string& /*ArtistTitle*/, std::string& /*URL*/,
                               std::string& /*FullMeta*/) {}                                // 7
    virtual void SegueFound(double& /*SegFromStart*/) {}                                    // 8
    virtual void WriteLog(std::string& /*sInfo*/) {}                                        // 9
    virtual void CueInFound(double& /*CueInCurPos*/) {}                                     // 10
    virtual void GotTheFiltersWeNeed(NameCollection& /*FiltersWeNeed*/) {}                  // 11
    virtual void VUPeak(int32_t& /*Left*/, int32_t& /*Right*/) {}                           // 12
    virtual void StartedCountingFilters(int32_t& /*Maxindex*/) {}                           // 13
    virtual void CountingFilters(int32_t& /*CurrentIndex*/) {}                              // 14
    virtual void IsPFLButtonRequired(bool& /*ButtonRequired*/) {}                           // 15
    virtual void FinishedCountingFilters() {}                                               // 16
    virtual void Timing(int32_t& /*AudioPeakLevel*/) {}                                     // 17
    virtual void EndOfStream(int32_t /*Result*/) {}                                         // 18
    virtual void PlayStateChange(int32_t /*OldState*/, int32_t /*NewState*/) {}             // 19
    virtual void StreamOnDemandSegFound(double& /*Seg*/) {}                                 // 20
    virtual void SilenceDetected(int32_t /*HowManySecsOfSilence*/) {}                       // 21
};

} // namespace corvid
