// Pictures of songs, albums and other nodes.
#ifndef VANTRO_BRIDGES_WEB_COVER_H
#define VANTRO_BRIDGES_WEB_COVER_H

#include <string_view>

#include "bridges/web/http.h"

namespace vantro::web {

// The picture that a "file:" URI names. @throws ApiError if the file is not a picture, or cannot be
// read.
Response cover_response(std::string_view uri, std::string_view known_etag);

} // namespace vantro::web

#endif
