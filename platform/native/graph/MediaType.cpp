#include "platform/native/graph/MediaType.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace corvid::native {

int bytesPerSample(SampleFormat format) {
    switch (format) {
    case SampleFormat::U8: return 1;
    case SampleFormat::S16: return 2;
    case SampleFormat::S24: return 3;
    case SampleFormat::S32: return 4;
    case SampleFormat::F32: return 4;
    case SampleFormat::F64: return 8;
    }
    return 4;
}

const char* sampleFormatName(SampleFormat format) {
    switch (format) {
    case SampleFormat::U8: return "u8";
    case SampleFormat::S16: return "s16";
    case SampleFormat::S24: return "s24";
    case SampleFormat::S32: return "s32";
    case SampleFormat::F32: return "f32";
    case SampleFormat::F64: return "f64";
    }
    return "?";
}

MediaType MediaType::byteStream(std::shared_ptr<ByteReader> reader) {
    MediaType t;
    t.kind = Kind::ByteStream;
    t.reader = std::move(reader);
    return t;
}

MediaType MediaType::pcmType(PcmFormat format) {
    MediaType t;
    t.kind = Kind::Pcm;
    t.pcm = format;
    return t;
}

bool MediaType::operator==(const MediaType& other) const {
    if (kind != other.kind) return false;
    switch (kind) {
    case Kind::ByteStream: return reader == other.reader;
    case Kind::Compressed: return codec == other.codec && codecId == other.codecId;
    case Kind::Pcm: return pcm == other.pcm;
    }
    return false;
}

std::string MediaType::describe() const {
    switch (kind) {
    case Kind::ByteStream: return "byte stream";
    case Kind::Compressed: return "compressed audio (codec " + std::to_string(codecId) + ")";
    case Kind::Pcm:
        return std::string("PCM ") + sampleFormatName(pcm.format) + " " + std::to_string(pcm.rate) +
               " Hz " + std::to_string(pcm.channels) + " ch";
    }
    return "?";
}

void toFloat(const PcmFormat& format, const uint8_t* s, int frames, float* d) {
    const int n = frames * format.channels;
    switch (format.format) {
    case SampleFormat::U8:
        for (int i = 0; i < n; ++i) d[i] = (int(s[i]) - 128) / 128.0f;
        break;
    case SampleFormat::S16: {
        // Eight at a time, so that the compiler converts them in vector registers: the most
        // common layout, on every sample the streaming thread moves.
        int i = 0;
        for (; i + 8 <= n; i += 8) {
            int16_t v[8];
            std::memcpy(v, s + 2 * i, sizeof v);
            for (int k = 0; k < 8; ++k) d[i + k] = float(v[k]) * (1.0f / 32768.0f);
        }
        for (; i < n; ++i) {
            int16_t v;
            std::memcpy(&v, s + 2 * i, 2);
            d[i] = float(v) * (1.0f / 32768.0f);
        }
        break;
    }
    case SampleFormat::S24:
        for (int i = 0; i < n; ++i) {
            const uint8_t* p = s + 3 * i;
            int32_t v = int32_t(uint32_t(p[0]) << 8 | uint32_t(p[1]) << 16 | uint32_t(p[2]) << 24) >> 8;
            d[i] = v / 8388608.0f;
        }
        break;
    case SampleFormat::S32:
        for (int i = 0; i < n; ++i) {
            int32_t v;
            std::memcpy(&v, s + 4 * i, 4);
            d[i] = float(v / 2147483648.0);
        }
        break;
    case SampleFormat::F32: std::memcpy(d, s, size_t(n) * 4); break;
    case SampleFormat::F64:
        for (int i = 0; i < n; ++i) {
            double v;
            std::memcpy(&v, s + 8 * i, 8);
            d[i] = float(v);
        }
        break;
    }
}

void fromFloat(const float* s, int samples, SampleFormat format, uint8_t* d) {
    if (format == SampleFormat::S16) {
        for (int i = 0; i < samples; ++i) {
            const float c = std::clamp(s[i], -1.0f, 1.0f);
            const int16_t v = int16_t(std::lrint(std::clamp(c * 32768.0f, -32768.0f, 32767.0f)));
            std::memcpy(d + 2 * i, &v, 2);
        }
    } else {
        std::memcpy(d, s, size_t(samples) * 4);
    }
}

} // namespace corvid::native
