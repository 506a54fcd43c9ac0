#pragma once
// The format chains: one chain per kind of item, each joining the source's pin through its
// parser and decoder to the sample grabber and the output device, plus the surround insert and
// the stream source's callbacks. The dispatcher in graph/ chooses which chain runs; a chain that
// needs a source, a standard filter or a new grabber asks the graph session through ChainGraph.

#include "devices/GraphModel.h"
#include "devices/Routing.h"
#include "platform/ItemName.h"
#include "platform/MediaGraph.h"
#include "platform/Platform.h"

#include <cstdint>
#include <string>

namespace corvid {

// What the chains ask of the graph session above them.
class ChainGraph {
public:
    virtual bool AddSourceFilter(const item::Name& item, bool& bMustUseASFReader) = 0;
    // Creates a registered filter in the main graph by display name, unless one of that name
    // is there already (pending error on failure).
    virtual platform::FilterPtr AddFilterByNameUnlessPresent(const std::string& displayName) = 0;
    virtual platform::FilterPtr CreateSampleGrabber() = 0;
    virtual void RemoveSourceFilter() = 0;

protected:
    ~ChainGraph() = default;
};

// The pins a chain works with: the dispatcher gathers them before the first chain, and each
// chain hands back what it changed (a new grabber, a source it added itself). The chains bind
// its members by position, under the names of their steps.
struct ChainPins {
    platform::PinPtr source, splitterIn, decoderIn, decoderOut, waveParserIn;
    platform::PinPtr sgIn, sgOut, renderIn;
    platform::FilterPtr grabber;
};

class FormatChains : public platform::ShoutcastCallback {
public:
    FormatChains(GraphModel& g, EventChannel& events, DeviceRouting& routing, ChainGraph& graph,
                 platform::Platform& platform)
        : g_(g), events_(events), routing_(routing), graph_(graph), platform_(platform) {}

    bool IsMp4Capable(bool ForceRefresh = false);
    bool IsOggCapable(bool ForceRefresh = false);
    void IShoutcastCallback_StreamBuffering(int32_t BufferPercentFull);
    void IShoutcastCallback_MetaChangeCallback(const std::string& sArtistTitle,
                                               const std::string& sURL,
                                               const std::string& sFullMeta);
    void IShoutcastCallback_OdStreamSeg(double Seg);
    bool get_isStreaming();
    int16_t get_StreamBufferingPercent();
    bool get_TryingToPlay();
    bool get_StreamingCanCancelPlay();
    void StreamingCancelPlay();
    bool get_StreamingIsOnDemandFile();
    bool get_UsingHaldenSource();
    bool get_UsingASFReader();
    // The stream source's callbacks (ShoutcastCallback).
    void StreamBuffering(int32_t bufferPercentFull) override;
    void MetaChangeCallback(const std::string& artistTitle, const std::string& url,
                            const std::string& fullMeta) override;
    void OdStreamSeg(double seg) override;
    // How a chain starts: it takes the source pin it was given, or adds the source itself and
    // takes its pin. The texts are the chain's own; false when no pin stands.
    struct SourcePinTexts {
        const char* cannotAdd;
        const char* forPrefix; // "<chain>, for: <item> Source is: <source>"
        const char* noPin;
        bool namesAddedSource = false; // the "for" line also after adding the source itself
        bool noPinInLastError = false; // the missing pin is added to LastError too
    };
    bool TakeSourcePin(platform::PinPtr& sourcePin, const item::Name& item, bool mustUseAsfReader,
                       const SourcePinTexts& texts);
    static void GetPins(platform::PinPtr& inPin, platform::PinPtr& outPin,
                        const platform::FilterPtr& filter);
    // The chains, one per format (formats/*Chain.cpp); the registry (formats/ChainRegistry.h)
    // says which runs first for an item and in which order the others follow.
    bool ConnectMp3Filters(ChainPins& pins, bool& usingWM, const item::Name& item);
    bool ConnectWaveFilters(ChainPins& pins, bool& usingWM, const item::Name& item);
    bool ConnectWMAFilters(ChainPins& pins, bool& usingWM, const item::Name& item);
    bool ConnectOggFilters(ChainPins& pins, bool& usingWM, const item::Name& item);
    bool ConnectMp4Filters(ChainPins& pins, bool& usingWM, const item::Name& item);
    bool ConnectStreamFilters(ChainPins& pins, bool& usingWM, const item::Name& item);
    void AddVorbisFilters(bool& force, bool& ok);
    void RemoveVorbisFilters();
    void AddMp4Filters(bool& force, bool& ok);
    void RemoveMp4Filters();
    void InsertSurroundFilter(platform::PinPtr& renderInPin);
    // Chain helpers (formats/ChainSupport.cpp): each keeps its failure as the pending error.
    platform::FilterPtr CreateSampleGrabberTrapped();
    void RemoveFilterTrapped(const platform::FilterPtr& filter);
    platform::CatalogueEntryPtr TakeCatalogueEntry(const std::string& displayName);
    platform::FilterPtr AddCatalogueInstance(const platform::CatalogueEntryPtr& entry);
    void RemoveSourceFilterKeepingError();

private:
    GraphModel& g_;
    EventChannel& events_;
    DeviceRouting& routing_;
    ChainGraph& graph_;
    platform::Platform& platform_;
};

} // namespace corvid
