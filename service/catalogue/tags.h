// What one audio file says of itself.
#ifndef VANTRO_SERVICE_CATALOGUE_TAGS_H
#define VANTRO_SERVICE_CATALOGUE_TAGS_H

#include <string>

#include "service/catalogue/track.h"

namespace vantro {

// True for a name that ends as audio files do. Others are no business of the scanner.
bool has_audio_name(const std::string &path);

// Fills the texts, numbers and the duration of `track` from the file at `path`, which must be a
// regular file. Returns nothing, or why the file cannot be played.
const char *read_tags(const std::string &path, Track &track);

} // namespace vantro

#endif
