#pragma once
// Output backends, one file each: PulseAudio sinks (PipeWire serves them too) and the silent
// device paced by a clock.

#include "platform/native/graph/Graph.h"

#include <string>
#include <vector>

namespace corvid::native {

struct SinkInfo {
    std::string name;        // the server's sink name
    std::string description; // what the operator sees
    int channels = 2;
    std::string channelMap;  // the sink's map, as pa_channel_map_snprint writes it
};

// Asks the sound server for its sinks and its default sink, waiting at most `timeoutMs`.
// Fails with NoAudioHardware when no server answers.
Status listPulseSinks(std::vector<SinkInfo>& sinks, std::string& defaultSink, int timeoutMs);

// A renderer on one sink (`sink.name` empty: the server's default sink). `pair` as for
// AudioRenderer.
NativeFilterPtr makePulseRenderer(const std::string& displayName, const SinkInfo& sink, int pair);
// A renderer that plays nothing, in real time.
NativeFilterPtr makeDummyRenderer(const std::string& displayName, int channels, int pair);

} // namespace corvid::native
