#include "service/catalogue/files/catalogued_song.h"

#include <algorithm>

#include <vantro/catalogue.h>

#include "service/catalogue/text/names.h"
#include "service/catalogue/text/utf8.h"

namespace vantro::service::catalogue {

namespace {

// Where nothing is said the first disc is meant, but a track without number follows the others.
int64_t place_of(int32_t disc, int32_t track) {
    constexpr int32_t last = 0xFFFF;
    const int64_t disc_at = std::clamp(disc, 1, last);
    return disc_at << 16 | (track == 0 ? last : std::min(track, last - 1));
}

} // namespace

FoundName named(std::string_view text) {
    FoundName name{std::string(text), folded(text), {}};
    name.sort = sort_key(name.text);
    return name;
}

std::string path_below(std::string_view folder, std::string_view file) {
    std::string path(folder);
    if (!path.empty()) {
        path += '/';
    }
    return path.append(file);
}

FileName place_of(int32_t source, std::string_view path) {
    const size_t slash = path.rfind('/');
    if (slash == std::string_view::npos) {
        return {source, "", std::string(path)};
    }
    return {source, std::string(path.substr(0, slash)), std::string(path.substr(slash + 1))};
}

std::string title_of_file(std::string_view file) {
    const size_t dot = file.rfind('.');
    const bool has_ending = dot != std::string_view::npos && dot != 0;
    return clean_text(has_ending ? file.substr(0, dot) : file, tag_text_max);
}

void complete(FoundSong &found) {
    const Tags &tags = found.song.tags;
    found.title = tags.get(VANTRO_KEY_TITLE);
    if (found.title.empty()) {
        found.title = title_of_file(found.where.file);
    }
    found.sort = sort_key(found.title);
    found.place = place_of(found.song.disc, found.song.track);

    found.performer = named(tags.get(VANTRO_KEY_ARTIST));
    std::string_view stated = tags.get(VANTRO_KEY_ALBUM_ARTIST);
    if (stated.empty() && tags.get(VANTRO_KEY_COMPILATION) == "1") {
        stated = several_artists;
    }
    found.artist_stated = !stated.empty();
    found.artist = found.artist_stated ? named(stated) : found.performer;
    found.album = named(tags.get(VANTRO_KEY_ALBUM));
    for (const std::string &genre : found.song.genres) {
        FoundName name = named(genre);
        const bool again =
            std::any_of(found.genres.begin(), found.genres.end(),
                        [&](const FoundName &other) { return other.identity == name.identity; });
        if (!name.identity.empty() && !again) {
            found.genres.push_back(std::move(name));
        }
    }
}

} // namespace vantro::service::catalogue
