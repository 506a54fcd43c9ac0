#pragma once
// The native catalogue: registered filters from the one registry list, and audio renderers
// from the sound server's sinks (asked once, until refresh()).

#include "platform/Catalogue.h"
#include "platform/native/graph/Graph.h"
#include "platform/native/renderers/Renderers.h"

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace corvid::native {

inline constexpr const char* kDefaultDeviceName = "Default DirectSound Device";
inline constexpr const char* kDummyDeviceName = "DirectSound: Brindle Dummy Output Device";

enum class OutputBackend {
    Auto,       // the sound server's sinks; the silent device when none answers
    PulseAudio, // the same, for hosts that want to say so
    Silent,     // only the silent device, also as the default (tests, headless machines)
};

class NativeCatalogue final : public platform::Catalogue {
public:
    using Report = std::function<void(const std::string&)>;
    NativeCatalogue(OutputBackend backend, int serverTimeoutMs, Report report);

    platform::Status enumerate(const std::string& categoryId,
                               std::vector<platform::CatalogueEntryPtr>& entries) override;
    platform::Status enumerateRenderersWithPairs(
        std::vector<platform::CatalogueEntryPtr>& entries) override;
    void refresh() override { enumerated_ = false; }

    // The renderer of the default device, for Render.
    NativeFilterPtr makeDefaultRenderer();

private:
    struct Device {
        std::string name;
        int channels = 2;
        std::function<NativeFilterPtr(const std::string& name, int pair)> make;
        std::string alias; // the sink's name, when the device is listed by its description
    };
    void enumerateDevices();

    OutputBackend backend_;
    int serverTimeoutMs_;
    Report report_;
    bool enumerated_ = false;
    bool saidSilent_ = false;
    std::vector<Device> devices_;
};

} // namespace corvid::native
