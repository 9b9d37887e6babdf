// The tags that the protocol names and the catalogue has.
#ifndef VANTRO_BRIDGES_MPD_TAGS_H
#define VANTRO_BRIDGES_MPD_TAGS_H

#include <array>
#include <bitset>
#include <cstddef>
#include <optional>
#include <string_view>

#include <vantro/catalogue.h>

namespace vantro::mpd {

enum class Tag {
    artist,
    album_artist,
    album,
    title,
    track,
    date,
    genre,
    disc,
    composer,
    conductor,
    comment,
    absent // A tag that the protocol has and the catalogue has not: always empty.
};

struct TagName {
    std::string_view name; // The protocol's name.
    const char *key;       // The catalogue's key.
};

// In the order of Tag.
constexpr std::array<TagName, 11> tag_names = {{
    {"Artist", VANTRO_KEY_ARTIST},
    {"AlbumArtist", VANTRO_KEY_ALBUM_ARTIST},
    {"Album", VANTRO_KEY_ALBUM},
    {"Title", VANTRO_KEY_TITLE},
    {"Track", VANTRO_KEY_TRACK},
    {"Date", VANTRO_KEY_YEAR},
    {"Genre", VANTRO_KEY_GENRE},
    {"Disc", VANTRO_KEY_DISC},
    {"Composer", VANTRO_KEY_COMPOSER},
    {"Conductor", VANTRO_KEY_CONDUCTOR},
    {"Comment", VANTRO_KEY_COMMENT},
}};

constexpr size_t tag_count = tag_names.size();

using TagSet = std::bitset<tag_count>;

constexpr size_t index_of(Tag tag) {
    return static_cast<size_t>(tag);
}

// The tag of that name; case is ignored. Nothing if the protocol has no such tag.
std::optional<Tag> tag_named(std::string_view name);

} // namespace vantro::mpd

#endif
