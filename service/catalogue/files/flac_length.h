// The length of a FLAC file whose header does not state it, for example one recorded from a pipe.
#ifndef VANTRO_SERVICE_CATALOGUE_FILES_FLAC_LENGTH_H
#define VANTRO_SERVICE_CATALOGUE_FILES_FLAC_LENGTH_H

#include <cstdint>

#include "service/catalogue/files/file_stream.h"

namespace vantro::service::catalogue {

// Samples up to the end of the last whole frame; 0 if no frame is found.
int64_t flac_samples(FileStream &stream);

} // namespace vantro::service::catalogue

#endif
