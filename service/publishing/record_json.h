// The records of the catalogue as the JSON texts in which events carry them.
//
// Whoever decodes them refuses a text of json_max bytes and more. Where a record's text would be as
// long, its longest texts are cut between characters until it is not. What names something, an id
// or a URI, is whole or left out: cut, it would name something else.
#ifndef VANTRO_SERVICE_PUBLISHING_RECORD_JSON_H
#define VANTRO_SERVICE_PUBLISHING_RECORD_JSON_H

#include <cstddef>
#include <string>

#include "service/catalogue/catalogue.h"

namespace vantro::service::publishing {

// One more than the longest text that is decoded.
inline constexpr size_t json_max = 2048;

// Longest id or URI that is not left out: beside one of each there is room for the rest.
inline constexpr size_t json_name_max = 512;

// A text that is empty is no member.
std::string json_of(const catalogue::Source &source);
std::string json_of(const catalogue::Node &node);
std::string json_of(const catalogue::SongMetadata &metadata);

} // namespace vantro::service::publishing

#endif
