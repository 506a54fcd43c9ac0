#pragma once
// Tags through TagLib. The Windows Media attribute names are mapped onto each format's own
// fields: ASF attributes are read as they stand; ID3v2, Vorbis comments, MP4 atoms and RIFF
// INFO go through TagLib's common property names (DATE, ORIGINALDATE, GENRE).

#include "platform/Services.h"

#include <map>
#include <string>

namespace corvid::native {

class TagLibReader final : public platform::TagReader {
public:
    platform::Status open(const std::string& path) override;
    void close() override;
    platform::Status artist(std::string& value) override;
    platform::Status title(std::string& value) override;
    platform::Status attribute(const std::string& name, std::string& value) override;

private:
    bool open_ = false;
    std::string artist_, title_;
    std::map<std::string, std::string> properties_; // upper-case property name -> first value
    std::map<std::string, std::string> asf_;        // ASF attribute name -> value
};

} // namespace corvid::native
