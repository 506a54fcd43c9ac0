#pragma once
// What flows over a connection, agreed when two pins connect: a byte stream that the reader
// pulls (file source to parser), compressed packets (parser to decoder) or interleaved PCM.

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace corvid::native {

enum class SampleFormat { U8, S16, S24, S32, F32, F64 };

int bytesPerSample(SampleFormat format);
const char* sampleFormatName(SampleFormat format);

struct PcmFormat {
    SampleFormat format = SampleFormat::F32;
    int rate = 0;
    int channels = 0;

    int frameBytes() const { return bytesPerSample(format) * channels; }
    bool operator==(const PcmFormat&) const = default;
};

// Random access to the bytes of one file. Thread-safe: each read names its offset.
class ByteReader {
public:
    virtual ~ByteReader() = default;
    // The byte count, or -1 for a live stream.
    virtual int64_t size() const = 0;
    // Whether earlier bytes can be read again (false: a network stream).
    virtual bool seekable() const { return true; }
    // Reads up to `count` bytes at `offset`; returns the count read, 0 at the end, -1 on error.
    virtual int read(int64_t offset, uint8_t* destination, int count) = 0;
    virtual std::string path() const = 0;
};

struct CodecParams; // the stream's codec parameters (FFmpeg side)
struct Packet;      // one compressed packet (FFmpeg side)

struct MediaType {
    enum class Kind { ByteStream, Compressed, Pcm };
    Kind kind = Kind::Pcm;
    std::shared_ptr<ByteReader> reader;       // ByteStream
    std::shared_ptr<const CodecParams> codec; // Compressed
    int codecId = 0;                          // Compressed: the FFmpeg codec id
    PcmFormat pcm;                            // Pcm

    static MediaType byteStream(std::shared_ptr<ByteReader> reader);
    static MediaType pcmType(PcmFormat format);
    std::string describe() const;
    // The same data would flow: same kind and the same stream, codec or sample layout.
    bool operator==(const MediaType& other) const;
};

// One unit of streaming data. The generation is the graph's when the data was produced: a
// stop, seek or reload bumps the graph's number and older buffers are dropped on the way.
struct Buffer {
    uint64_t generation = 0;
    double time = 0;  // media seconds of the first sample
    double speed = 1; // media seconds per second of this audio (changed by time-stretching)
    PcmFormat format; // Pcm buffers
    std::vector<uint8_t> bytes;
    std::shared_ptr<Packet> packet; // Compressed buffers

    int frames() const { return format.channels ? int(bytes.size() / format.frameBytes()) : 0; }
};

// Converts interleaved samples of any format to float in [-1, 1].
void toFloat(const PcmFormat& format, const uint8_t* source, int frames, float* destination);
// Converts float samples back to `format` (S16 or F32; others are written as F32).
void fromFloat(const float* source, int samples, SampleFormat format, uint8_t* destination);

} // namespace corvid::native
