// The output with --json: one object a run, on one line. docs/vantroctl.md describes every member;
// an unknown text is null.
#ifndef VANTRO_TOOLS_VANTROCTL_OUTPUT_JSON_OUTPUT_H
#define VANTRO_TOOLS_VANTROCTL_OUTPUT_JSON_OUTPUT_H

#include <optional>
#include <string>
#include <vector>

#include "tools/vantroctl/failure.h"
#include "tools/vantroctl/model/command_result.h"
#include "tools/vantroctl/model/identity.h"
#include "tools/vantroctl/model/nodes.h"
#include "tools/vantroctl/model/player_status.h"

namespace vantro::ctl {

std::string json_status(const PlayerStatus &status);

// Only the track.
std::string json_current(const PlayerStatus &status);

std::string json_players(const std::vector<PlayerStatus> &players);

// With the new value, if the command sets one.
std::string json_done(const std::string &player, const CommandResult &done);

std::string json_sources(const std::string &player, const std::vector<Source> &sources);

// Includes the nodes below nodes, if they were fetched.
std::string json_nodes(const std::string &player, const std::string &command,
                       const std::vector<Node> &nodes);

// @param first   index of the first one in the session.
// @param current index of the current one, if there is one.
std::string json_tracks(const std::string &player, const SessionStatus &session,
                        std::optional<int32_t> current, int32_t first,
                        const std::vector<Node> &tracks);

// @param tracks the following track, or empty.
std::string json_queued(const std::string &player, int32_t index, const std::vector<Node> &tracks);

std::string json_values(const std::string &player, const Place &place, const Values &values);

std::string json_identity(const Identity &identity);

// Includes the error and the code of the first bad finding, if there is one.
std::string json_findings(const std::vector<Finding> &findings);

// {"ok":false,"error":...,"code":...}: the line without the program's name, and the exit code.
std::string json_failure(const Failure &failure);

} // namespace vantro::ctl

#endif
