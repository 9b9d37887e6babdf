// A command of the protocol, and the data that it uses.
#ifndef VANTRO_BRIDGES_MPD_COMMAND_H
#define VANTRO_BRIDGES_MPD_COMMAND_H

#include <cstddef>
#include <map>
#include <memory>
#include <span>
#include <string>
#include <string_view>

#include "bridges/mpd/permissions.h"
#include "bridges/mpd/reply.h"

namespace vantro::mpd {

class Catalogue;
class Client;
class Partition;
class Partitions;

// All connected clients, by their descriptors.
using Clients = std::map<int, Client>;

struct Context {
    Client &client;
    Clients &clients;
    Partition &partition;
    Partitions &partitions;
    Catalogue &catalogue;
    Reply reply;
};

// An answer that is made piece by piece, as the client reads it.
class Task {
  public:
    virtual ~Task() = default;

    // Makes the next piece. It takes a few milliseconds at most, since other clients wait.
    // @return whether the answer is complete. @throws Ack.
    virtual bool step(Context &context) = 0;
};

using TaskPtr = std::unique_ptr<Task>;
using Arguments = std::span<const std::string>;

// @return the remaining work, or nothing.
using Handler = TaskPtr (*)(Context &context, Arguments arguments);

// No limit for the number of arguments.
constexpr size_t any_number = SIZE_MAX;

struct Command {
    std::string_view name;
    Permission permission; // The permission that the command needs.
    size_t least;          // Numbers of arguments.
    size_t most;
    Handler handler;
    bool drafts = false; // It may leave changes of the queue to Partition::commit().
};

// The command of that name, or NULL.
const Command *find_command(std::string_view name);

// All commands, by their names.
std::span<const Command> all_commands();

} // namespace vantro::mpd

#endif
