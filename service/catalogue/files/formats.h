// What is told differently in every format: the codec, and the cover inside the file.
#ifndef VANTRO_SERVICE_CATALOGUE_FILES_FORMATS_H
#define VANTRO_SERVICE_CATALOGUE_FILES_FORMATS_H

#include <string>

#include <taglib/tfile.h>

namespace vantro::service::catalogue {

// "flac", "mp3"...; empty where it cannot be told.
const char *codec_of(const TagLib::File &file);

// The bytes of the front cover, else of the first picture; empty where there is none.
std::string picture_in(TagLib::File &file);

} // namespace vantro::service::catalogue

#endif
