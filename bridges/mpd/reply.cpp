#include "bridges/mpd/reply.h"

#include <algorithm>
#include <array>

#include "bridges/mpd/text.h"

namespace vantro::mpd {

std::string format_seconds(int64_t ms) {
    return fmt::format("{}.{:03}", ms / 1000, ms % 1000);
}

std::string audio_format(const Song &song) {
    // The catalogue does not have the number of bits of a sample. Decoders of these codecs produce
    // floating point numbers.
    constexpr std::array<std::string_view, 4> lossy = {"mp3", "aac", "vorbis", "opus"};
    if (song.sample_rate.empty() || song.channels.empty() ||
        std::find(lossy.begin(), lossy.end(), song.codec) == lossy.end()) {
        return "";
    }
    return fmt::format("{}:f:{}", song.sample_rate, song.channels);
}

void Reply::song(const Song &song, const TagSet &shown) {
    pair("file", song.uri);
    if (song.modified > 0) {
        pair("Last-Modified", format_time(song.modified));
    }
    if (const std::string format = audio_format(song); !format.empty()) {
        pair("Format", format);
    }
    for (size_t i = 0; i < tag_count; ++i) {
        if (shown[i] && !song.tags[i].empty()) {
            pair(tag_names[i].name, song.tags[i]);
        }
    }
    if (song.duration_ms > 0) {
        number("Time", (song.duration_ms + 500) / 1000);
        pair("duration", format_seconds(song.duration_ms));
    }
}

} // namespace vantro::mpd
