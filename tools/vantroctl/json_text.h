/** What the tool says with --json: one object a run, on one line. */
#ifndef VANTRO_TOOLS_VANTROCTL_JSON_TEXT_H
#define VANTRO_TOOLS_VANTROCTL_JSON_TEXT_H

#include <string>

#include "tools/vantroctl/commands.h"
#include "tools/vantroctl/failure.h"
#include "tools/vantroctl/status_view.h"

namespace vantro {

/**
 * {"ok":true,"player":...,"state":...,"rate":...,"repeat":...,"shuffle":...,"position_ms":...,
 * "track":{...},"session":{...}}; track and session are null where there is none, and so is a
 * text that is not known.
 */
std::string json_status(const PlayerStatus &status);

/** {"ok":true,"player":...,"command":...} with what was set, where the command sets something. */
std::string json_done(const std::string &player, const Done &done);

/** {"ok":false,"error":...,"code":...}: the line without the program's name, and the exit code. */
std::string json_failure(const Failure &failure);

} // namespace vantro

#endif
