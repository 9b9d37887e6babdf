// A generated collection of music: small tagged files of silence.
#ifndef VANTRO_BENCH_COLLECTION_H
#define VANTRO_BENCH_COLLECTION_H

#include <cstddef>
#include <filesystem>
#include <string>

namespace vantro::bench {

// Writes that many songs, FLAC and MP3 in turn, ten for each album and five albums for each artist.
// The same count gives the same songs every time. Fails the run if they cannot be written.
void make_collection(const std::filesystem::path &directory, size_t count);

// The title of a song: one to three words.
std::string song_title(size_t song);

} // namespace vantro::bench

#endif
