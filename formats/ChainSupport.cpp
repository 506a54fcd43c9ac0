#include "formats/ChainSupport.h"

#include "formats/FormatChains.h"

namespace corvid::formats {

using platform::PinPtr;
using platform::Status;

Status noObject() { return Status::failure(platform::hr::Pointer, "Invalid pointer"); }

Status connectDirect(const PinPtr& from, const PinPtr& to) {
    if (!from || !to) return noObject();
    return from->connectDirect(to);
}

Status connect(const PinPtr& from, const PinPtr& to) {
    if (!from || !to) return noObject();
    return from->connect(to);
}

Status disconnect(const PinPtr& pin) {
    if (!pin) return noObject();
    return pin->disconnect();
}

bool isConnected(const PinPtr& pin) { return pin && pin->isConnected(); }

PinPtr connectedTo(const PinPtr& pin) { return pin ? pin->connectedTo() : nullptr; }

std::string ownerName(const PinPtr& pin) {
    if (!pin) return {};
    auto filter = pin->filter();
    return filter ? filter->name() : std::string();
}

} // namespace corvid::formats

// ---------------------------------------------------------------------------------------------
// The player's side: helpers that keep their failures as the pending error, as every step of a
// chain does.

namespace corvid {

namespace {
// The runtime's error for an absent catalogue key: what a script sees when it asks the
// catalogue for a filter that is not registered.
constexpr int32_t kNoSuchEntry = 5;
constexpr const char* kNoSuchEntryText = "Invalid procedure call or argument";
} // namespace

platform::FilterPtr FormatChains::CreateSampleGrabberTrapped() {
    try {
        return graph_.CreateSampleGrabber();
    } catch (const AutomationError& e) {
        g_.trapError(e.number(), e.description());
        return nullptr;
    }
}

void FormatChains::RemoveFilterTrapped(const platform::FilterPtr& filter) {
    if (!filter || !g_.MainGraphMan) {
        g_.trap(formats::noObject());
        return;
    }
    g_.trap(g_.MainGraphMan->removeFilter(filter));
}

platform::CatalogueEntryPtr FormatChains::TakeCatalogueEntry(const std::string& displayName) {
    const platform::CatalogueEntryPtr* entry = routing_.colDShowFilters().find(displayName);
    if (!entry || !*entry) {
        g_.trapError(kNoSuchEntry, kNoSuchEntryText);
        return nullptr;
    }
    return *entry;
}

platform::FilterPtr FormatChains::AddCatalogueInstance(const platform::CatalogueEntryPtr& entry) {
    if (!entry || !g_.MainGraphMan) {
        g_.trap(formats::noObject());
        return nullptr;
    }
    platform::FilterPtr filter;
    if (!g_.trap(entry->createIn(*g_.MainGraphMan, filter))) return nullptr;
    return filter;
}

// A chain's clean-up takes the source out without losing the failure that sent it there: the
// dispatcher reports that failure once every chain has been tried.
void FormatChains::RemoveSourceFilterKeepingError() {
    GraphModel::PendingError failure = g_.Err;
    graph_.RemoveSourceFilter();
    g_.Err = failure;
}

} // namespace corvid
