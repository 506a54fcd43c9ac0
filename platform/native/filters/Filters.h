#pragma once
// Factories of the native filter families, one file each. The registry joins them to their
// display names; nothing else should need to know the concrete classes, except the helper,
// which reads the sample grabber's peaks.

#include "platform/native/graph/Graph.h"

#include <atomic>
#include <string>
#include <vector>

namespace corvid::native {

// Byte-stream file sources ("File Source (Async.)"; with `oggOnly`, "OggDSFMux2").
NativeFilterPtr makeFileSource(const std::string& name, bool oggOnly);
// Parsers: a demuxer behind a byte-stream input, limited to `formats`.
NativeFilterPtr makeParser(const std::string& name, std::vector<std::string> formats,
                           const std::string& outputPinName);
// Decoders of compressed audio, limited to `codecIds` (FFmpeg codec ids).
NativeFilterPtr makeDecoder(const std::string& name, std::vector<int> codecIds);
// Sources that demux and decode a local file of `formats` to PCM.
NativeFilterPtr makeDecodingSource(const std::string& name, std::vector<std::string> formats);
// PCM converters; the output takes `s16` 16-bit integers, else 32-bit floats.
NativeFilterPtr makeConverter(const std::string& name, bool s16);
NativeFilterPtr makePitchShifter(const std::string& name);
NativeFilterPtr makePipeSender(const std::string& name);
// The network stream source ("_DShowShoutCast"): HTTP/ICY in, decoded PCM out.
// Stereo onto speaker pair `pair` (0 = 1-2 ... 3 = 7-8).
NativeFilterPtr makeChannelRouter(const std::string& name, int pair);

// Pass-through that keeps the per-channel peaks of what went through since the last read.
// The loudest left and right sample seen since the last take, on the 16-bit scale; written
// by the streaming thread, taken by the helper's ticker.
class PeakKeeper {
public:
    void see(const Buffer& buffer);
    void take(int32_t& left, int32_t& right);
    void clear();

private:
    std::atomic<int32_t> left_{0}, right_{0};
};

class SampleGrabberFilter final : public NativeFilter {
public:
    explicit SampleGrabberFilter(const std::string& name);
    std::vector<MediaType> outputTypes(NativePin& out, NativePin* to) override;
    Status acceptInput(NativePin& in, const MediaType& type) override;
    void receive(NativePin& in, Buffer& buffer) override;
    void flush(NativePin& in, double newPosition) override;

    // Any thread: left and right peaks on the 16-bit scale (full scale 32768) since the last
    // call; mono counts for both.
    void takePeaks(int32_t& left, int32_t& right) { peaks_.take(left, right); }
    // Whether audio can reach it at all (its input is connected).
    bool fed();
    // Control thread: whether anyone reads its peaks. A graph that plays to a renderer meters
    // at the renderer, and the grabbers in front of it need not measure every sample.
    void setMetering(bool on) { metering_.store(on, std::memory_order_relaxed); }

private:
    PeakKeeper peaks_;
    std::atomic<bool> metering_{true};
};

// The loudest magnitude of the first two channels of interleaved float samples, raised into
// `peak` (a mono signal counts for both sides).
void raisePeaks(const float* samples, int frames, int ch, float peak[2]);
// A magnitude on the 16-bit scale (full scale 32768).
int32_t peakToScale(float peak);
// The peak of each of the first two channels of interleaved PCM, on the 16-bit scale.
void measurePeaks(const PcmFormat& format, const uint8_t* data, int frames, int32_t& left,
                  int32_t& right);

} // namespace corvid::native
