#pragma once
// The analysis graphs that work beside the player's graph: `Helper` follows the playing
// graph and ticks with peak levels and its end; `CueHelper` scans an item in the background
// for its cue-in and segue points. Their events arrive on the control thread.

#include "platform/MediaGraph.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace corvid::platform {

class GraphHelperEvents {
public:
    virtual ~GraphHelperEvents() = default;
    // Periodic tick with the left and right peaks (16-bit sample scale) since the last one.
    virtual void threadEvent(int32_t left, int32_t right) = 0;
    virtual void endOfStream() = 0;
    // Results in milliseconds from the start of the item; a negative cue-in is "not found".
    virtual void cueInFound(int32_t positionMs) = 0;
    virtual void segueFound(int32_t positionMs) = 0;
};

enum class GraphHelperKind { Helper, CueHelper };

class GraphHelper {
public:
    virtual ~GraphHelper() = default;

    virtual void setEvents(GraphHelperEvents* events) = 0;

    // The graph the helper follows: its ticks measure that graph's audio.
    virtual void setCurrentGraph(const GraphPtr& graph) = 0;
    virtual GraphPtr currentGraph() const = 0;

    virtual Status run() = 0;
    virtual Status pause() = 0;
    virtual Status stop() = 0;

    // Background scans. `threshold` is the level on the 16-bit sample scale that counts as
    // sound. The ASF-reader flag asks for the Windows Media reader as source.
    virtual Status startCueSearch(const std::string& file, const std::vector<std::string>& filters,
                                  bool useAsfReader, int32_t threshold) = 0;
    virtual Status startSegueSearch(const std::string& file,
                                    const std::vector<std::string>& filters, bool useAsfReader,
                                    int32_t threshold) = 0;
    // The variant for the player's own source filter.
    virtual Status startSegueSearchOwnSource(const std::string& file,
                                             const std::vector<std::string>& filters,
                                             int32_t threshold) = 0;
};

using GraphHelperPtr = std::shared_ptr<GraphHelper>;

// The player's side of the stream source: buffering progress, metadata, on-demand segments.
class ShoutcastCallback {
public:
    virtual ~ShoutcastCallback() = default;
    virtual void StreamBuffering(int32_t bufferPercentFull) = 0;
    virtual void MetaChangeCallback(const std::string& artistTitle, const std::string& url,
                                    const std::string& fullMeta) = 0;
    virtual void OdStreamSeg(double seg) = 0;
};

} // namespace corvid::platform
