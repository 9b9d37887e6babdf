// The tool's queries about the catalogue and track sessions, and their errors.
#ifndef VANTRO_TOOLS_VANTROCTL_SERVICE_CATALOGUE_QUERIES_H
#define VANTRO_TOOLS_VANTROCTL_SERVICE_CATALOGUE_QUERIES_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tools/vantroctl/model/nodes.h"

namespace vantro::ctl {

class Client;

std::vector<Source> get_sources(Client &client);

// One page of a list: at most `count` nodes from `offset` on; fewer only if the list ends.
// Here and below: if the source, the node or the session does not exist, or has no such song, the
// Failure says so and its outcome is not_found.
std::vector<Node> browse_page(Client &client, const Place &place, int32_t offset, int32_t count);

// @param filter "" for none.
std::vector<Node> search_page(Client &client, int32_t source, const std::string &filter,
                              const std::string &term, int32_t offset, int32_t count);

std::vector<Node> tracks_page(Client &client, uint64_t session, int32_t offset, int32_t count);

// Makes the service scan the folders of a place's songs.
void rescan_place(Client &client, const Place &place);

// The value of each key, in the order of the keys; nothing if the key has no value.
Values get_values(Client &client, const Place &place, const std::vector<std::string> &keys);

// Every key of <vantro/catalogue.h> that has a value.
Values get_known_values(Client &client, const Place &place);

// A track session to be made.
struct NewSession {
    std::string verb; // The verb that makes the session.
    std::vector<Place> places;
    int32_t index = 0;                           // Of the song to begin with, from 0.
    int32_t start = 0;                           // VANTRO_TRKSESSION_*.
    std::optional<int64_t> found = std::nullopt; // Songs found, if the places come from a search.
};

struct LoadedSession {
    uint64_t id = 0;
    // A source that was being scanned: songs that it finds later are not in the session.
    std::optional<int32_t> scanning;
};

// Makes a session of the songs of the places, or adds them to the current one. Ends the previous
// session, since a player keeps only a few.
LoadedSession make_session(Client &client, const NewSession &wanted);

// Ends the current session.
void end_session(Client &client, const std::string &verb, uint64_t session);

// Plays; if the player has no session, plays all songs.
void play(Client &client);

// Goes to a track of the current session, from 0.
void jump_to(Client &client, int32_t index);

} // namespace vantro::ctl

#endif
