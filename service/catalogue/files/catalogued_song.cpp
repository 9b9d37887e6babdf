#include "service/catalogue/files/catalogued_song.h"

#include <algorithm>

#include <vantro/catalogue.h>

#include "service/catalogue/text/collation.h"
#include "service/catalogue/text/utf8.h"

namespace vantro::service::catalogue {

namespace {

// A song without a disc number is on the first disc; one without a track number comes last.
int64_t place_of(int32_t disc, int32_t track) {
    constexpr int32_t last = 0xFFFF;
    const int64_t disc_at = std::clamp(disc, 1, last);
    return disc_at << 16 | (track == 0 ? last : std::min(track, last - 1));
}

// If a file names several artists, its tags hold each of them under keys that clients do not know,
// and all of them in one text, which clients see. The further artists of an album count as
// performers.
constexpr std::string_view each_artist = "\x01"
                                         "artist";
constexpr std::string_view first_album_artist = "\x01"
                                                "album artist";

void note_artists(SongFile &song) {
    const bool several = song.artists.size() > 1 || song.album_artists.size() > 1;
    if (!several) {
        return;
    }
    for (const std::string &artist : song.artists) {
        song.tags.add(each_artist, artist);
    }
    for (size_t i = 0; i < song.album_artists.size(); ++i) {
        song.tags.add(i == 0 ? first_album_artist : each_artist, song.album_artists[i]);
    }
}

void add_once(std::vector<FoundName> &names, std::string_view text) {
    FoundName name = named(text);
    const bool again = std::any_of(names.begin(), names.end(), [&](const FoundName &other) {
        return other.identity == name.identity;
    });
    if (!name.identity.empty() && !again) {
        names.push_back(std::move(name));
    }
}

} // namespace

std::vector<FoundName> performers_in(const Tags &tags) {
    std::vector<FoundName> names;
    for (const std::string_view artist : tags.all(each_artist)) {
        add_once(names, artist);
    }
    if (names.empty()) {
        add_once(names, tags.get(VANTRO_KEY_ARTIST));
    }
    return names;
}

FoundName stated_artist_in(const Tags &tags) {
    for (const std::string_view key :
         {first_album_artist, std::string_view(VANTRO_KEY_ALBUM_ARTIST)}) {
        if (FoundName name = named(tags.get(key)); !name.identity.empty()) {
            return name;
        }
    }
    return tags.get(VANTRO_KEY_COMPILATION) == "1" ? named(several_artists) : FoundName();
}

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

    note_artists(found.song);
    found.performers = performers_in(tags);
    found.artist = stated_artist_in(tags);
    found.artist_stated = !found.artist.identity.empty();
    if (!found.artist_stated && !found.performers.empty()) {
        found.artist = found.performers.front();
    }
    found.album = named(tags.get(VANTRO_KEY_ALBUM));
    for (const std::string &genre : found.song.genres) {
        add_once(found.genres, genre);
    }
}

} // namespace vantro::service::catalogue
