// The table of the commands that the service answers, one row for each command.
#ifndef VANTRO_SERVICE_REQUESTS_COMMAND_TABLE_H
#define VANTRO_SERVICE_REQUESTS_COMMAND_TABLE_H

#include <cstdint>

#include "service/requests/answers.h"
#include "service/requests/parse.h"

namespace vantro::service::requests {

// Whether the client must have a player open.
enum class Player { needed, optional };

// How long a command may take. `unless_session`: long only if the player has no session yet.
enum class Takes { moments, long_time, unless_session };

// One row of the table.
struct Answers::Command {
    uint16_t number;
    Form form;
    Player player;
    Takes takes;
    int (*carry_out)(Answers &, const Call &);

    static const Command all[];
};

} // namespace vantro::service::requests

#endif
