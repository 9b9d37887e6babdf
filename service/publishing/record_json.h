// The records of the catalogue as JSON texts for events.
//
// Decoders refuse a text of json_max bytes or more. If a record's text would be that long, its
// longest members are cut at character boundaries until it fits. An id or a URI is either whole or
// left out: if it were cut, it would name something else.
#ifndef VANTRO_SERVICE_PUBLISHING_RECORD_JSON_H
#define VANTRO_SERVICE_PUBLISHING_RECORD_JSON_H

#include <cstddef>
#include <string>

#include "service/catalogue/catalogue.h"

namespace vantro::service::publishing {

// One more than the longest text that is decoded.
inline constexpr size_t json_max = 2048;

// Longest id or URI that is not left out: with one of each, there is still room for the rest.
inline constexpr size_t json_name_max = 512;

// Empty texts are left out.
std::string json_of(const catalogue::Source &source);
std::string json_of(const catalogue::Node &node);
std::string json_of(const catalogue::SongMetadata &metadata);

} // namespace vantro::service::publishing

#endif
