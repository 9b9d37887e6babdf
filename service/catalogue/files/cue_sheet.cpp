#include "service/catalogue/files/cue_sheet.h"

#include <algorithm>
#include <charconv>
#include <utility>

#include <fmt/format.h>
#include <unicode/unistr.h>

#include <vantro/catalogue.h>

#include "service/catalogue/files/file_stream.h"
#include "service/catalogue/text/digest.h"
#include "service/catalogue/text/utf8.h"

namespace vantro::service::catalogue {

namespace {

constexpr int32_t tracks_max = 99;

constexpr std::string_view byte_order_mark = "\xEF\xBB\xBF";

std::string upper(std::string_view text) {
    std::string result(text);
    std::transform(result.begin(), result.end(), result.begin(), [](char c) {
        return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
    });
    return result;
}

std::string_view without_ending(std::string_view name) {
    return name.substr(0, name.rfind('.'));
}

Error bad(const std::string &text) {
    return Error::damage(Error::Origin::music, "is not a usable cue sheet: " + text);
}

// If the bytes are not UTF-8, they are decoded as Windows-1252, which includes Latin-1.
std::string as_utf8(std::string_view bytes) {
    if (clean_text(bytes, bytes.size()) == bytes) {
        return std::string(bytes);
    }
    std::string text;
    icu::UnicodeString(bytes.data(), static_cast<int32_t>(bytes.size()), "windows-1252")
        .toUTF8String(text);
    return text;
}

// Removes the next word, or the text between quotes, from the line and returns it.
std::string_view take_word(std::string_view &line) {
    constexpr std::string_view blanks = " \t";
    line.remove_prefix(std::min(line.size(), line.find_first_not_of(blanks)));
    const bool quoted = !line.empty() && line.front() == '"';
    line.remove_prefix(quoted ? 1 : 0);
    const size_t end = quoted ? line.find('"') : line.find_first_of(blanks);
    const std::string_view word = line.substr(0, end);
    line.remove_prefix(std::min(line.size(), word.size() + 1));
    return word;
}

// The rest of a line as one text. Some programs leave the quotes out.
std::string take_text(std::string_view line) {
    constexpr std::string_view blanks = " \t";
    line.remove_prefix(std::min(line.size(), line.find_first_not_of(blanks)));
    if (!line.empty() &&
        line.front() == '"') { // up to the last one: titles may have quotes in them
        line.remove_prefix(1);
        return clean_text(line.substr(0, line.rfind('"')), tag_text_max);
    }
    return clean_text(line.substr(0, line.find_last_not_of(blanks) + 1), tag_text_max);
}

// The name before the type of a file, as in FILE "disc.wav" WAVE.
std::string take_file(std::string_view line) {
    const std::string text = take_text(line);
    const size_t type =
        line.find('"') == std::string_view::npos ? text.find_last_of(" \t") : std::string::npos;
    return text.substr(0, type);
}

std::optional<int32_t> number_in(std::string_view text) {
    int32_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    const bool good = error == std::errc() && end == text.data() + text.size() && number >= 0;
    return good ? std::optional(number) : std::nullopt;
}

// MM:SS:FF; minutes may have more digits.
std::optional<int64_t> frame_in(std::string_view text) {
    const size_t first = text.find(':');
    const size_t second = text.rfind(':');
    if (first == std::string_view::npos || second == first) {
        return std::nullopt;
    }
    const auto minutes = number_in(text.substr(0, first));
    const auto seconds = number_in(text.substr(first + 1, second - first - 1));
    const auto frames = number_in(text.substr(second + 1));
    if (!minutes || !seconds || !frames || *seconds >= 60 || *frames >= cue_frames_a_second) {
        return std::nullopt;
    }
    return (*minutes * int64_t{60} + *seconds) * cue_frames_a_second + *frames;
}

class Parser {
  public:
    Result<CueSheet> parse(std::string_view text) {
        for (int32_t number = 1; !text.empty(); ++number) {
            const std::string_view line = text.substr(0, text.find_first_of("\r\n"));
            text.remove_prefix(line.size());
            text.remove_prefix(std::min<size_t>(text.size(), text.substr(0, 2) == "\r\n" ? 2 : 1));
            if (const std::string wrong = take_line(line); !wrong.empty()) {
                return bad(fmt::format("line {}: {}", number, wrong));
            }
        }
        if (sheet_.file.empty()) {
            return bad("it does not name a file");
        }
        if (sheet_.tracks.empty()) {
            return bad("it has no tracks");
        }
        if (!has_time_) {
            return bad("its last track has no INDEX 01");
        }
        return std::move(sheet_);
    }

  private:
    // Returns the error in the line, or "". Lines that do not concern tracks are ignored.
    std::string take_line(std::string_view line) {
        const std::string command = upper(take_word(line));
        CueTrack *const track = sheet_.tracks.empty() ? nullptr : &sheet_.tracks.back();
        if (command == "FILE") {
            if (!std::exchange(sheet_.file, take_file(line)).empty()) {
                return "it names a second file";
            }
        } else if (command == "TRACK") {
            return take_track(line);
        } else if (command == "INDEX") {
            return take_index(line);
        } else if (command == "TITLE") {
            (track ? track->title : sheet_.title) = take_text(line);
        } else if (command == "PERFORMER") {
            (track ? track->performer : sheet_.performer) = take_text(line);
        } else if (command == "SONGWRITER" && track) {
            track->songwriter = take_text(line);
        } else if (command == "REM" && !track) {
            take_remark(line);
        }
        return "";
    }

    std::string take_track(std::string_view line) {
        const auto number = number_in(take_word(line));
        if (sheet_.file.empty()) {
            return "a track before any file";
        }
        if (!has_time_) {
            return "the previous track has no INDEX 01";
        }
        const int32_t before = sheet_.tracks.empty() ? 0 : sheet_.tracks.back().number;
        if (!number || *number <= before || *number > tracks_max) {
            return fmt::format("a track's number is 1 to {}, each above the previous one",
                               tracks_max);
        }
        if (upper(take_word(line)) != "AUDIO") {
            return "a track that is not audio";
        }
        sheet_.tracks.push_back({*number, 0, "", "", ""});
        has_time_ = false;
        return "";
    }

    // INDEX 00 is the pause before a track; it belongs to the previous track, as in other players.
    std::string take_index(std::string_view line) {
        const auto number = number_in(take_word(line));
        const auto frame = frame_in(take_word(line));
        if (sheet_.tracks.empty() || !number || !frame) {
            return "an index is INDEX NN MM:SS:FF, of a track";
        }
        if (*number != 1) {
            return "";
        }
        if (has_time_ || *frame <= last_frame_) {
            return "the times go backwards";
        }
        sheet_.tracks.back().frame = last_frame_ = *frame;
        has_time_ = true;
        return "";
    }

    void take_remark(std::string_view line) {
        const std::string key = upper(take_word(line));
        if (key == "GENRE") {
            sheet_.genre = take_text(line);
        } else if (key == "DATE") {
            sheet_.date = take_text(line);
        } else if (key == "DISCNUMBER") {
            sheet_.disc = std::min(number_in(take_word(line)).value_or(0), 999);
        }
    }

    CueSheet sheet_;
    bool has_time_ = true;    // of the last track, if there is one
    int64_t last_frame_ = -1; // of an INDEX 01
};

// In microseconds, rounded up: players round a number of samples down, and so reach the intended
// sample. A microsecond is shorter than a sample.
int64_t time_of(int64_t frame) {
    return frame == 0 ? 0 : frame * 1'000'000 / cue_frames_a_second + 1;
}

int64_t ms_of(int64_t frame) {
    return frame * 1000 / cue_frames_a_second;
}

// Keys whose values a track takes from its file if the sheet has none.
constexpr std::string_view shared_keys[] = {
    VANTRO_KEY_ALBUM,
    VANTRO_KEY_ARTIST,
    VANTRO_KEY_ALBUM_ARTIST,
    VANTRO_KEY_COMPOSER,
    VANTRO_KEY_CONDUCTOR,
    VANTRO_KEY_YEAR,
    VANTRO_KEY_GENRE,
    VANTRO_KEY_COPYRIGHT,
    VANTRO_KEY_COMPILATION,
    VANTRO_KEY_DISC,
    VANTRO_KEY_DISC_TOTAL,
    VANTRO_KEY_REPLAYGAIN_ALBUM_GAIN,
    VANTRO_KEY_REPLAYGAIN_ALBUM_PEAK,
    VANTRO_KEY_BIT_RATE,
    VANTRO_KEY_SAMPLE_RATE,
    VANTRO_KEY_CHANNELS,
    VANTRO_KEY_CODEC,
};

SongFile song_of(const SongFile &whole, const CueSheet &sheet, const CueTrack &track) {
    SongFile song;
    song.modified_ns = whole.modified_ns;
    song.size = whole.size;
    song.track = track.number;
    song.disc = sheet.disc != 0 ? sheet.disc : whole.disc;
    song.year = sheet.date.empty() ? whole.year : year_in(sheet.date);
    song.sheet = sheet.digest;

    Tags &tags = song.tags;
    tags.add(VANTRO_KEY_TITLE, track.title);
    tags.add(VANTRO_KEY_ARTIST, track.performer.empty() ? sheet.performer : track.performer);
    tags.add(VANTRO_KEY_ALBUM_ARTIST, sheet.performer);
    tags.add(VANTRO_KEY_ALBUM, sheet.title);
    tags.add(VANTRO_KEY_COMPOSER, track.songwriter);
    tags.add(VANTRO_KEY_GENRE, sheet.genre);
    tags.add(VANTRO_KEY_YEAR, sheet.date);
    tags.add(VANTRO_KEY_DISC, sheet.disc > 0 ? std::to_string(sheet.disc) : "");
    tags.add(VANTRO_KEY_TRACK, std::to_string(track.number));
    tags.add(VANTRO_KEY_TRACK_TOTAL, std::to_string(sheet.tracks.back().number));
    const bool own_artist = !tags.get(VANTRO_KEY_ARTIST).empty();
    const bool own_album_artist = !sheet.performer.empty();
    for (const std::string_view key : shared_keys) {
        if (tags.get(key).empty()) {
            tags.add(key, whole.tags.get(key));
        }
    }
    if (!own_artist) {
        song.artists = whole.artists;
    }
    if (!own_album_artist) {
        song.album_artists = whole.album_artists;
    }
    song.genres = sheet.genre.empty() ? whole.genres : std::vector{sheet.genre};
    return song;
}

} // namespace

bool has_cue_name(std::string_view name) {
    const size_t dot = name.rfind('.');
    return dot != std::string_view::npos && upper(name.substr(dot)) == ".CUE";
}

Result<CueSheet> parse_cue_sheet(std::string_view bytes) {
    if (bytes.size() > cue_sheet_bytes_max) {
        return bad("it is too large");
    }
    if (bytes.find('\0') != std::string_view::npos) {
        return bad("it is not text");
    }
    constexpr size_t digits = 15; // so that the number is above 0
    int64_t digest_number = 0;
    const std::string digest_text = digest(bytes).substr(0, digits);
    std::from_chars(digest_text.data(), digest_text.data() + digits, digest_number, 16);
    if (bytes.substr(0, byte_order_mark.size()) == byte_order_mark) {
        bytes.remove_prefix(byte_order_mark.size());
    }
    Result<CueSheet> sheet = Parser().parse(as_utf8(bytes));
    if (sheet) {
        (*sheet).digest = digest_number + 1;
    }
    return sheet;
}

Result<CueSheet> read_cue_sheet(const MusicRoot &root, const std::string &path,
                                const std::string &name) {
    FileStream stream(root, path, name);
    if (stream.failure()) {
        return *stream.failure();
    }
    const TagLib::ByteVector bytes = stream.readBlock(cue_sheet_bytes_max + 1);
    if (stream.failure()) {
        return *stream.failure();
    }
    return parse_cue_sheet({bytes.data(), bytes.size()});
}

const std::string *file_of_sheet(const CueSheet &sheet, std::string_view name,
                                 const std::vector<std::string> &names) {
    const std::string_view written =
        std::string_view(sheet.file).substr(sheet.file.find_last_of("/\\") + 1);
    const auto find = [&](auto &&good) -> const std::string * {
        const auto found = std::find_if(names.begin(), names.end(), good);
        return found != names.end() ? &*found : nullptr;
    };
    const std::string *file = find([&](const std::string &each) { return each == written; });
    for (const std::string_view stem : {without_ending(written), without_ending(name)}) {
        file = file ? file : find([&](const std::string &each) {
            return upper(without_ending(each)) == upper(stem);
        });
    }
    return file;
}

std::optional<std::vector<FoundSong>> cut_by_sheet(const FoundSong &whole, const CueSheet &sheet) {
    const std::vector<CueTrack> &tracks = sheet.tracks;
    if (ms_of(tracks.back().frame) >= whole.song.duration_ms) {
        return std::nullopt;
    }
    std::vector<FoundSong> songs;
    for (size_t i = 0; i < tracks.size(); ++i) {
        const CueTrack &track = tracks[i];
        FoundSong &cut = songs.emplace_back();
        cut.where = whole.where;
        cut.where.file = name_of_track(whole.where.file, track.number);
        cut.artwork = whole.artwork;
        cut.song = song_of(whole.song, sheet, track);
        const bool last = i + 1 == tracks.size();
        cut.song.start_us = time_of(track.frame);
        cut.song.stop_us = last ? 0 : time_of(tracks[i + 1].frame);
        const int64_t end = last ? whole.song.duration_ms : ms_of(tracks[i + 1].frame);
        cut.song.duration_ms = static_cast<int32_t>(end - ms_of(track.frame));
        if (track.title.empty()) {
            cut.song.tags.add(
                VANTRO_KEY_TITLE,
                fmt::format("{} {:02}", title_of_file(whole.where.file), track.number));
        }
    }
    return songs;
}

std::string name_of_track(std::string_view file, int32_t number) {
    return fmt::format("{}/{:02}", file, number);
}

std::string_view file_of_track(std::string_view name) {
    return name.substr(0, name.find('/'));
}

} // namespace vantro::service::catalogue
