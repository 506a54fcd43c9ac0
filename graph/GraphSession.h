#pragma once
// The graph session: the life of the player's graph (creating it, building it for one item,
// disconnecting it, destroying it), the source selection, the chain dispatch and the standard
// filters and inserts. It works on the graph object model, reaches the devices and the format
// chains below it directly, and the parts above it through TransportHost and GraphHost.

#include "devices/GraphModel.h"
#include "devices/Routing.h"
#include "formats/ChainRegistry.h"
#include "formats/FormatChains.h"
#include "platform/Platform.h"

#include <string>
#include <vector>

namespace corvid {

// Milliseconds between two readings of the wrapping 32-bit tick counter.
inline int32_t elapsedMs(int32_t start, int32_t now) {
    return static_cast<int32_t>(static_cast<uint32_t>(now) - static_cast<uint32_t>(start));
}

class GraphSession : public ChainGraph, public RoutingHost {
public:
    GraphSession(GraphModel& g, EventChannel& events, TransportHost& transport, GraphHost& host,
                 DeviceRouting& routing, FormatChains& chains, platform::Platform& platform)
        : g_(g), events_(events), transport_(transport), host_(host), routing_(routing),
          chains_(chains), platform_(platform) {}

    void CreateNewGraph(bool MakinPFLGraph) override;
    bool BuildGraph(const item::Name& item, bool bMustUseASFReader, bool CanUseAutoRender);
    bool BuildGraphFailed(const std::string& pendingMessage);
    void ReplaceGraph(bool MakinPFLGraph); // CreateNewGraph's work; raises 558 while busy
    void DestroyGraph(bool keepPlaystate = false) override;
    void ForgetMainGraphFilters();
    void DisconnectAllFilters(platform::GraphPtr graph); // held: the host may replace it meanwhile
    void RemoveSourceFilter() override;
    void PruneUnconnectedFilters();
    // Raises 558 with the refusal (and the waiting item) while a source is being added.
    void BusyGuard(const char* refusal, bool quoteItem);
    // ---- Source selection (graph/SourceSelection.cpp) ----
    bool AddSourceFilter(const item::Name& item, bool& bMustUseASFReader) override;
    // An address of a scheme no source opens: says so (LastError, the log, the pending error)
    // and rules out a second build.
    bool RefuseUnplayableAddress(const item::Name& item);
    platform::FilterPtr AddFlacSource(const std::string& FileName);
    platform::FilterPtr AddFileSource(const std::string& FileName);
    platform::FilterPtr AddStreamSource(const std::string& address, GraphModel::PendingError& failure);
    bool WaitForStreamSource(const platform::FilterPtr& source, const std::string& address);
    platform::FilterPtr AddReaderSource(const item::Name& item, platform::CatalogueEntryPtr reader,
                                        GraphModel::PendingError& failure);
    platform::FilterPtr AddOggSource(const std::string& FileName);
    void RemoveUnusableSources(const std::vector<platform::FilterPtr>& standing);
    // ---- Chain dispatch (graph/ChainDispatch.cpp) ----
    bool ConnectGraphFilters(const item::Name& item, bool CanUseAutoRender, bool bMustUseASFReader);
    bool RunChain(const FormatChain& chain, ChainPins& pins, bool& usingWM, const item::Name& item);
    bool ConnectFallbackChains(ChainPins& pins, bool& usingWM, const item::Name& item, bool CanUseAutoRender);
    bool ChainDispatchFailed();
    bool GatherChainPins(ChainPins& pins);
    void RecreateGrabberIfMissing(ChainPins& pins);
    void ForgetSourceForNextChain(ChainPins& pins);
    void SyncChainPins(ChainPins& pins);
    bool RenderAutomatically(const item::Name& item, platform::PinPtr& sgIn, platform::PinPtr& sgOut);
    bool RenderAutomaticallyFailed(const GraphModel::PendingError& failure, bool grabberRemoved);
    // ---- Standard filters and inserts (graph/Inserts.cpp) ----
    void AddGraphFilters();
    bool StockStandardFilters();
    platform::FilterPtr CreateSampleGrabber() override;
    void PutSampleGrabberBeforeRender();
    bool InsertFilterAfterFilter(const platform::FilterPtr& AfterWhatFilter,
                                 const platform::FilterPtr& FilterToInsert, std::string& failure);
    void InsertPipeSender();
    void SetupPitchAndPipeSender();
    platform::PinPtr InsertPointForPitch();
    bool InsertFilterBeforePin(const platform::FilterPtr& filter, const platform::PinPtr& before);
    // Creates a registered filter in the main graph by display name (pending error on failure).
    platform::FilterPtr AddFilterByName(const std::string& displayName);
    // The same, unless a filter of that name is already in the graph.
    platform::FilterPtr AddFilterByNameUnlessPresent(const std::string& displayName) override;
    platform::FilterPtr FindFilterInGraph(const std::string& name);
    bool RemoveFilterFromGraph(const platform::FilterPtr& filter);
    bool IsInMainGraph(const platform::FilterPtr& filter);
    void RepairRegistration(const std::string& commandLine);
    void CriticalMessage(const std::string& text, const std::string& title);

private:
    GraphModel& g_;
    EventChannel& events_;
    TransportHost& transport_;
    GraphHost& host_;
    DeviceRouting& routing_;
    FormatChains& chains_;
    platform::Platform& platform_;
};

} // namespace corvid
