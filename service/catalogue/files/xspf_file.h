// Playlists in XML: .xspf.
#ifndef VANTRO_SERVICE_CATALOGUE_FILES_XSPF_FILE_H
#define VANTRO_SERVICE_CATALOGUE_FILES_XSPF_FILE_H

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "service/error.h"

namespace vantro::service::catalogue {

// Appends the first location of each track, at most `most` of them, in the form of resolve_entry().
// Returns an error if the bytes are not a playlist. A document that declares entities is refused:
// players do not write them, and entities that name each other can fill the memory.
std::optional<Error> parse_xspf(std::string_view bytes, size_t most,
                                std::vector<std::string> &entries);

} // namespace vantro::service::catalogue

#endif
