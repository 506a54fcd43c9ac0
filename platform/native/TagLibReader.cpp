#include "platform/native/TagLibReader.h"
#include "platform/Text.h"

#include <cctype>
#include <sys/stat.h>

#include <taglib/asffile.h>
#include <taglib/asftag.h>
#include <taglib/fileref.h>
#include <taglib/tag.h>
#include <taglib/tpropertymap.h>

namespace corvid::native {

using platform::Status;
namespace hr = platform::hr;

namespace {

// "2003-05-01" reads as the year 2003, as the Windows Media year attributes carry it.
std::string yearOf(const std::string& date) {
    if (date.size() >= 4 && std::isdigit(static_cast<unsigned char>(date[0])) &&
        std::isdigit(static_cast<unsigned char>(date[1])) &&
        std::isdigit(static_cast<unsigned char>(date[2])) &&
        std::isdigit(static_cast<unsigned char>(date[3])))
        return date.substr(0, 4);
    return date;
}

} // namespace

Status TagLibReader::open(const std::string& path) {
    close();
    struct stat st{};
    if (::stat(path.c_str(), &st) != 0 || !S_ISREG(st.st_mode))
        return Status::failure(hr::FileNotFound, "No such file: " + path);
    TagLib::FileRef ref(path.c_str(), false);
    if (ref.isNull() || !ref.tag())
        return Status::failure(hr::UnknownFileType, "No tags can be read from " + path);
    artist_ = ref.tag()->artist().to8Bit(true);
    title_ = ref.tag()->title().to8Bit(true);
    const TagLib::PropertyMap props = ref.file()->properties();
    for (const auto& [key, values] : props)
        if (!values.isEmpty()) properties_[text::toUpper(key.to8Bit(true))] = values.front().to8Bit(true);
    if (auto* asfFile = dynamic_cast<TagLib::ASF::File*>(ref.file())) {
        if (auto* tag = asfFile->tag()) {
            for (const auto& [name, list] : tag->attributeListMap())
                if (!list.isEmpty()) asf_[name.to8Bit(true)] = list.front().toString().to8Bit(true);
        }
    }
    open_ = true;
    return Status::success();
}

void TagLibReader::close() {
    open_ = false;
    artist_.clear();
    title_.clear();
    properties_.clear();
    asf_.clear();
}

Status TagLibReader::artist(std::string& value) {
    value = open_ ? artist_ : std::string();
    return open_ ? Status::success() : Status::failure(hr::Pointer, "No item is open.");
}

Status TagLibReader::title(std::string& value) {
    value = open_ ? title_ : std::string();
    return open_ ? Status::success() : Status::failure(hr::Pointer, "No item is open.");
}

Status TagLibReader::attribute(const std::string& name, std::string& value) {
    value.clear();
    if (!open_) return Status::failure(hr::Pointer, "No item is open.");
    if (auto it = asf_.find(name); it != asf_.end()) {
        value = it->second;
        return Status::success();
    }
    const std::string key = text::toUpper(name);
    auto prop = [&](const char* p) {
        auto it = properties_.find(p);
        return it == properties_.end() ? std::string() : it->second;
    };
    if (key == "WM/YEAR") value = yearOf(prop("DATE"));
    else if (key == "WM/ORIGINALRELEASEYEAR") value = yearOf(prop("ORIGINALDATE"));
    else if (key == "WM/GENRE") value = prop("GENRE");
    else if (key.rfind("WM/", 0) == 0) value = prop(key.substr(3).c_str());
    else value = prop(key.c_str());
    return Status::success();
}

} // namespace corvid::native
