#include "service/catalogue/files/song_file.h"

#include <algorithm>
#include <cerrno>
#include <exception>
#include <new>
#include <string>
#include <unistd.h>

#include <fmt/format.h>
#include <taglib/audioproperties.h>
#include <taglib/fileref.h>
#include <taglib/flacproperties.h>
#include <taglib/tag.h>
#include <taglib/tpropertymap.h>

#include <vantro/catalogue.h>

#include "service/catalogue/files/file_stream.h"
#include "service/catalogue/files/flac_length.h"
#include "service/catalogue/files/formats.h"
#include "service/catalogue/files/other_formats.h"
#include "service/catalogue/text/utf8.h"

namespace vantro::service::catalogue {

namespace {

// The formats have several names for some keys; the first name that the file has counts.
struct TagName {
    const char *key;
    const char *names[3];
};

constexpr TagName tag_names[] = {
    {VANTRO_KEY_TITLE, {"TITLE"}},
    {VANTRO_KEY_ARTIST, {"ARTIST"}},
    {VANTRO_KEY_ALBUM, {"ALBUM"}},
    {VANTRO_KEY_ALBUM_ARTIST, {"ALBUMARTIST", "ALBUM ARTIST", "ALBUM_ARTIST"}},
    {VANTRO_KEY_COMPOSER, {"COMPOSER"}},
    {VANTRO_KEY_CONDUCTOR, {"CONDUCTOR"}},
    {VANTRO_KEY_YEAR, {"DATE", "YEAR"}},
    {VANTRO_KEY_COMMENT, {"COMMENT", "DESCRIPTION"}},
    {VANTRO_KEY_LYRICS, {"LYRICS", "UNSYNCEDLYRICS"}},
    {VANTRO_KEY_COPYRIGHT, {"COPYRIGHT"}},
    {VANTRO_KEY_BPM, {"BPM", "TEMPO"}},
    {VANTRO_KEY_REPLAYGAIN_TRACK_GAIN, {"REPLAYGAIN_TRACK_GAIN"}},
    {VANTRO_KEY_REPLAYGAIN_TRACK_PEAK, {"REPLAYGAIN_TRACK_PEAK"}},
    {VANTRO_KEY_REPLAYGAIN_ALBUM_GAIN, {"REPLAYGAIN_ALBUM_GAIN"}},
    {VANTRO_KEY_REPLAYGAIN_ALBUM_PEAK, {"REPLAYGAIN_ALBUM_PEAK"}},
};

// Longest cue sheet that is read from a tag, in characters: 99 tracks with long texts.
constexpr unsigned cue_text_max = 256 * 1024;

// Most genres, and most artists, that are read for one song.
constexpr size_t values_max = 16;

std::string text_of(const TagLib::String &value, size_t limit = tag_text_max) {
    return clean_text(value.stripWhiteSpace().to8Bit(true), limit);
}

// Several values of one key become one text.
std::string joined(const TagLib::StringList &values, size_t limit) {
    std::string text;
    for (const TagLib::String &value : values) {
        const std::string each = text_of(value, limit);
        const size_t between = text.empty() ? 0 : 2;
        if (text.size() + between + each.size() > limit) {
            break;
        }
        if (!each.empty()) {
            text += (between == 0 ? "" : "; ") + each;
        }
    }
    return text;
}

std::string first_of(const TagLib::PropertyMap &properties, const TagName &tag) {
    const size_t limit = std::string_view(tag.key) == VANTRO_KEY_LYRICS ? lyrics_max : tag_text_max;
    for (const char *name : tag.names) {
        if (!name) {
            break;
        }
        const auto found = properties.find(name);
        if (found == properties.end()) {
            continue;
        }
        if (std::string text = joined(found->second, limit); !text.empty()) {
            return text;
        }
    }
    return "";
}

int32_t positive(const TagLib::String &text) {
    const int number = text.stripWhiteSpace().toInt();
    return number > 0 ? number : 0;
}

// Largest number of a disc or a track. A larger one is not a number of that kind.
constexpr int32_t number_max = 999;

int32_t small_number(const TagLib::String &text) {
    const int32_t number = positive(text);
    return number <= number_max ? number : 0;
}

// Some programs write measurements into comments, as a sequence of hexadecimal numbers.
bool is_measurement(std::string_view comment) {
    constexpr size_t digits = 8;
    size_t numbers = 0;
    for (size_t at = 0; at < comment.size(); at += digits, ++numbers) {
        if (numbers > 0 && comment[at++] != ' ') {
            return false;
        }
        const std::string_view number = comment.substr(at, digits);
        if (number.size() < digits ||
            number.find_first_not_of("0123456789ABCDEFabcdef") != std::string_view::npos) {
            return false;
        }
    }
    return numbers > 1;
}

// Reads "2" and "2/3". The total may also be in a separate tag.
std::pair<int32_t, int32_t> number_and_total(const TagLib::PropertyMap &properties,
                                             const char *name,
                                             std::initializer_list<const char *> totals) {
    std::pair<int32_t, int32_t> result;
    const auto found = properties.find(name);
    if (found != properties.end() && !found->second.isEmpty()) {
        const TagLib::StringList pieces = found->second.front().split("/");
        result.first = small_number(pieces.front());
        if (pieces.size() > 1) {
            result.second = small_number(pieces[1]);
        }
    }
    for (const char *total : totals) {
        const auto also = properties.find(total);
        if (result.second == 0 && also != properties.end() && !also->second.isEmpty()) {
            result.second = small_number(also->second.front());
        }
    }
    return result;
}

void add_number(Tags &tags, const char *key, int64_t number) {
    if (number > 0) {
        tags.add(key, std::to_string(number));
    }
}

std::vector<std::string> each_of(const TagLib::PropertyMap &properties, const char *name) {
    std::vector<std::string> texts;
    const auto found = properties.find(name);
    if (found == properties.end()) {
        return texts;
    }
    for (const TagLib::String &value : found->second) {
        if (std::string text = text_of(value); !text.empty() && texts.size() < values_max) {
            texts.push_back(std::move(text));
        }
    }
    return texts;
}

void take_tags(const TagLib::PropertyMap &properties, SongFile &song) {
    for (const TagName &tag : tag_names) {
        const std::string text = first_of(properties, tag);
        if (std::string_view(tag.key) != VANTRO_KEY_COMMENT || !is_measurement(text)) {
            song.tags.add(tag.key, text);
        }
    }
    song.year = year_in(song.tags.get(VANTRO_KEY_YEAR));

    song.artists = each_of(properties, "ARTIST");
    song.genres = each_of(properties, "GENRE");
    for (const char *name : {"ALBUMARTIST", "ALBUM ARTIST", "ALBUM_ARTIST"}) {
        if (song.album_artists.empty()) {
            song.album_artists = each_of(properties, name);
        }
    }
    const auto genres = properties.find("GENRE");
    if (genres != properties.end()) {
        song.tags.add(VANTRO_KEY_GENRE, joined(genres->second, tag_text_max));
    }

    const auto [disc, discs] =
        number_and_total(properties, "DISCNUMBER", {"DISCTOTAL", "TOTALDISCS"});
    const auto [track, tracks] =
        number_and_total(properties, "TRACKNUMBER", {"TRACKTOTAL", "TOTALTRACKS"});
    song.disc = disc;
    song.track = track;
    add_number(song.tags, VANTRO_KEY_DISC, disc);
    add_number(song.tags, VANTRO_KEY_DISC_TOTAL, discs);
    add_number(song.tags, VANTRO_KEY_TRACK, track);
    add_number(song.tags, VANTRO_KEY_TRACK_TOTAL, tracks);

    const auto sheet = properties.find("CUESHEET");
    if (sheet != properties.end() && !sheet->second.isEmpty() &&
        sheet->second.front().size() <= cue_text_max) {
        song.cue_sheet = sheet->second.front().to8Bit(true);
    }

    const auto compilation = properties.find("COMPILATION");
    if (compilation != properties.end() && !compilation->second.isEmpty() &&
        compilation->second.front().toInt() == 1) {
        song.tags.add(VANTRO_KEY_COMPILATION, "1");
    }
}

// Returns false if the stream holds no audio with a duration.
bool read_stream(FileStream &stream, SongFile &song) {
    const TagLib::FileRef file(&stream, true, TagLib::AudioProperties::Average);
    const TagLib::AudioProperties *audio = file.isNull() ? nullptr : file.audioProperties();
    if (audio == nullptr) {
        return false;
    }
    song.duration_ms = audio->lengthInMilliseconds();
    if (song.duration_ms <= 0 && audio->sampleRate() > 0 &&
        dynamic_cast<const TagLib::FLAC::Properties *>(audio) != nullptr) {
        const int64_t ms = flac_samples(stream) * 1000 / audio->sampleRate();
        song.duration_ms = static_cast<int32_t>(std::min<int64_t>(ms, INT32_MAX));
    }
    if (song.duration_ms <= 0) {
        song.duration_ms = static_cast<int32_t>(std::min<int64_t>(module_ms(*audio), INT32_MAX));
    }
    if (song.duration_ms <= 0) {
        return false;
    }
    take_tags(properties_of(*file.file()), song);
    add_number(song.tags, VANTRO_KEY_BIT_RATE, audio->bitrate());
    add_number(song.tags, VANTRO_KEY_SAMPLE_RATE, audio->sampleRate());
    add_number(song.tags, VANTRO_KEY_CHANNELS, audio->channels());
    song.tags.add(VANTRO_KEY_CODEC, codec_of(*file.file()));
    song.picture = picture_in(*file.file());
    return true;
}

// The same for the formats that TagLib does not read.
bool read_other_stream(FileStream &stream, SongFile &song) {
    const std::optional<OtherAudio> audio = read_other(stream);
    if (!audio) {
        return false;
    }
    song.duration_ms = static_cast<int32_t>(audio->duration_ms);
    song.tags.add(VANTRO_KEY_TITLE, clean_text(audio->title, tag_text_max));
    add_number(song.tags, VANTRO_KEY_SAMPLE_RATE, audio->sample_rate);
    add_number(song.tags, VANTRO_KEY_CHANNELS, audio->channels);
    song.tags.add(VANTRO_KEY_CODEC, audio->codec);
    return true;
}

} // namespace

int32_t year_in(std::string_view date) {
    size_t digits = 0;
    for (size_t i = 0; i < date.size(); ++i) {
        digits = date[i] >= '0' && date[i] <= '9' ? digits + 1 : 0;
        if (digits == 4) {
            return std::stoi(std::string(date.substr(i - 3, 4)));
        }
    }
    return 0;
}

void Tags::add(std::string_view key, std::string_view value) {
    if (value.empty()) {
        return;
    }
    packed_.append(key).push_back('\0');
    packed_.append(value).push_back('\0');
}

std::string_view Tags::get(std::string_view key) const {
    std::string_view first;
    for_each_tag(packed_, [&](std::string_view name, std::string_view value) {
        if (name == key) {
            first = value;
        }
        return name != key;
    });
    return first;
}

std::vector<std::string_view> Tags::all(std::string_view key) const {
    std::vector<std::string_view> values;
    for_each_tag(packed_, [&](std::string_view name, std::string_view value) {
        if (name == key) {
            values.push_back(value);
        }
        return true;
    });
    return values;
}

bool has_audio_name(std::string_view name) {
    const size_t dot = name.rfind('.');
    if (dot == std::string_view::npos) {
        return false;
    }
    std::string ending(name.substr(dot + 1));
    std::transform(ending.begin(), ending.end(), ending.begin(), [](char c) {
        return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    });
    static const std::vector<std::string> known = [] {
        std::vector<std::string> endings;
        for (const TagLib::String &each : TagLib::FileRef::defaultFileExtensions()) {
            endings.push_back(each.to8Bit());
        }
        endings.emplace_back("mp2"); // TagLib recognises it by its content, not by this ending
        return endings;
    }();
    return std::find(known.begin(), known.end(), ending) != known.end() || has_other_name(name);
}

std::optional<Error> read_song(const MusicRoot &root, const std::string &path,
                               const std::string &name, SongFile &song) {
    try {
        FileStream stream(root, path, name);
        song.modified_ns = stream.status().st_mtim.tv_sec * int64_t{1'000'000'000} +
                           stream.status().st_mtim.tv_nsec;
        song.size = stream.status().st_size;
        if (stream.failure()) {
            return stream.failure();
        }
        // The data of these formats can look like those of others, so the name decides which reader
        // is tried first.
        const bool other = has_other_name(name);
        bool good = other ? read_other_stream(stream, song) : read_stream(stream, song);
        if (!good && !stream.failure()) {
            stream.rewind(false);
            good = read_stream(stream, song);
        }
        if (!good && !other && !stream.failure()) {
            stream.rewind(false);
            good = read_other_stream(stream, song);
        }
        if (stream.failure()) {
            return stream.failure(); // the file was not read completely
        }
        if (!good) {
            return Error::damage(Error::Origin::music, "is not audio that can be read");
        }
        return std::nullopt;
    } catch (const std::bad_alloc &) {
        return Error(Error::Origin::system, ENOMEM);
    } catch (const std::exception &) {
        return Error::damage(Error::Origin::music, "is damaged");
    }
}

int32_t check_song(const std::string &directory, const std::string &path) {
    std::optional<Error> error;
    try {
        const MusicRoot root(directory);
        const int descriptor = root.open_file(path);
        if (descriptor < 0) {
            error = Error(Error::Origin::music, errno);
        } else {
            close(descriptor);
            SongFile ignored;
            error = read_song(root, path, path, ignored);
        }
    } catch (const Error &thrown) {
        error = thrown;
    }
    return !error || error->is_want() ? 0 : track_error(*error);
}

} // namespace vantro::service::catalogue
