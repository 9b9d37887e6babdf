// One piece of music, as the scanner found it.
#ifndef VANTRO_SERVICE_CATALOGUE_TRACK_H
#define VANTRO_SERVICE_CATALOGUE_TRACK_H

#include <cstdint>
#include <string>

namespace vantro {

// Every text is valid UTF-8 without NUL and short enough that one track fits one reply; empty
// where the file says nothing. `path` alone is the file's own name, byte for byte.
struct Track {
    std::string id; // "SOURCE/path below that music directory"; stable from run to run
    std::string path;
    std::string title;
    std::string artist;
    std::string album;
    std::string genre;
    std::string year;
    int32_t source = 0; // 1 for the first music directory
    int32_t disc = 0;   // 0 where not known
    int32_t number = 0; // 0 where not known
    int32_t duration_ms = 0;
};

} // namespace vantro

#endif
