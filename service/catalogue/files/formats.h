// The data that each format stores differently: the codec, the tags, and the cover in the file.
#ifndef VANTRO_SERVICE_CATALOGUE_FILES_FORMATS_H
#define VANTRO_SERVICE_CATALOGUE_FILES_FORMATS_H

#include <cstdint>
#include <string>

#include <taglib/tfile.h>
#include <taglib/tpropertymap.h>

namespace vantro::service::catalogue {

// "flac", "mp3"...; empty if the codec is not known.
const char *codec_of(const TagLib::File &file);

// The values of all tags of the file together. If two tags have the same key, the tag that the
// format prefers counts. An ID3v1 tag counts only if no other tag has title, artist or album: its
// texts are cut short, and its genre is often only a default.
TagLib::PropertyMap properties_of(TagLib::File &file);

// The estimated duration of a tracker module; 0 for other formats. A module holds notes, not sound:
// its length is estimated from its patterns of 64 rows at the speed in its header.
int64_t module_ms(const TagLib::AudioProperties &audio);

// The bytes of the front cover, else of the first picture; empty if there is none.
std::string picture_in(TagLib::File &file);

} // namespace vantro::service::catalogue

#endif
