// Music made by the test: real files of silence.
#ifndef VANTRO_TESTS_SUPPORT_MUSIC_H
#define VANTRO_TESTS_SUPPORT_MUSIC_H

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include <fmt/format.h>
#include <gtest/gtest.h>

namespace vantro::test {

// Encodes silence as Ogg Vorbis or FLAC, as the name ends. Tags are KEY=value.
inline void make_music(const std::filesystem::path &file, int ms,
                       const std::vector<std::string> &tags = {}) {
    std::filesystem::create_directories(file.parent_path());
    const bool ogg = file.extension() == ".ogg";
    std::string command = fmt::format(
        "head -c {} /dev/zero | {}", ms * 16,
        ogg ? "oggenc -Q -r -B16 -C1 -R8000"
            : "flac -s --force-raw-format --endian=little --sign=signed --channels=1 --bps=16 "
              "--sample-rate=8000");
    for (const std::string &tag : tags) {
        command += fmt::format(" {} '{}'", ogg ? "-c" : "-T", tag);
    }
    command += fmt::format(" -o '{}' -", file.native());
    ASSERT_EQ(std::system(command.c_str()), 0) << command;
}

inline void write_file(const std::filesystem::path &file, const std::string &bytes) {
    std::ofstream(file, std::ios::binary) << bytes;
}

} // namespace vantro::test

#endif
