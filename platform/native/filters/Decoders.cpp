// Decoders: libavcodec behind a compressed input, PCM (32-bit float) out.

#include "platform/native/filters/FFmpeg.h"
#include "platform/native/filters/Filters.h"

#include <algorithm>

namespace corvid::native {

namespace {

class DecoderFilter final : public NativeFilter {
public:
    DecoderFilter(const std::string& name, std::vector<int> codecs)
        : NativeFilter(name), codecs_(std::move(codecs)) {
        addPin("XForm In", platform::PinDirection::Input);
        addPin("XForm Out", platform::PinDirection::Output);
    }

    Status acceptInput(NativePin&, const MediaType& type) override {
        if (type.kind != MediaType::Kind::Compressed || !type.codec ||
            std::find(codecs_.begin(), codecs_.end(), type.codecId) == codecs_.end())
            return Status::failure(hr::TypeNotAccepted, name() + " does not decode " + type.describe());
        std::unique_ptr<AudioDecoder> decoder;
        Status s = AudioDecoder::open(*type.codec, decoder);
        if (!s) return s;
        decoder_ = std::move(decoder);
        return Status::success();
    }

    void inputDisconnected(NativePin&) override { decoder_.reset(); }

    // A run after an end or a stop starts from a clean decoder.
    Status activate() override {
        if (decoder_) decoder_->flush();
        return Status::success();
    }

    std::vector<MediaType> outputTypes(NativePin&, NativePin*) override {
        if (!decoder_) return {};
        return {MediaType::pcmType(decoder_->outputFormat())};
    }

    void receive(NativePin&, Buffer& buffer) override {
        if (!decoder_ || !buffer.packet) return;
        decode(buffer.packet->packet, buffer.generation);
    }

    void endOfStream(NativePin& in, uint64_t generation) override {
        if (decoder_) decode(nullptr, generation);
        NativeFilter::endOfStream(in, generation);
    }

    void flush(NativePin& in, double newPosition) override {
        if (decoder_) decoder_->flush(newPosition);
        NativeFilter::flush(in, newPosition);
    }

private:
    void decode(const AVPacket* packet, uint64_t generation) {
        decoder_->decode(packet, [&](std::vector<uint8_t>&& bytes, double time) {
            Buffer out = pcmBuffer(generation, time, decoder_->outputFormat(), std::move(bytes));
            deliverAll(out);
        });
    }

    std::vector<int> codecs_;
    std::unique_ptr<AudioDecoder> decoder_;
};

} // namespace

NativeFilterPtr makeDecoder(const std::string& name, std::vector<int> codecIds) {
    return std::make_shared<DecoderFilter>(name, std::move(codecIds));
}

} // namespace corvid::native
