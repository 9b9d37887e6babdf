// Formats that TagLib does not read: ADTS (.aac), AC-3, Matroska (.mka, .webm), CAF and AU. Only
// the headers of such a file are read.
#ifndef VANTRO_SERVICE_CATALOGUE_FILES_OTHER_FORMATS_H
#define VANTRO_SERVICE_CATALOGUE_FILES_OTHER_FORMATS_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "service/catalogue/files/file_stream.h"

namespace vantro::service::catalogue {

struct OtherAudio {
    const char *codec = ""; // empty if the format does not name it
    int64_t duration_ms = 0;
    int64_t sample_rate = 0;
    int64_t channels = 0;
    std::string title;
};

// True for a name with the ending of one of these formats.
bool has_other_name(std::string_view name);

// Nothing if the stream has none of these formats, or does not state its duration.
std::optional<OtherAudio> read_other(FileStream &stream);

} // namespace vantro::service::catalogue

#endif
