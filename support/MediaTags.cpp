#include "support/MediaTags.h"

#include "support/PlayerSettings.h"

namespace corvid {

namespace {

// Runs one read of the reader; a failure or an exception gives "".
template <class Read> std::string readOrEmpty(bool loaded, Read read) {
    if (!loaded) return {};
    try {
        std::string value;
        if (!read(value).ok()) return {};
        return value;
    } catch (...) {
        return {};
    }
}

} // namespace

platform::Status MediaTags::Open(const std::string& path) {
    loaded_ = false;
    try {
        platform::Status status = reader_.open(path);
        loaded_ = status.ok();
        return status;
    } catch (const std::exception& e) {
        return platform::Status::failure(platform::hr::Fail, e.what());
    } catch (...) {
        return platform::Status::failure(platform::hr::Fail, "The tag reader failed.");
    }
}

void MediaTags::Clear() {
    loaded_ = false;
    try {
        reader_.close();
    } catch (...) {
    }
}

std::string MediaTags::get_WMAArtist() {
    return readOrEmpty(loaded_, [&](std::string& v) { return reader_.artist(v); });
}

std::string MediaTags::get_WMATitle() {
    return readOrEmpty(loaded_, [&](std::string& v) { return reader_.title(v); });
}

std::string MediaTags::attribute(const std::string& name) {
    return readOrEmpty(loaded_, [&](std::string& v) { return reader_.attribute(name, v); });
}

std::string MediaTags::get_WMAYear() {
    const std::string original = attribute("WM/OriginalReleaseYear");
    double number = 0;
    if (original.empty() || !settings::parseNumber(original, number))
        return attribute("WM/Year");
    return original;
}

std::string MediaTags::get_WMAGenre() { return attribute("WM/Genre"); }

} // namespace corvid
