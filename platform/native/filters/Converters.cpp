// PCM format converters (libswresample): any PCM in, the same rate and channels out as
// 16-bit integers or 32-bit floats, the formats every renderer takes.

#include "platform/native/filters/FFmpeg.h"
#include "platform/native/filters/Filters.h"

namespace corvid::native {

namespace {

class ConverterFilter final : public NativeFilter {
public:
    ConverterFilter(const std::string& name, bool s16)
        : NativeFilter(name), outFormat_(s16 ? SampleFormat::S16 : SampleFormat::F32) {
        addPin("XForm In", platform::PinDirection::Input);
        addPin("XForm Out", platform::PinDirection::Output);
    }

    Status acceptInput(NativePin&, const MediaType& type) override {
        if (type.kind != MediaType::Kind::Pcm || type.pcm.channels < 1 || type.pcm.channels > 8)
            return Status::failure(hr::TypeNotAccepted, name() + " converts PCM only.");
        in_ = type.pcm;
        return Status::success();
    }

    std::vector<MediaType> outputTypes(NativePin&, NativePin*) override {
        auto in = firstInput();
        if (!in || !in->peer()) return {};
        return {MediaType::pcmType(out())};
    }

    Status activate() override {
        auto in = firstInput();
        if (!in || !in->peer()) return Status::success();
        return converter_.configure(in_, out());
    }

    void receive(NativePin&, Buffer& buffer) override {
        Buffer converted;
        converted.generation = buffer.generation;
        converted.time = buffer.time;
        converted.speed = buffer.speed;
        converted.format = out();
        converter_.convert(buffer.bytes.data(), buffer.frames(), converted.bytes);
        if (!converted.bytes.empty()) deliverAll(converted);
    }

    void flush(NativePin& in, double newPosition) override {
        converter_.reset();
        NativeFilter::flush(in, newPosition);
    }

private:
    PcmFormat out() const { return PcmFormat{outFormat_, in_.rate, in_.channels}; }

    SampleFormat outFormat_;
    PcmFormat in_;
    PcmConverter converter_;
};

} // namespace

NativeFilterPtr makeConverter(const std::string& name, bool s16) {
    return std::make_shared<ConverterFilter>(name, s16);
}

} // namespace corvid::native
