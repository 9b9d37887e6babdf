// The service's records in the API's form.
#ifndef VANTRO_BRIDGES_WEB_RECORDS_JSON_H
#define VANTRO_BRIDGES_WEB_RECORDS_JSON_H

#include <cstdint>
#include <string>

#include <vantro/vantro.hpp>

#include "bridges/web/api_error.h"
#include "bridges/web/json_writer.h"

namespace vantro::web {

// Queries the complete state of the player. @throws ApiError.
// @param error VANTRO_ERROR_* of the last track that could not be played; 0: none.
std::string player_state_json(const std::string &name, Player &player, int32_t error);

// The state of a player that cannot be queried.
std::string absent_player_json(const std::string &name, const ApiError &why);

void write_error(JsonWriter &json, const char *code, std::string_view message);

// Writes one object. @param metadata may be NULL.
void write_node(JsonWriter &json, const MediaNode &node, const Metadata *metadata);
void write_source(JsonWriter &json, const MediaSource &source);

const char *state_name(int32_t state);
const char *repeat_name(int32_t repeat);

} // namespace vantro::web

#endif
