// A song that the scan has found, prepared for the catalogue's file. Any thread can do this work.
#ifndef VANTRO_SERVICE_CATALOGUE_FILES_CATALOGUED_SONG_H
#define VANTRO_SERVICE_CATALOGUE_FILES_CATALOGUED_SONG_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "service/catalogue/files/artwork_folder.h"
#include "service/catalogue/files/song_file.h"

namespace vantro::service::catalogue {

// A file by its source, its folder below the source ("" for the top) and its name there.
struct FileName {
    int32_t source = 0;
    std::string folder;
    std::string file;
};

// A file's time of change and its size. If both are unchanged, the file need not be read again.
struct FileStamp {
    int64_t modified_ns = 0;
    int64_t size = 0;
    bool operator==(const FileStamp &) const = default;
};

// The path of a file below its source: FOLDER/FILE, or FILE if the folder is "".
std::string path_below(std::string_view folder, std::string_view file);

// The opposite: the folder of a path, and its last component.
FileName place_of(int32_t source, std::string_view path);

struct FoundName {
    std::string text;     // for display
    std::string identity; // equal for names that count as the same
    std::string sort;
};

struct FoundSong {
    FileName where;
    SongFile song;
    std::optional<Artwork> artwork;
    std::string title;
    std::string sort;  // of the title
    int64_t place = 0; // disc and track
    // Of the album, judged from this song only; the identity is empty if there is none.
    FoundName artist;
    bool artist_stated = false;        // the file states an album artist, not only a performer
    std::vector<FoundName> performers; // each artist by itself
    FoundName album;
    std::vector<FoundName> genres;
};

inline constexpr std::string_view several_artists = "Various Artists";

// The artists that perform a song, and the artist that its file states for the album, from the tags
// after complete().
std::vector<FoundName> performers_in(const Tags &tags);
FoundName stated_artist_in(const Tags &tags);

FoundName named(std::string_view text);

// Fills in all members that follow from `where` and `song`.
void complete(FoundSong &found);

// A file's name without its ending, as a title.
std::string title_of_file(std::string_view file);

} // namespace vantro::service::catalogue

#endif
