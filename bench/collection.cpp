#include "bench/collection.h"

#include <array>
#include <cstdint>
#include <fstream>
#include <random>
#include <string_view>
#include <utility>
#include <vector>

#include <fmt/format.h>

#include "bench/process.h"

namespace vantro::bench {

namespace {

constexpr size_t album_songs = 10;
constexpr size_t artist_songs = 50;

constexpr std::array genres{"Ambient", "Blues", "Classical", "Country", "Dub",  "Electronic",
                            "Folk",    "Funk",  "Gospel",    "House",   "Jazz", "Metal",
                            "Pop",     "Punk",  "Reggae",    "Rock",    "Soul", "Tango"};
constexpr std::array syllables{"a",  "ba", "ce", "da", "el",  "fo", "gu", "hi",  "in",  "jo",
                               "ka", "lo", "mi", "no", "or",  "pe", "ra", "so",  "ti",  "u",
                               "va", "wi", "xe", "yo", "qui", "za", "én", "grü", "ñol", "sø"};

// Keeps the names of artists, albums and titles apart.
enum class Name : uint32_t { title = 0, album = 0x40000000, artist = 0x80000000 };

std::string name_of(Name what, size_t number) {
    std::mt19937 random(static_cast<uint32_t>(what) + static_cast<uint32_t>(number));
    std::string name;
    for (size_t word = 0, words = 1 + random() % 3; word < words; ++word) {
        if (word > 0) {
            name += ' ';
        }
        for (size_t i = 0, count = 2 + random() % 2; i < count; ++i) {
            name += syllables[random() % syllables.size()];
        }
    }
    return name;
}

using Tags = std::vector<std::pair<std::string_view, std::string>>;

enum class Order { least_first, most_first };

void append(std::string &bytes, size_t value, int width, Order order) {
    for (int i = 0; i < width; ++i) {
        const int shift = 8 * (order == Order::least_first ? i : width - 1 - i);
        bytes += static_cast<char>(value >> shift);
    }
}

// One second of silence, 8 kHz, 16 bits.
constexpr std::string_view flac_head{"fLaC\0\0\0\x22\x10\x00\x10\x00\0\0\x0B\0\0\x0D\x01\xF4\x00"
                                     "\xF0\0\0\x1F\x40\x1E\xE0\x19\x36\x71\x60\x9C\x7D\x63\xCF"
                                     "\xE8\x9B\x92\x0A\xD3\x13",
                                     42};
constexpr std::string_view flac_frames{"\xFF\xF8\xC4\x08\x00\x04\0\0\0\xF8\x54"
                                       "\xFF\xF8\x74\x08\x01\x0F\x3F\x80\0\0\0\x48\xF3",
                                       24};

std::string flac(const Tags &tags) {
    std::string comment;
    append(comment, 6, 4, Order::least_first);
    comment += "vantro";
    append(comment, tags.size(), 4, Order::least_first);
    for (const auto &[key, value] : tags) {
        append(comment, key.size() + 1 + value.size(), 4, Order::least_first);
        comment.append(key).append("=").append(value);
    }
    std::string file(flac_head);
    file += '\x84'; // a comment, and the last block
    append(file, comment.size(), 3, Order::most_first);
    return file.append(comment).append(flac_frames);
}

std::string_view id3_frame(std::string_view key) {
    constexpr std::array<std::pair<std::string_view, std::string_view>, 6> frames{{
        {"TITLE", "TIT2"},
        {"ARTIST", "TPE1"},
        {"ALBUM", "TALB"},
        {"GENRE", "TCON"},
        {"DATE", "TDRC"},
        {"TRACKNUMBER", "TRCK"},
    }};
    for (const auto &[name, frame] : frames) {
        if (name == key) {
            return frame;
        }
    }
    fail(fmt::format("no frame for {}", key));
}

// Writes a number as four bytes of seven bits.
void append_synchsafe(std::string &bytes, size_t value) {
    for (int shift = 21; shift >= 0; shift -= 7) {
        bytes += static_cast<char>(value >> shift & 0x7F);
    }
}

std::string mp3(const Tags &tags) {
    std::string body;
    for (const auto &[key, value] : tags) {
        body += id3_frame(key);
        append_synchsafe(body, 1 + value.size());
        append(body, 0x000003, 3, Order::most_first); // no flags; UTF-8
        body += value;
    }
    std::string file{"ID3\x04\0\0", 6};
    append_synchsafe(file, body.size());
    file += body;
    for (int i = 0; i < 20; ++i) { // half a second in frames of 104 bytes
        file += "\xFF\xFB\x10\xC0";
        file.append(100, '\0');
    }
    return file;
}

} // namespace

std::string song_title(size_t song) {
    return name_of(Name::title, song);
}

void make_collection(const std::filesystem::path &directory, size_t count) {
    std::filesystem::path folder;
    std::string artist, album;
    for (size_t song = 0; song < count; ++song) {
        const size_t track = song % album_songs + 1;
        if (song % artist_songs == 0) {
            artist = name_of(Name::artist, song / artist_songs);
        }
        if (track == 1) {
            album = name_of(Name::album, song / album_songs);
            folder = directory / fmt::format("{:05} {}", song / artist_songs, artist) / album;
            std::error_code error;
            std::filesystem::create_directories(folder, error);
            if (error) {
                fail(fmt::format("cannot make {}: {}", folder.string(), error.message()));
            }
        }
        const size_t style = song / album_songs * 7;
        const Tags tags{{"TITLE", song_title(song)},
                        {"ARTIST", artist},
                        {"ALBUM", album},
                        {"GENRE", genres[style % genres.size()]},
                        {"DATE", fmt::to_string(1955 + style % 70)},
                        {"TRACKNUMBER", fmt::to_string(track)}};
        const bool even = song % 2 == 0;
        const std::filesystem::path path =
            folder / fmt::format("{:02} {}.{}", track, song_title(song), even ? "flac" : "mp3");
        std::ofstream file(path, std::ios::binary);
        file << (even ? flac(tags) : mp3(tags));
        file.close();
        if (!file) {
            fail("cannot write " + path.string());
        }
    }
}

} // namespace vantro::bench
