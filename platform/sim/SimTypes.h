#pragma once
// The data that describes a simulated machine: files and streams by media type, registered
// filters by descriptor, injected faults, and what a renderer heard. Everything here is plain
// data; SimPlatform turns it into behaviour.
//
// Media types are strings such as "stream/mpeg-audio" (a file's byte stream) or "audio/pcm16"
// (what flows between filters). Patterns may hold '*', which matches any run of characters.

#include "platform/Catalogue.h"
#include "platform/MediaGraph.h"
#include "platform/Status.h"

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace corvid::sim {

using platform::PinDirection;
using platform::Status;

// Whether `text` matches `pattern`; '*' matches any run of characters, all else exactly.
bool matchesPattern(const std::string& pattern, const std::string& text);
bool matchesAny(const std::vector<std::string>& patterns, const std::string& text);

// A produced type that repeats the type arriving at the filter (pass-through filters).
inline constexpr const char* SameAsInput = "=input";

// Peak level of an item from `fromSeconds` on, on the 16-bit sample scale, until the next
// point. An empty profile reads as DefaultLevel on both channels.
struct LevelPoint {
    double fromSeconds = 0;
    int32_t left = 0;
    int32_t right = 0;
};
inline constexpr int32_t DefaultLevel = 16000;
int32_t levelAt(const std::vector<LevelPoint>& profile, double seconds, bool right);

// A local file. Its media type says what a parser finds in it ("stream/wave;float32").
struct SimFile {
    SimFile(std::string type = {}, double duration = 0, std::vector<LevelPoint> profile = {},
            std::map<std::string, std::string> tagValues = {}, bool canRead = true)
        : mediaType(std::move(type)), durationSeconds(duration), levels(std::move(profile)),
          tags(std::move(tagValues)), readable(canRead) {}

    std::string mediaType;
    double durationSeconds = 0;
    std::vector<LevelPoint> levels;
    // Tag values by name: "Artist", "Title" and attributes such as "WM/Year".
    std::map<std::string, std::string> tags;
    // False: the file exists but cannot be opened (permissions, a lock).
    bool readable = true;
};

// A network stream. Opening takes `afterMs` of virtual time and then succeeds or fails.
struct SimStream {
    enum class Outcome { Opens, Fails, NeverOpens };
    Outcome outcome = Outcome::Opens;
    int32_t afterMs = 0;
    Status failure = Status::failure(platform::hr::FileNotFound, "The stream could not be opened.");
    std::string mediaType = "stream/mpeg-audio";
    // Live streams report 525600 (one year of minutes) as the stream client does.
    double durationSeconds = LiveDuration;
    std::vector<LevelPoint> levels;
    // A failure that is the server's last word (see StreamSourceControl::failureIsFinal).
    bool finalFailure = false;

    static constexpr double LiveDuration = 525600.0;
};

// Type rule of an output pin: when the type arriving at the filter (its input's type, or a
// source's file or stream type) matches `from`, the pin produces `to` (or SameAsInput).
struct TypeRule {
    std::string from;
    std::string to;
};

struct PinSpec {
    std::string name;
    PinDirection direction = PinDirection::Input;
    // Input pins: the types the pin accepts.
    std::vector<std::string> accepts;
    // Output pins: the first matching rule gives the produced type; no match, no type.
    std::vector<TypeRule> produces;
    // Output pins that exist only once the filter's input is connected (parsers, demuxers),
    // or, on a source, once its file is loaded or its stream is open.
    bool appearsOnConnect = false;

    static PinSpec input(std::string name, std::vector<std::string> accepts);
    static PinSpec output(std::string name, std::vector<TypeRule> produces,
                          bool appearsOnConnect = false);
};

enum class FilterKind {
    Source,       // reads a file set by setFileName
    Transform,    // parsers, decoders, converters, pass-through filters
    Renderer,     // an audio output device
    StreamSource, // opens a network address through its StreamSourceControl
};

// Merit values as the filter registration uses them. Intelligent connect leaves out
// registered filters at or below DoNotUse unless they are already in the graph.
namespace merit {
inline constexpr uint32_t Preferred = 0x800000;
inline constexpr uint32_t Normal = 0x600000;
inline constexpr uint32_t Unlikely = 0x400000;
inline constexpr uint32_t DoNotUse = 0x200000;
} // namespace merit

struct FilterSpec {
    std::string displayName;
    // The name an instance reports when it differs from the display name.
    std::string instanceName;
    std::string category = platform::category::LegacyFilters;
    uint32_t merit = merit::Normal;
    FilterKind kind = FilterKind::Transform;
    std::vector<PinSpec> pins;
    // Sources: the file types the filter reads ("*" for a plain byte reader).
    std::vector<std::string> fileTypes;
    // Sources: whether setFileName also takes network addresses of registered streams.
    bool opensAddresses = false;
    // Renderers: speaker channels.
    int32_t numSpeakers = 0;
    // Surround routers: the speaker pair the filter places stereo on ("3-4").
    std::string speakerPair;
    bool pitchShifter = false;
    bool pipeSender = false;
    bool propertyPage = false;

    std::string nameInGraph() const { return instanceName.empty() ? displayName : instanceName; }
};

// Every operation that a test can make fail. Subject and object name what the operation
// works on (see docs/simulation.md for each point); they are patterns, empty matches all.
enum class FaultPoint {
    CreateGraph,      // subject: -
    CreateHelper,     // subject: "Helper" or "CueHelper"
    CreateFilter,     // subject: filter display name
    SetFileName,      // subject: filter name, object: file or address; a success status
                      // makes the call succeed without loading anything
    PinAppears,       // subject: filter name, object: pin name; the pin is missing from the
                      // instance (a fixed pin when made, an appearing pin when it would appear)
    ConnectDirect,    // subject: upstream filter name, object: downstream filter name
    Connect,          // intelligent connect as a whole: the same names
    Render,           // subject: filter name of the rendered pin
    Disconnect,       // subject: filter name
    AddFilter,        // subject: name given
    RemoveFilter,     // subject: filter name
    AddSourceFilter,  // subject: file name
    Run,              // subject: the graph's item (file or address), object: -
    Pause,
    Stop,
    Seek,
    Position,         // reading the current position
    Duration,
    SetRate,
    SetVolume,
    Enumerate,        // subject: category id ("pairs" for enumerateRenderersWithPairs)
    HelperRun,        // subject: "Helper" or "CueHelper"
    HelperPause,
    HelperStop,
    CueSearch,        // subject: file
    SegueSearch,      // subject: file (both segue variants)
    StreamOpen,       // subject: address (open() itself refuses)
    TagOpen,          // subject: file
    TestOpen,         // subject: file
    StartProcess,     // subject: command line
    WriteTextFile,    // subject: path
    SettingsWrite,    // subject: key
};

struct Fault {
    FaultPoint point = FaultPoint::CreateFilter;
    std::string subject;
    std::string object;
    Status status = Status::failure(platform::hr::Fail, "Injected failure.");
    // Let this many matching calls pass before failing.
    int skip = 0;
    // How many times to fail; negative: every time.
    int times = -1;
};

// One stretch of audio that reached a renderer: `item` from `fromSeconds` to `toSeconds` of
// the item, taking `playedMs` of virtual time, at the graph's volume.
struct HeardSpan {
    std::string item;
    double fromSeconds = 0;
    double toSeconds = 0;
    int64_t playedMs = 0;
    int32_t volume = 0;
    double rate = 1.0;
    // The pipe sender in the chain sent silence onwards.
    bool muted = false;
    // The speaker pair a surround router placed the audio on, or empty.
    std::string speakerPair;
};

// What happened at a renderer besides audio: transport, seeks, volume changes, the end.
struct RendererEvent {
    enum class Kind { Run, Pause, Stop, Seek, Volume, EndOfStream };
    Kind kind = Kind::Run;
    double seconds = 0; // position at the event (Seek: the new position)
    int32_t volume = 0; // Volume: the new level
};

struct RenderLog {
    std::vector<HeardSpan> spans;
    std::vector<RendererEvent> events;

    // Virtual milliseconds of audio of `item` (or of anything, when empty) that reached the
    // renderer, muted stretches excluded.
    int64_t playedMs(const std::string& item = {}) const;
    // The item of the last span, or empty.
    std::string lastItem() const;
    int count(RendererEvent::Kind kind) const;
    void clear() { spans.clear(); events.clear(); }
};

} // namespace corvid::sim
