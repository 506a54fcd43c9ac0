// "Sondrel 1-2" ... "Sondrel 7-8": places stereo (or mono) on one speaker pair of a
// multichannel output; the other speakers get silence. The channel count offered is the
// renderer's own, so that the device takes the layout as it stands.

#include "platform/native/filters/Filters.h"

#include <algorithm>
#include <cstring>

namespace corvid::native {

namespace {

class ChannelRouterFilter final : public NativeFilter {
public:
    ChannelRouterFilter(const std::string& name, int pair) : NativeFilter(name), pair_(pair) {
        addPin("Input", platform::PinDirection::Input);
        addPin("Output", platform::PinDirection::Output);
    }

    Status acceptInput(NativePin&, const MediaType& type) override {
        if (type.kind != MediaType::Kind::Pcm || type.pcm.channels < 1 || type.pcm.channels > 2)
            return Status::failure(hr::TypeNotAccepted, name() + " takes mono or stereo PCM.");
        in_ = type.pcm;
        return Status::success();
    }

    std::vector<MediaType> outputTypes(NativePin&, NativePin* to) override {
        auto in = firstInput();
        if (!in || !in->peer()) return {};
        const int needed = 2 * pair_ + 2;
        int channels = 8;
        if (to && to->owner() && to->owner()->preferredChannels() > 0)
            channels = to->owner()->preferredChannels();
        out_ = PcmFormat{in_.format, in_.rate, std::clamp(channels, needed, 8)};
        return {MediaType::pcmType(out_)};
    }

    void receive(NativePin&, Buffer& buffer) override {
        const int frames = buffer.frames();
        const int bps = bytesPerSample(in_.format);
        Buffer routed;
        routed.generation = buffer.generation;
        routed.time = buffer.time;
        routed.speed = buffer.speed;
        routed.format = out_;
        routed.bytes.assign(size_t(frames) * out_.frameBytes(),
                            in_.format == SampleFormat::U8 ? uint8_t(0x80) : uint8_t(0));
        for (int f = 0; f < frames; ++f) {
            const uint8_t* src = buffer.bytes.data() + size_t(f) * in_.frameBytes();
            uint8_t* dst = routed.bytes.data() + size_t(f) * out_.frameBytes() + size_t(2 * pair_) * bps;
            std::memcpy(dst, src, size_t(bps));
            std::memcpy(dst + bps, src + (in_.channels == 2 ? bps : 0), size_t(bps));
        }
        deliverAll(routed);
    }

private:
    int pair_;
    PcmFormat in_, out_;
};

} // namespace

NativeFilterPtr makeChannelRouter(const std::string& name, int pair) {
    return std::make_shared<ChannelRouterFilter>(name, pair);
}

} // namespace corvid::native
