// The host's handle on the simulation (<corvid/SimPlatform.h>): the standard machine, files
// by their kind, the clock and what the devices heard, without the simulation's headers.

#include <corvid/SimPlatform.h>

#include "platform/ItemName.h"
#include "platform/Text.h"
#include "platform/sim/SimHelper.h"
#include "platform/sim/SimPlatform.h"

namespace corvid {
namespace {

// The media type the standard machine's filters take for each kind of file.
std::string mediaTypeOf(const std::string& path) {
    static const std::pair<const char*, const char*> kinds[] = {
        {"mp3", "stream/mpeg-audio"}, {"wav", "stream/wave;pcm16"}, {"ogg", "stream/ogg;vorbis"},
        {"flac", "stream/flac"},      {"m4a", "stream/mp4;aac"},    {"mp4", "stream/mp4;aac"},
        {"aac", "stream/mp4;aac"},    {"wma", "stream/asf;wma"},
    };
    const std::string extension = item::extension(path);
    for (const auto& [kind, type] : kinds)
        if (text::equalsNoCase(extension, kind)) return type;
    return "stream/unknown";
}

} // namespace

// Helpers that tick, report the end and answer cue and segue searches, as the native ones
// do: a host's test sees the events it sees on air.
SimPlatform::SimPlatform() : machine_(sim::SimPlatform::standardMachine()) {
    sim::HelperAutomation& helpers = machine_->helperAutomation();
    helpers.ticks = true;
    helpers.endOfStream = true;
    helpers.searches = true;
}

SimPlatform::~SimPlatform() = default;

platform::Platform& SimPlatform::platform() { return *machine_; }

EventLoop& SimPlatform::eventLoop() { return machine_->eventLoop(); }

void SimPlatform::addFile(const std::string& path, double durationSeconds,
                          const std::map<std::string, std::string>& tags, double loudFromSeconds,
                          double quietFromSeconds) {
    std::vector<sim::LevelPoint> levels;
    if (loudFromSeconds > 0) levels.push_back({0, 0, 0});
    levels.push_back({loudFromSeconds, sim::DefaultLevel, sim::DefaultLevel});
    if (quietFromSeconds >= 0) levels.push_back({quietFromSeconds, 0, 0});
    machine_->addFile(path, sim::SimFile(mediaTypeOf(path), durationSeconds, levels, tags));
}

void SimPlatform::removeFile(const std::string& path) { machine_->removeFile(path); }

void SimPlatform::addAudioRenderer(const std::string& name, int32_t numSpeakers) {
    machine_->addAudioRenderer(name, numSpeakers);
}

int SimPlatform::removeAudioRenderer(const std::string& name) {
    return machine_->removeAudioRenderer(name);
}

void SimPlatform::advanceMs(int64_t ms) { machine_->advanceMs(ms); }

int SimPlatform::pump() { return machine_->pump(); }

void SimPlatform::runFor(int64_t ms, int64_t stepMs) { machine_->runFor(ms, stepMs); }

int64_t SimPlatform::heardMs(const std::string& device, const std::string& item) const {
    return machine_->heard(device).playedMs(item);
}

} // namespace corvid
