// The tags and properties of one audio file.
#ifndef VANTRO_SERVICE_CATALOGUE_FILES_SONG_FILE_H
#define VANTRO_SERVICE_CATALOGUE_FILES_SONG_FILE_H

#include <algorithm>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "service/catalogue/files/music_root.h"
#include "service/error.h"

namespace vantro::service::catalogue {

// Longest lyrics that are kept, in bytes. Other texts end at tag_text_max.
inline constexpr size_t lyrics_max = 64 * 1024;

// Calls `visit` with the key and the value of each packed tag, until it returns false.
template <typename Visit>
void for_each_tag(std::string_view packed, const Visit &visit) {
    const auto take = [&packed] {
        const std::string_view text = packed.substr(0, packed.find('\0'));
        packed.remove_prefix(std::min(packed.size(), text.size() + 1));
        return text;
    };
    while (!packed.empty()) {
        const std::string_view key = take();
        if (!visit(key, take())) {
            return;
        }
    }
}

// Values by the keys of <vantro/catalogue.h>. Texts are valid UTF-8 without NUL.
class Tags {
  public:
    Tags() = default;
    explicit Tags(std::string packed) : packed_(std::move(packed)) {}

    // Ignores an empty value. A key may have several values; get() returns the first.
    void add(std::string_view key, std::string_view value);
    std::string_view get(std::string_view key) const; // empty if there is none
    std::vector<std::string_view> all(std::string_view key) const;
    const std::string &packed() const { return packed_; }

  private:
    std::string packed_; // key NUL value NUL...
};

struct SongFile {
    Tags tags;
    std::vector<std::string> artists;       // separately; the tag has them in one text
    std::vector<std::string> album_artists; // likewise
    std::vector<std::string> genres;
    int32_t year = 0;
    int32_t disc = 0;
    int32_t track = 0;
    int32_t duration_ms = 0;
    int64_t modified_ns = 0;
    int64_t size = 0;
    std::string picture;   // the bytes of the cover in the file
    std::string cue_sheet; // the text of the sheet in the file
    // For a track of a cue sheet: its start and end in the file; an end of 0 is the file's end.
    int64_t start_us = 0;
    int64_t stop_us = 0;
    // The CueSheet::digest of the sheet beside the file; negated for a sheet in the file; 0: none.
    int64_t sheet = 0;
};

// The first four digits in a row, since the parts of dates have any order; 0 if there are none.
int32_t year_in(std::string_view date);

// True for a name with the ending of an audio format. The scan ignores other files.
bool has_audio_name(std::string_view name);

// Fills `song` from the file at `path` below the root, with the name `name`. Returns an error if
// the file cannot be played; time and size are filled in also then.
std::optional<Error> read_song(const MusicRoot &root, const std::string &path,
                               const std::string &name, SongFile &song);

// 0, or the VANTRO_ERROR_* for which the file at `path` below the directory cannot be played. If
// memory or descriptors are short, returns 0, since that does not mean that the file is bad.
int32_t check_song(const std::string &directory, const std::string &path);

} // namespace vantro::service::catalogue

#endif
