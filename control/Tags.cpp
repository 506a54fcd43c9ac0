// The tag properties of the loaded item. The reader is made on first use and kept for the
// player's life; the load points it at Windows Media items and the unload clears it.

#include "control/Player.h"

#include "support/MediaTags.h"

namespace corvid {

MediaTags& Player::Tags() {
    if (!tags_) {
        tagReader_ = platform_.createTagReader();
        if (!tagReader_) throw AutomationError(platform::hr::Pointer, "No tag reader.");
        tags_ = std::make_unique<MediaTags>(*tagReader_);
    }
    return *tags_;
}

namespace {
template <class F> std::string readTag(F&& read) {
    try {
        return read();
    } catch (...) {
        return {};
    }
}
} // namespace

std::string Player::get_WMAArtist() {
    return readTag([&] { return Tags().get_WMAArtist(); });
}
std::string Player::get_WMATitle() {
    return readTag([&] { return Tags().get_WMATitle(); });
}
std::string Player::get_WMAYear() {
    return readTag([&] { return Tags().get_WMAYear(); });
}
std::string Player::get_WMAGenre() {
    return readTag([&] { return Tags().get_WMAGenre(); });
}

} // namespace corvid
