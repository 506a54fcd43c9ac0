// <corvid/Tags.h>: the player's own tag rules (MediaTags) over a reader of the host's item.

#include <corvid/Tags.h>

#include "platform/Platform.h"
#include "support/MediaTags.h"

namespace corvid {

ItemTags readTags(platform::Platform& platform, const std::string& path) {
    const auto reader = platform.createTagReader();
    MediaTags tags(*reader);
    if (!tags.Open(path)) return {};
    ItemTags result{tags.get_WMAArtist(), tags.get_WMATitle(), tags.get_WMAYear(), tags.get_WMAGenre()};
    tags.Clear();
    return result;
}

} // namespace corvid
