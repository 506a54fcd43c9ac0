#pragma once
// The AAC track of an MP4 item read from its own sample table. libavformat reads the whole
// table into an index when it opens an MP4 (tens of milliseconds for an hour of audio); this
// reader looks up only the entries it needs, so opening the item and seeking near its end cost
// the same whatever its length. Anything other than one plain AAC-LC track (fragments, other
// codecs, several edits, a damaged table) is left to libavformat.

#include "platform/native/graph/MediaType.h"

extern "C" {
#include <libavcodec/avcodec.h>
}

#include <cstdint>
#include <memory>
#include <vector>

namespace corvid::native {

class Mp4Track {
public:
    // Null when the item is not one the reader handles.
    static std::unique_ptr<Mp4Track> open(std::shared_ptr<ByteReader> reader);
    ~Mp4Track();
    Mp4Track(const Mp4Track&) = delete;
    Mp4Track& operator=(const Mp4Track&) = delete;

    const AVCodecParameters* params() const { return params_; }
    AVRational timeBase() const { return AVRational{1, int(timescale_)}; }
    // The media time of the item's first sample: the encoder delay lies before it.
    int64_t origin() const { return delay_; }
    double durationSeconds() const { return double(end_ - delay_) / timescale_; }

    // The next packet, stamped in media time. The first carries the encoder delay and the one
    // that crosses the end its padding, for the decoder to drop; false at the end or when the
    // bytes cannot be read.
    bool read(AVPacket* packet);
    // Lands `leadPackets` packets before the one that holds media time `time` (a decoder needs
    // them to sound right at the target), or at the first packet.
    void seek(int64_t time, int leadPackets);

private:
    Mp4Track() = default;
    struct Run {
        uint32_t count, delta;
    };
    struct ChunkRun {
        uint32_t firstChunk, samples; // the first chunk numbered from 0
    };

    bool parseMoov(int64_t body, int64_t end);
    bool parseSampleEntry(const std::vector<uint8_t>& stsd);
    uint32_t sampleSize(uint32_t sample);
    int64_t chunkOffset(uint32_t chunk);
    // Puts the cursor on `sample` (its chunk, its byte offset, its time).
    bool locate(uint32_t sample);

    std::shared_ptr<ByteReader> reader_;
    AVCodecParameters* params_ = nullptr;
    uint32_t timescale_ = 0;
    int64_t delay_ = 0, end_ = 0; // media times of the first and one past the last sample
    std::vector<Run> times_;
    std::vector<ChunkRun> chunks_;
    uint32_t fixedSize_ = 0, sampleCount_ = 0, chunkCount_ = 0;
    int64_t sizesAt_ = 0, offsetsAt_ = 0;
    bool wideOffsets_ = false;
    std::vector<uint32_t> sizes_; // a block of the size table, from sizesFrom_
    uint32_t sizesFrom_ = 0;

    // The cursor: the next sample, its chunk and where the chunk's samples end.
    uint32_t sample_ = 0, chunk_ = 0, chunkEnd_ = 0;
    size_t chunkRun_ = 0, timeRun_ = 0;
    uint32_t timeRunLeft_ = 0;
    int64_t offset_ = 0, time_ = 0;
};

} // namespace corvid::native
