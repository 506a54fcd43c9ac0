#pragma once
// The tags of any local item (MP3, FLAC, Ogg, MP4, WAV, WMA), read with the platform's tag
// reader, for a host that shows what it is about to play. A load reads tags itself only for
// Windows Media items (the player's WMAArtist and the like); this reads them for all.

#include <string>

namespace corvid {

namespace platform {
class Platform;
}

struct ItemTags {
    std::string artist;
    std::string title;
    // The original release year when the item has one as a number, else its year.
    std::string year;
    std::string genre;
};

// Empty fields where the item has none or cannot be read. Control thread.
ItemTags readTags(platform::Platform& platform, const std::string& path);

} // namespace corvid
