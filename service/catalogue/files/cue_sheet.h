// Cue sheets, which list the tracks of one audio file. A sheet is a .cue file beside the audio
// file, or a text in one of its tags.
#ifndef VANTRO_SERVICE_CATALOGUE_FILES_CUE_SHEET_H
#define VANTRO_SERVICE_CATALOGUE_FILES_CUE_SHEET_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "service/catalogue/files/catalogued_song.h"
#include "service/catalogue/files/music_root.h"
#include "service/error.h"

namespace vantro::service::catalogue {

// Largest sheet, in bytes: 99 tracks with several of the longest texts each.
inline constexpr size_t cue_sheet_bytes_max = 1024 * 1024;

// Positions are counted in frames, as on the disc.
inline constexpr int64_t cue_frames_a_second = 75;

struct CueTrack {
    int32_t number = 0; // 1 to 99
    int64_t frame = 0;  // where it begins
    std::string title;
    std::string performer;
    std::string songwriter;
};

// Texts are valid UTF-8 and at most tag_text_max bytes; empty if there is none.
struct CueSheet {
    std::string file; // the name in the sheet
    std::string title;
    std::string performer;
    std::string genre;
    std::string date;
    int32_t disc = 0;
    std::vector<CueTrack> tracks; // at least one, in the order of their numbers and times
    int64_t digest = 0;           // of the sheet's bytes; above 0
};

bool has_cue_name(std::string_view name);

// Texts that are not UTF-8 are read as Windows-1252. Fails if the bytes are not a sheet for one
// audio file.
Result<CueSheet> parse_cue_sheet(std::string_view bytes);

// Reads the file at `path` below the root.
Result<CueSheet> read_cue_sheet(const MusicRoot &root, const std::string &path,
                                const std::string &name);

// The audio file of a sheet called `name`; `names` are the files in the sheet's folder. It is the
// file that the sheet names; else a file with that name, or with the sheet's name, and another
// ending: sheets often name the file from which the present one was encoded. Null if there is none.
const std::string *file_of_sheet(const CueSheet &sheet, std::string_view name,
                                 const std::vector<std::string> &names);

// The songs that the sheet makes of a whole file to which complete() was not applied. Nothing if a
// track begins after the end of the file.
std::optional<std::vector<FoundSong>> cut_by_sheet(const FoundSong &whole, const CueSheet &sheet);

// The name of a track among the files of a folder: FILE/NN. No file can have such a name.
std::string name_of_track(std::string_view file, int32_t number);

// The file of a track's or a file's name.
std::string_view file_of_track(std::string_view name);

} // namespace vantro::service::catalogue

#endif
