// Parsers: libavformat demuxers behind a byte-stream input. The stream header is read when
// the input connects, so a file of the wrong kind fails there; the output pin appears then.
// Once connected, the parser is a stream head: its thread reads packets and pushes them.

#include "platform/native/filters/FFmpeg.h"
#include "platform/native/filters/Filters.h"

namespace corvid::native {

namespace {

// Uncompressed codecs pass as PCM, so that a WAVE file needs no decoder.
bool pcmOf(const CodecParams& codec, PcmFormat& pcm) {
    SampleFormat f;
    switch (codec.params->codec_id) {
    case AV_CODEC_ID_PCM_U8: f = SampleFormat::U8; break;
    case AV_CODEC_ID_PCM_S16LE: f = SampleFormat::S16; break;
    case AV_CODEC_ID_PCM_S24LE: f = SampleFormat::S24; break;
    case AV_CODEC_ID_PCM_S32LE: f = SampleFormat::S32; break;
    case AV_CODEC_ID_PCM_F32LE: f = SampleFormat::F32; break;
    case AV_CODEC_ID_PCM_F64LE: f = SampleFormat::F64; break;
    default: return false;
    }
    const int channels = codec.params->ch_layout.nb_channels;
    if (channels < 1 || channels > 8) return false;
    pcm = PcmFormat{f, codec.params->sample_rate, channels};
    return true;
}

class ParserFilter final : public NativeFilter {
public:
    ParserFilter(const std::string& name, std::vector<std::string> formats, std::string outName)
        : NativeFilter(name), formats_(std::move(formats)), outName_(std::move(outName)) {
        addPin("Input", platform::PinDirection::Input);
    }

    Status acceptInput(NativePin&, const MediaType& type) override {
        if (type.kind != MediaType::Kind::ByteStream || !type.reader)
            return Status::failure(hr::TypeNotAccepted, name() + " reads byte streams only.");
        std::unique_ptr<Demuxer> demuxer;
        Status s = Demuxer::open(type.reader, formats_, demuxer);
        if (!s) return s;
        demuxer_ = std::move(demuxer);
        pcm_ = pcmOf(*demuxer_->codec(), pcmFormat_);
        return Status::success();
    }

    void inputConnected(NativePin&) override {
        if (!output_) output_ = addPin(outName_, platform::PinDirection::Output);
    }

    void inputDisconnected(NativePin&) override {
        if (output_) removePin(output_);
        output_.reset();
        demuxer_.reset();
    }

    std::vector<MediaType> outputTypes(NativePin&, NativePin*) override {
        if (!demuxer_) return {};
        if (pcm_) return {MediaType::pcmType(pcmFormat_)};
        MediaType t;
        t.kind = MediaType::Kind::Compressed;
        t.codec = demuxer_->codec();
        t.codecId = demuxer_->codec()->params->codec_id;
        return {t};
    }

    bool isStreamHead() const override { return demuxer_ && output_ && output_->peer(); }
    double durationSeconds() const override { return demuxer_ ? demuxer_->durationSeconds() : 0; }
    Status seekTo(double seconds) override {
        return demuxer_ ? demuxer_->seek(seconds) : Status::success();
    }

    Produced produce(uint64_t generation) override {
        auto packet = std::make_shared<Packet>();
        if (!demuxer_->read(packet->packet)) return Produced::End;
        Buffer buffer;
        buffer.generation = generation;
        buffer.time = demuxer_->toSeconds(packet->packet->pts);
        if (pcm_) {
            const int frameBytes = pcmFormat_.frameBytes();
            const int usable = packet->packet->size / frameBytes * frameBytes;
            buffer.format = pcmFormat_;
            buffer.bytes.assign(packet->packet->data, packet->packet->data + usable);
        } else {
            buffer.packet = std::move(packet);
        }
        deliverAll(buffer);
        return Produced::Data;
    }

private:
    std::vector<std::string> formats_;
    std::string outName_;
    std::unique_ptr<Demuxer> demuxer_;
    NativePinPtr output_;
    bool pcm_ = false;
    PcmFormat pcmFormat_;
};

} // namespace

NativeFilterPtr makeParser(const std::string& name, std::vector<std::string> formats,
                           const std::string& outputPinName) {
    return std::make_shared<ParserFilter>(name, std::move(formats), outputPinName);
}

} // namespace corvid::native
