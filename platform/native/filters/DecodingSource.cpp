// Decoding sources: demux and decode a local file (or the bytes of an http(s) address) in one
// filter, PCM out. The output also offers the compressed stream, for a graph that wants its
// own decoder after the reader.

#include "platform/ItemName.h"
#include "platform/native/filters/FFmpeg.h"
#include "platform/native/filters/Filters.h"
#include "platform/native/stream/AddressReader.h"

namespace corvid::native {

namespace {

class DecodingSourceFilter final : public NativeFilter {
public:
    DecodingSourceFilter(const std::string& name, std::vector<std::string> formats)
        : NativeFilter(name), formats_(std::move(formats)) {}

    bool isFileSource() const override { return true; }
    std::string fileName() const override { return fileName_; }

    Status setFileName(const std::string& fileName) override {
        if (output_ && output_->peer())
            return Status::failure(hr::WrongState, "The source is connected; disconnect it first.");
        std::shared_ptr<AddressReader> address;
        std::unique_ptr<DecodedAudio> audio;
        Status s;
        if (item::isAddress(fileName)) {
            // Addresses come through the stream client: TLS, redirections, reconnects.
            s = AddressReader::open(fileName, graph() ? graph()->loop() : nullptr, address);
            if (s) s = DecodedAudio::open(address, formats_, audio);
        } else {
            s = DecodedAudio::openFile(fileName, formats_, audio);
        }
        if (!s) return s;
        audio_ = std::move(audio);
        address_ = std::move(address);
        fileName_ = fileName;
        if (!output_) output_ = addPin("Output", platform::PinDirection::Output);
        return Status::success();
    }

    std::vector<MediaType> outputTypes(NativePin&, NativePin*) override {
        if (!audio_) return {};
        MediaType compressed;
        compressed.kind = MediaType::Kind::Compressed;
        compressed.codec = audio_->demuxer().codec();
        compressed.codecId = compressed.codec->params->codec_id;
        return {MediaType::pcmType(audio_->format()), compressed};
    }

    bool isStreamHead() const override { return audio_ && output_ && output_->peer(); }
    double durationSeconds() const override { return audio_ ? audio_->durationSeconds() : 0; }

    Status seekTo(double seconds) override {
        if (!audio_ || address_) return Status::success(); // a live stream goes on
        return audio_->seek(seconds);
    }

    // A stop frees a streaming thread that waits for the network.
    void unblock() override {
        if (address_) address_->interrupt();
    }

    Produced produce(uint64_t generation) override {
        if (output_->mediaType().kind == MediaType::Kind::Compressed) {
            auto packet = std::make_shared<Packet>();
            if (!audio_->demuxer().read(packet->packet)) return Produced::End;
            Buffer buffer;
            buffer.generation = generation;
            buffer.time = audio_->demuxer().toSeconds(packet->packet->pts);
            buffer.packet = std::move(packet);
            deliverAll(buffer);
            return Produced::Data;
        }
        const bool more = audio_->next([&](std::vector<uint8_t>&& bytes, double time) {
            Buffer buffer = pcmBuffer(generation, time, audio_->format(), std::move(bytes));
            deliverAll(buffer);
        });
        return more ? Produced::Data : Produced::End;
    }

private:
    std::vector<std::string> formats_;
    std::unique_ptr<DecodedAudio> audio_;
    NativePinPtr output_;
    std::shared_ptr<AddressReader> address_; // the network side of an address
    std::string fileName_;
};

} // namespace

NativeFilterPtr makeDecodingSource(const std::string& name, std::vector<std::string> formats) {
    return std::make_shared<DecodingSourceFilter>(name, std::move(formats));
}

} // namespace corvid::native
