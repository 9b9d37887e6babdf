// What is told differently in every format: the codec, and the cover inside the file.
#ifndef VANTRO_SERVICE_CATALOGUE_FILES_FORMATS_H
#define VANTRO_SERVICE_CATALOGUE_FILES_FORMATS_H

#include <cstdint>
#include <string>

#include <taglib/tfile.h>
#include <taglib/tpropertymap.h>

namespace vantro::service::catalogue {

// "flac", "mp3"...; empty where it cannot be told.
const char *codec_of(const TagLib::File &file);

// What all tags of the file say together. Where two tags have the same key, the one counts that the
// format prefers. An ID3v1 tag counts only where nothing else has title, artist or album: its texts
// are cut short, and its genre is often none that anybody chose.
TagLib::PropertyMap properties_of(TagLib::File &file);

// About how long a tracker module plays, 0 for other formats. It holds notes and not sound:
// patterns of 64 rows, played at the speed that its header begins with.
int64_t module_ms(const TagLib::AudioProperties &audio);

// The bytes of the front cover, else of the first picture; empty where there is none.
std::string picture_in(TagLib::File &file);

} // namespace vantro::service::catalogue

#endif
