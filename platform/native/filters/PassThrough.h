#pragma once
// Base of the in-place filters (grabber, pitch shifter, pipe sender): PCM in, the same
// PCM out, offered downstream once the input is connected.

#include "platform/native/graph/Graph.h"

namespace corvid::native {

class PassThroughFilter : public NativeFilter {
public:
    explicit PassThroughFilter(const std::string& name) : NativeFilter(name) {
        addPin("Input", platform::PinDirection::Input);
        addPin("Output", platform::PinDirection::Output);
    }

    Status acceptInput(NativePin&, const MediaType& type) override {
        if (type.kind != MediaType::Kind::Pcm || type.pcm.channels < 1 || type.pcm.channels > 8)
            return Status::failure(hr::TypeNotAccepted, name() + " takes PCM only.");
        if (!acceptsFormat(type.pcm.format))
            return Status::failure(hr::TypeNotAccepted,
                                   name() + " does not take " + type.describe() + ".");
        return Status::success();
    }

    std::vector<MediaType> outputTypes(NativePin&, NativePin*) override {
        auto in = firstInput();
        if (!in || !in->peer()) return {};
        return {in->mediaType()};
    }

protected:
    virtual bool acceptsFormat(SampleFormat) const { return true; }
    PcmFormat inputFormat() const {
        auto in = firstInput();
        return in ? in->mediaType().pcm : PcmFormat{};
    }
};

} // namespace corvid::native
