#pragma once
// FFmpeg behind the parser, decoder, converter and decoding-source filters. Files are
// untrusted: only the "file" protocol is allowed (for nested opens; our own I/O reads the
// bytes), only the demuxers a filter names may open the stream, probing has a deadline, and
// allocations and decoded frames are bounded.

#include "platform/native/filters/Mp4Track.h"
#include "platform/native/graph/Graph.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libswresample/swresample.h>
}

#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace corvid::native {

struct CodecParams {
    AVCodecParameters* params = nullptr;
    AVRational timeBase{1, 1000};
    // The stream time of the item's first sample: the encoder delay the container skips
    // (an MP3's LAME tag) lies before it. Decoded times count from here.
    int64_t origin = 0;
    explicit CodecParams(const AVCodecParameters* source, AVRational tb, int64_t origin = 0);
    ~CodecParams();
    CodecParams(const CodecParams&) = delete;
    CodecParams& operator=(const CodecParams&) = delete;
};

struct Packet {
    AVPacket* packet = av_packet_alloc();
    ~Packet() { av_packet_free(&packet); }
};

// Sets FFmpeg's process-wide limits once (largest single allocation, quiet log).
void initFFmpeg();
std::string ffmpegError(int code);

// Reads a local file with pread; shared by the byte-stream sources and the decoding sources.
class FileByteReader final : public ByteReader {
public:
    static Status open(const std::string& path, std::shared_ptr<FileByteReader>& reader);
    ~FileByteReader() override;
    int64_t size() const override { return size_; }
    int read(int64_t offset, uint8_t* destination, int count) override;
    std::string path() const override { return path_; }

private:
    int fd_ = -1;
    int64_t size_ = 0;
    std::string path_;
};

// Where the frames of a constant-bitrate MP3 lie, so that a seek can compute the frame of
// a time instead of reading every frame header before it.
struct Mp3Layout {
    int64_t firstFrame = -1;   // byte offset of the first audio frame (after the Info frame)
    uint32_t header = 0;       // its header: the fields every frame of the file repeats
    double frameBytes = 0;     // average bytes per frame (padding spreads the fraction)
    int samplesPerFrame = 0;
    int rate = 0;
    int64_t firstPts = 0;      // stream time of the first audio frame
    bool constantBitrate = false;
    int64_t delay = -1, padding = -1; // from the LAME tag, in samples; -1 when absent
};

// One audio stream of a container, demuxed from a ByteReader. Times are seconds of the item's
// timeline: its first sample after the encoder delay is 0, and the padding is not counted.
class Demuxer {
public:
    // `formats`: the demuxer names allowed (e.g. {"mp3"}); anything else fails with
    // UnknownFileType. The stream must hold at least one audio packet. The reader is the only
    // way in to the bytes: a file, a network buffer, or any other ByteReader.
    static Status open(std::shared_ptr<ByteReader> reader, const std::vector<std::string>& formats,
                       std::unique_ptr<Demuxer>& demuxer);
    ~Demuxer();

    std::shared_ptr<const CodecParams> codec() const { return codec_; }
    double durationSeconds() const { return duration_; }
    // The next packet of the audio stream; false at the end (or on a read error).
    bool read(AVPacket* packet);
    // Lands on a packet at or before `seconds`, never after; a decoder flushed with the same
    // time drops what lies before it, so that the next sample is the one at `seconds`.
    Status seek(double seconds);
    double toSeconds(int64_t pts) const;

private:
    Demuxer() = default;
    std::shared_ptr<ByteReader> reader_;
    AVFormatContext* format_ = nullptr;
    AVIOContext* io_ = nullptr;
    int64_t position_ = 0;
    int64_t deadlineMs_ = 0;
    int streamIndex_ = -1;
    double duration_ = 0;
    std::shared_ptr<const CodecParams> codec_;
    AVPacket* pending_ = nullptr; // the first packet, read at open to prove there is audio
    Mp3Layout mp3_;
    std::unique_ptr<Mp4Track> mp4_; // an AAC track read from its own sample table

    // Reads ahead to the first audio packet, which proves there is audio.
    Status readFirstPacket();
    void readMp3Layout();
    // For a constant-bitrate MP3: teaches the demuxer where the frame of `target` (stream
    // time) starts, so that its exact seek reads only a few frames, whatever the file's length.
    void placeMp3Frame(int64_t target);

    static int readPacket(void* opaque, uint8_t* buf, int size);
    static int64_t seekStream(void* opaque, int64_t offset, int whence);
    static int interrupt(void* opaque);
};

// Decodes one stream to interleaved float at the stream's announced rate and channel count
// (at most 8); frames of another shape are resampled to it.
class AudioDecoder {
public:
    static Status open(const CodecParams& codec, std::unique_ptr<AudioDecoder>& decoder);
    ~AudioDecoder();
    PcmFormat outputFormat() const { return out_; }
    // Feeds one packet (nullptr drains) and hands each decoded block to `sink`.
    void decode(const AVPacket* packet,
                const std::function<void(std::vector<uint8_t>&&, double time)>& sink);
    // Forgets the stream so far; with `from` >= 0 (after a seek, which lands on a packet or
    // page at or before the target), drops what decodes before `from` seconds.
    void flush(double from = -1);

private:
    AudioDecoder() = default;
    AVCodecContext* context_ = nullptr;
    SwrContext* swr_ = nullptr;
    AVFrame* frame_ = av_frame_alloc();
    AVRational timeBase_{1, 1000};
    int64_t origin_ = 0;
    PcmFormat out_;
    int swrRate_ = 0, swrFormat_ = -1;
    AVChannelLayout swrLayout_{};
    double nextTime_ = 0;
    double trimBefore_ = -1;
    // A WMA decoder holds packets back and stamps a frame with the packet that released it;
    // the times of the packets sent and not yet out as frames give each frame its own.
    bool holdsPackets_ = false;
    std::deque<int64_t> sent_;
};

// A decoded block as the buffer that carries it downstream.
inline Buffer pcmBuffer(uint64_t generation, double time, const PcmFormat& format,
                        std::vector<uint8_t>&& bytes) {
    Buffer buffer;
    buffer.generation = generation;
    buffer.time = time;
    buffer.format = format;
    buffer.bytes = std::move(bytes);
    return buffer;
}

// One item from its bytes to timed PCM: open, demux, decode, deliver. The decoding sources
// and the analyser read items through it, so that they see the same samples at the same times.
class DecodedAudio {
public:
    using Sink = std::function<void(std::vector<uint8_t>&&, double time)>;
    static Status open(std::shared_ptr<ByteReader> reader, const std::vector<std::string>& formats,
                       std::unique_ptr<DecodedAudio>& audio);
    static Status openFile(const std::string& path, const std::vector<std::string>& formats,
                           std::unique_ptr<DecodedAudio>& audio);

    Demuxer& demuxer() { return *demuxer_; }
    PcmFormat format() const { return decoder_->outputFormat(); }
    double durationSeconds() const { return demuxer_->durationSeconds(); }
    // The next sample delivered is the one at `seconds`.
    Status seek(double seconds);
    // Decodes the next packet and hands its blocks (interleaved float) to `sink`; at the end
    // it drains the decoder and returns false.
    bool next(const Sink& sink);

private:
    std::unique_ptr<Demuxer> demuxer_;
    std::unique_ptr<AudioDecoder> decoder_;
    Packet packet_;
};

// Converts interleaved PCM between formats, rates and channel counts.
class PcmConverter {
public:
    ~PcmConverter();
    Status configure(const PcmFormat& in, const PcmFormat& out);
    // Converts `frames` frames; the result is appended to `output` as bytes of the out format.
    void convert(const uint8_t* input, int frames, std::vector<uint8_t>& output);
    void reset();

private:
    SwrContext* swr_ = nullptr;
    PcmFormat in_, out_;
};

AVSampleFormat toAv(SampleFormat format);
bool fromAv(AVSampleFormat format, SampleFormat& out);

} // namespace corvid::native
