// Catalogue and track sessions as the tool asks for them, and why the service does not give them.
#ifndef VANTRO_TOOLS_VANTROCTL_SERVICE_CATALOGUE_QUERIES_H
#define VANTRO_TOOLS_VANTROCTL_SERVICE_CATALOGUE_QUERIES_H

#include <cstdint>
#include <string>
#include <vector>

#include "tools/vantroctl/model/nodes.h"

namespace vantro::ctl {

class Client;

std::vector<Source> get_sources(Client &client);

// One page of a list: at most `count` nodes from `offset` on; fewer only where the list ends.
// Here and below, where the source, the node or the session does not exist, or has no such song,
// the Failure says so and its outcome is not_found.
std::vector<Node> browse_page(Client &client, const Place &place, int32_t offset, int32_t count);

// @param filter "" for none.
std::vector<Node> search_page(Client &client, int32_t source, const std::string &filter,
                              const std::string &term, int32_t offset, int32_t count);

std::vector<Node> tracks_page(Client &client, uint64_t session, int32_t offset, int32_t count);

// The value of each key, in their order; none where the key has none.
Values get_values(Client &client, const Place &place, const std::vector<std::string> &keys);

// Every key of <vantro/catalogue.h> that has a value.
Values get_known_values(Client &client, const Place &place);

struct LoadedSession {
    uint64_t id = 0;
    bool scanning = false; // The source was being scanned: songs found later are not in it.
};

// Makes the node's songs the player's session and ends the one before it, since a player keeps
// only so many.
// @param index the song to begin with, from 0.
LoadedSession load_node(Client &client, const Place &place, int32_t index, bool play);

// Plays; where the player has no session, every song there is.
void play(Client &client);

// Goes to a track of the current session, from 0.
void jump_to(Client &client, int32_t index);

} // namespace vantro::ctl

#endif
