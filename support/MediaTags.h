#pragma once
// The tag properties of the loaded item: artist, title, year and genre, read through the
// player's tag reader at the moment they are asked for. Attribute names are the Windows
// Media ones; each platform's reader maps its formats onto them. Every failure (nothing
// loaded, no such attribute, an unreadable file, a reader that throws) reads as "".
//
// Threads: control thread only.

#include "platform/Services.h"

#include <string>

namespace corvid {

class MediaTags {
public:
    // The reader belongs to the player and outlives this object.
    explicit MediaTags(platform::TagReader& reader) : reader_(reader) {}

    // Points the reader at an item. A failed open leaves no item loaded.
    platform::Status Open(const std::string& path);
    // No item: every property reads "".
    void Clear();
    bool loaded() const { return loaded_; }

    std::string get_WMAArtist();
    std::string get_WMATitle();
    // "WM/OriginalReleaseYear" when it is a number, else "WM/Year" as it stands.
    std::string get_WMAYear();
    std::string get_WMAGenre();

private:
    std::string attribute(const std::string& name);

    platform::TagReader& reader_;
    bool loaded_ = false;
};

} // namespace corvid
