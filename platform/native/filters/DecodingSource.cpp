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
        std::shared_ptr<ByteReader> reader;
        std::shared_ptr<AddressReader> address;
        Status s;
        if (item::isAddress(fileName)) {
            // Addresses come through the stream client: TLS, redirections, reconnects.
            s = AddressReader::open(fileName, graph() ? graph()->loop() : nullptr, address);
            reader = address;
        } else {
            std::shared_ptr<FileByteReader> file;
            s = FileByteReader::open(fileName, file);
            reader = file;
        }
        if (!s) return s;
        std::unique_ptr<Demuxer> demuxer;
        s = Demuxer::open(reader, formats_, demuxer);
        if (!s) return s;
        std::unique_ptr<AudioDecoder> decoder;
        s = AudioDecoder::open(*demuxer->codec(), decoder);
        if (!s) return s;
        demuxer_ = std::move(demuxer);
        decoder_ = std::move(decoder);
        address_ = std::move(address);
        fileName_ = fileName;
        if (!output_) output_ = addPin("Output", platform::PinDirection::Output);
        return Status::success();
    }

    std::vector<MediaType> outputTypes(NativePin&, NativePin*) override {
        if (!demuxer_) return {};
        MediaType compressed;
        compressed.kind = MediaType::Kind::Compressed;
        compressed.codec = demuxer_->codec();
        compressed.codecId = demuxer_->codec()->params->codec_id;
        return {MediaType::pcmType(decoder_->outputFormat()), compressed};
    }

    bool isStreamHead() const override { return demuxer_ && output_ && output_->peer(); }
    double durationSeconds() const override { return demuxer_ ? demuxer_->durationSeconds() : 0; }

    Status seekTo(double seconds) override {
        if (!demuxer_ || address_) return Status::success(); // a live stream goes on
        decoder_->flush(seconds);
        return demuxer_->seek(seconds);
    }

    // A stop frees a streaming thread that waits for the network.
    void unblock() override {
        if (address_) address_->interrupt();
    }

    Produced produce(uint64_t generation) override {
        const bool compressed = output_->mediaType().kind == MediaType::Kind::Compressed;
        auto packet = std::make_shared<Packet>();
        const bool more = demuxer_->read(packet->packet);
        if (compressed) {
            if (!more) return Produced::End;
            Buffer buffer;
            buffer.generation = generation;
            buffer.time = demuxer_->toSeconds(packet->packet->pts);
            buffer.packet = std::move(packet);
            deliverAll(buffer);
            return Produced::Data;
        }
        decoder_->decode(more ? packet->packet : nullptr,
                         [&](std::vector<uint8_t>&& bytes, double time) {
                             Buffer buffer;
                             buffer.generation = generation;
                             buffer.time = time;
                             buffer.format = decoder_->outputFormat();
                             buffer.bytes = std::move(bytes);
                             deliverAll(buffer);
                         });
        return more ? Produced::Data : Produced::End;
    }

private:
    std::vector<std::string> formats_;
    std::unique_ptr<Demuxer> demuxer_;
    std::unique_ptr<AudioDecoder> decoder_;
    NativePinPtr output_;
    std::shared_ptr<AddressReader> address_; // the network side of an address
    std::string fileName_;
};

} // namespace

NativeFilterPtr makeDecodingSource(const std::string& name, std::vector<std::string> formats) {
    return std::make_shared<DecodingSourceFilter>(name, std::move(formats));
}

} // namespace corvid::native
