// Byte-stream file sources: the file's bytes, pulled by the parser connected downstream.

#include "platform/native/filters/FFmpeg.h"
#include "platform/native/filters/Filters.h"

#include <cstring>

namespace corvid::native {

namespace {

class FileSourceFilter final : public NativeFilter {
public:
    FileSourceFilter(const std::string& name, bool oggOnly) : NativeFilter(name), oggOnly_(oggOnly) {
        addPin("Output", platform::PinDirection::Output);
    }

    bool isFileSource() const override { return true; }
    std::string fileName() const override { return fileName_; }

    Status setFileName(const std::string& fileName) override {
        auto out = firstOutput();
        if (out && out->peer())
            return Status::failure(hr::WrongState, "The source is connected; disconnect it first.");
        std::shared_ptr<FileByteReader> reader;
        Status s = FileByteReader::open(fileName, reader);
        if (!s) return s;
        if (oggOnly_) {
            uint8_t magic[4] = {};
            if (reader->read(0, magic, 4) != 4 || std::memcmp(magic, "OggS", 4) != 0)
                return Status::failure(hr::InvalidFileFormat, fileName + " is not an Ogg file.");
        }
        reader_ = std::move(reader);
        fileName_ = fileName;
        return Status::success();
    }

    std::vector<MediaType> outputTypes(NativePin&, NativePin*) override {
        if (!reader_) return {};
        return {MediaType::byteStream(reader_)};
    }

private:
    bool oggOnly_;
    std::shared_ptr<FileByteReader> reader_;
    std::string fileName_;
};

} // namespace

NativeFilterPtr makeFileSource(const std::string& name, bool oggOnly) {
    return std::make_shared<FileSourceFilter>(name, oggOnly);
}

} // namespace corvid::native
