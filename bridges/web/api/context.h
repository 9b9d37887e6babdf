// The data for a handler of the API.
#ifndef VANTRO_BRIDGES_WEB_API_CONTEXT_H
#define VANTRO_BRIDGES_WEB_API_CONTEXT_H

#include "bridges/web/http.h"
#include "bridges/web/pairing.h"
#include "bridges/web/player_link.h"
#include "bridges/web/players.h"

namespace vantro::web {

struct Context {
    const Request &request;
    Players &players;
    Pairing &pairing;
    PlayerLink *link = nullptr; // The player that the path names, if it names one.
    bool trusted = false;       // The client is on this machine, or was paired.

    Player &player() const { return link->player(); }
};

// Each answers one request, and throws ApiError if it cannot.
using Handler = Response (*)(Context &context);

// general.cpp
Response show_service(Context &context);
Response show_pairing(Context &context);
Response pair(Context &context);
Response list_players(Context &context);
Response show_player(Context &context);
Response follow_player(Context &context);

// commands.cpp
Response play(Context &context);
Response pause(Context &context);
Response toggle(Context &context);
Response stop(Context &context);
Response next(Context &context);
Response previous(Context &context);
Response jump(Context &context);
Response seek(Context &context);
Response set_volume(Context &context);
Response set_modes(Context &context);
Response rescan(Context &context);

// queue.cpp
Response list_queue(Context &context);
Response load_queue(Context &context);
Response add_to_queue(Context &context);
Response insert_into_queue(Context &context);
Response move_in_queue(Context &context);
Response remove_from_queue(Context &context);
Response clear_queue(Context &context);

// playlists.cpp
Response list_playlists(Context &context);
Response save_playlist(Context &context);
Response delete_playlist(Context &context);

// browsing.cpp
Response list_sources(Context &context);
Response browse(Context &context);
Response search(Context &context);
Response show_cover(Context &context);

} // namespace vantro::web

#endif
