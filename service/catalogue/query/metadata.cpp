#include "service/catalogue/query/metadata.h"

#include <functional>
#include <utility>

#include <vantro/catalogue.h>

#include "service/catalogue/cover.h"
#include "service/catalogue/files/catalogued_song.h"
#include "service/catalogue/files/cue_sheet.h"
#include "service/catalogue/files/song_file.h"
#include "service/catalogue/text/utf8.h"

namespace vantro::service::catalogue {

namespace {

constexpr int64_t ns_a_second = 1'000'000'000;
constexpr int64_t us_a_ms = 1000;

std::vector<std::string> answers(const std::vector<std::string_view> &keys,
                                 const std::function<std::string(std::string_view key)> &value_of) {
    std::vector<std::string> values(keys.size());
    size_t left = extended_bytes_max;
    for (size_t i = 0; i < keys.size(); ++i) {
        std::string value = value_of(keys[i]);
        if (value.size() > left) {
            continue;
        }
        left -= value.size();
        values[i] = std::move(value);
    }
    return values;
}

} // namespace

bool read_metadata(Database &database, const ArtworkFolder &artwork, SongId song,
                   SongMetadata &metadata) {
    Rows row = database.query(
        "SELECT song.name, duration, disc, track, tags, year.name, artwork.file, width, height"
        " FROM song JOIN song_detail AS detail ON detail.song = song.id"
        " LEFT JOIN node AS year ON year.id = song.year"
        " LEFT JOIN node AS folder ON folder.id = song.folder"
        " LEFT JOIN folder_image AS image"
        " ON image.source = song.source AND image.folder = folder.identity"
        " LEFT JOIN artwork ON artwork.id ="
        " CASE song.artwork WHEN 0 THEN image.artwork ELSE song.artwork END"
        " WHERE song.id = ?1",
        song);
    if (!row.next()) {
        return false;
    }
    metadata = {};
    metadata.title = row.text(0);
    metadata.duration_ms = row.small(1);
    metadata.disc = row.small(2);
    metadata.track = row.small(3);
    metadata.year = row.text(5);
    const std::pair<std::string_view, std::string &> tags[] = {{VANTRO_KEY_ARTIST, metadata.artist},
                                                               {VANTRO_KEY_ALBUM, metadata.album},
                                                               {VANTRO_KEY_GENRE, metadata.genre},
                                                               {VANTRO_KEY_YEAR, metadata.year}};
    for_each_tag(row.text(4), [&](std::string_view key, std::string_view value) {
        for (const auto &[wanted, text] : tags) {
            if (key == wanted && text.empty()) { // the first of several
                text = value;
            }
        }
        return true;
    });
    if (!row.text(6).empty()) {
        metadata.artwork = artwork.uri(row.text(6));
        metadata.width = row.small(7);
        metadata.height = row.small(8);
    }
    return true;
}

SongMetadata describe(Database &database, const ArtworkFolder &artwork, SourceBrowser &browser,
                      Place place) {
    SongMetadata metadata;
    if (place.id == 0) {
        for (const Node &menu : browser.menus()) {
            if (const std::optional<Place> found = browser.find(menu.id);
                found->kind == place.kind) {
                metadata.title = menu.name;
            }
        }
        return metadata;
    }
    metadata.title = browser.node(Entry::node(place.id)).name;
    if (place.kind == kind_artist) {
        metadata.artist = metadata.title;
    }
    if (place.kind == kind_genre) {
        metadata.genre = metadata.title;
    }
    if (place.kind == kind_year) {
        metadata.year = metadata.title;
    }
    if (place.kind == kind_album) {
        metadata.album = metadata.title;
        Rows artist = database.query("SELECT artist.name FROM node JOIN node AS artist"
                                     " ON artist.id = node.parent WHERE node.id = ?1",
                                     place.id);
        if (artist.next()) {
            metadata.artist = artist.text(0);
        }
    }
    if (place.kind == kind_album || place.kind == kind_folder) {
        if (const SongId example = cover_song(*browser.entries(place)); example != 0) {
            SongMetadata song;
            read_metadata(database, artwork, example, song);
            metadata.artwork = song.artwork;
            metadata.width = song.width;
            metadata.height = song.height;
            if (place.kind == kind_album) {
                metadata.year = song.year;
            }
        }
    }
    return metadata;
}

std::vector<std::string> read_extended(Database &database, const ArtworkFolder &artwork,
                                       std::string_view root, SongId song,
                                       const std::vector<std::string_view> &keys) {
    SongMetadata metadata;
    std::string packed;
    std::string path;
    int64_t size = 0;
    int64_t modified_ns = 0;
    std::string start;
    if (read_metadata(database, artwork, song, metadata)) {
        Rows row = database.query("SELECT tags, identity, file, size, modified, start FROM song"
                                  " JOIN song_detail AS detail ON detail.song = song.id"
                                  " JOIN node ON node.id = folder WHERE song.id = ?1",
                                  song);
        if (row.next()) {
            packed = row.text(0);
            path = path_below(root, path_below(row.text(1), file_of_track(row.text(2))));
            size = row.integer(3);
            modified_ns = row.integer(4);
            if (file_of_track(row.text(2)) != row.text(2)) {
                start = std::to_string(row.integer(5) / us_a_ms);
            }
        }
    }
    const Tags tags{std::move(packed)};
    return answers(keys, [&](std::string_view key) -> std::string {
        if (key == VANTRO_KEY_TITLE) {
            return metadata.title; // may be the file's name
        }
        if (key == VANTRO_KEY_DURATION) {
            return std::to_string(metadata.duration_ms);
        }
        if (key == VANTRO_KEY_ARTWORK) {
            return metadata.artwork;
        }
        if (key == VANTRO_KEY_PATH) {
            return clean_text(path, path_text_max);
        }
        if (key == VANTRO_KEY_START) {
            return start;
        }
        if (key == VANTRO_KEY_SIZE) {
            return std::to_string(size);
        }
        if (key == VANTRO_KEY_MODIFIED) {
            return std::to_string(modified_ns / ns_a_second);
        }
        return std::string(tags.get(key));
    });
}

std::string path_of(Database &database, SongId song) {
    Rows row = database.query("SELECT identity, file FROM song JOIN node ON node.id = folder"
                              " WHERE song.id = ?1",
                              song);
    return row.next() ? path_below(row.text(0), file_of_track(row.text(1))) : "";
}

SongPart part_of(Database &database, SongId song) {
    Rows row = database.query("SELECT start, stop, folder, file FROM song WHERE id = ?1", song);
    if (!row.next()) {
        return {};
    }
    const std::string file(file_of_track(row.text(3)));
    return {row.integer(0), row.integer(1), std::to_string(row.integer(2)) + '/' + file};
}

std::vector<std::string> extended_of(const SongMetadata &metadata,
                                     const std::vector<std::string_view> &keys) {
    return answers(keys, [&](std::string_view key) -> std::string {
        if (key == VANTRO_KEY_TITLE) {
            return metadata.title;
        }
        if (key == VANTRO_KEY_ARTIST || key == VANTRO_KEY_ALBUM_ARTIST) {
            return metadata.artist;
        }
        if (key == VANTRO_KEY_ALBUM) {
            return metadata.album;
        }
        if (key == VANTRO_KEY_GENRE) {
            return metadata.genre;
        }
        if (key == VANTRO_KEY_YEAR) {
            return metadata.year;
        }
        if (key == VANTRO_KEY_ARTWORK) {
            return metadata.artwork;
        }
        return "";
    });
}

} // namespace vantro::service::catalogue
