#include "platform/native/NativeCatalogue.h"

#include "platform/native/Registry.h"
#include "platform/Text.h"

#include <algorithm>

namespace corvid::native {

using platform::CatalogueEntryPtr;
using platform::Status;

namespace {

class Entry final : public platform::CatalogueEntry {
public:
    Entry(std::string name, int speakers, std::string instance, std::function<NativeFilterPtr()> make,
          std::string alias = {})
        : name_(std::move(name)), speakers_(speakers), instance_(std::move(instance)),
          make_(std::move(make)), alias_(std::move(alias)) {}
    std::string name() const override { return name_; }
    int32_t numSpeakers() const override { return speakers_; }
    std::string alias() const override { return alias_; }
    Status createIn(platform::Graph& graph, platform::FilterPtr& filter) override {
        filter.reset();
        auto made = make_();
        if (!made) return Status::failure(hr::Fail, "The filter " + name_ + " cannot be made.");
        Status s = graph.addFilter(made, instance_);
        if (!s) return s;
        filter = made;
        return Status::success();
    }

private:
    std::string name_;
    int speakers_;
    std::string instance_;
    std::function<NativeFilterPtr()> make_;
    std::string alias_;
};

const char* kPairSuffixes[] = {" [1-2]", " [3-4]", " [5-6]", " [7-8]"};

} // namespace

NativeCatalogue::NativeCatalogue(OutputBackend backend, int serverTimeoutMs, Report report)
    : backend_(backend), serverTimeoutMs_(serverTimeoutMs), report_(std::move(report)) {}

void NativeCatalogue::enumerateDevices() {
    if (enumerated_) return;
    enumerated_ = true;
    devices_.clear();
    std::vector<SinkInfo> sinks;
    std::string defaultSink;
    Status s = Status::failure(hr::NoAudioHardware, "Silent output chosen.");
    if (backend_ != OutputBackend::Silent) s = listPulseSinks(sinks, defaultSink, serverTimeoutMs_);
    if (s) {
        SinkInfo def{"", kDefaultDeviceName, 2, ""};
        for (auto& sink : sinks)
            if (sink.name == defaultSink) def = SinkInfo{sink.name, kDefaultDeviceName, sink.channels, sink.channelMap};
        devices_.push_back({kDefaultDeviceName, def.channels, [def](const std::string& n, int pair) {
                                return makePulseRenderer(n, def, pair);
                            }, {}});
        // Listed by description, as operators know their devices; the sink's name is the
        // alias a host may give instead. A description taken already lists by the name, so
        // that two cards of one model both stay reachable.
        for (auto& sink : sinks) {
            const bool taken = std::any_of(devices_.begin(), devices_.end(), [&](const Device& d) {
                return text::equalsNoCase(d.name, sink.description);
            });
            const bool byName = sink.description.empty() || taken;
            devices_.push_back({byName ? sink.name : sink.description, sink.channels,
                                [sink](const std::string& n, int pair) {
                                    return makePulseRenderer(n, sink, pair);
                                },
                                byName ? std::string() : sink.name});
        }
    } else {
        if (!saidSilent_ && report_ && backend_ != OutputBackend::Silent)
            report_("no sound server (" + s.description +
                    "): the default device is the silent dummy device");
        saidSilent_ = true;
        devices_.push_back({kDefaultDeviceName, 2, [](const std::string& n, int pair) {
                                return makeDummyRenderer(n, 2, pair);
                            }, {}});
    }
    devices_.push_back({kDummyDeviceName, 2, [](const std::string& n, int pair) {
                            return makeDummyRenderer(n, 2, pair);
                        }, {}});
}

Status NativeCatalogue::enumerate(const std::string& categoryId,
                                  std::vector<CatalogueEntryPtr>& entries) {
    entries.clear();
    if (categoryId == platform::category::AudioRenderers) {
        enumerateDevices();
        for (auto& d : devices_) {
            auto make = d.make;
            auto name = d.name;
            entries.push_back(std::make_shared<Entry>(d.name, d.channels, d.name,
                                                      [make, name] { return make(name, -1); }, d.alias));
        }
        return Status::success();
    }
    for (auto& d : registeredFilters())
        if (categoryId == d.category)
            entries.push_back(std::make_shared<Entry>(d.displayName, 0, instanceName(d), d.factory));
    return Status::success();
}

Status NativeCatalogue::enumerateRenderersWithPairs(std::vector<CatalogueEntryPtr>& entries) {
    Status s = enumerate(platform::category::AudioRenderers, entries);
    if (!s) return s;
    for (auto& d : devices_) {
        if (d.channels <= 2) continue;
        for (int pair = 0; pair < 4 && 2 * pair + 2 <= d.channels; ++pair) {
            const std::string name = d.name + kPairSuffixes[pair];
            auto make = d.make;
            entries.push_back(std::make_shared<Entry>(name, d.channels, name,
                                                      [make, name, pair] { return make(name, pair); }));
        }
    }
    return Status::success();
}

NativeFilterPtr NativeCatalogue::makeDefaultRenderer() {
    enumerateDevices();
    return devices_.front().make(kDefaultDeviceName, -1);
}

} // namespace corvid::native
