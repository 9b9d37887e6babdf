// Every command by its name.
#include <algorithm>
#include <iterator>

#include "bridges/mpd/commands/handlers.h"

namespace vantro::mpd {
namespace {

// In the order of their names. Each with the least and the largest number of its arguments.
constexpr Command commands[] = {
    {"add", 1, 2, run_add, true},
    {"addid", 1, 2, run_addid, true},
    {"albumart", 2, 2, run_cover},
    {"binarylimit", 1, 1, run_binarylimit},
    {"clear", 0, 0, run_clear},
    {"clearerror", 0, 0, run_clearerror},
    {"close", 0, 0, run_close},
    {"commands", 0, 0, run_commands},
    {"consume", 1, 1, run_consume},
    {"count", 0, any_number, run_count},
    {"crossfade", 1, 1, run_crossfade},
    {"currentsong", 0, 0, run_currentsong},
    {"decoders", 0, 0, run_nothing},
    {"delete", 1, 1, run_delete, true},
    {"deleteid", 1, 1, run_deleteid, true},
    {"disableoutput", 1, 1, run_disableoutput},
    {"enableoutput", 1, 1, run_enableoutput},
    {"find", 1, any_number, run_find},
    {"findadd", 1, any_number, run_findadd},
    {"getvol", 0, 0, run_getvol},
    {"idle", 0, any_number, run_idle},
    {"kill", 0, any_number, run_kill},
    {"list", 1, any_number, run_list},
    {"listall", 0, 1, run_listall},
    {"listallinfo", 0, 1, run_listallinfo},
    {"listpartitions", 0, 0, run_listpartitions},
    {"listplaylist", 1, 1, run_listplaylist},
    {"listplaylistinfo", 1, 1, run_listplaylistinfo},
    {"listplaylists", 0, 0, run_listplaylists},
    {"load", 1, 3, run_load},
    {"lsinfo", 0, 1, run_lsinfo},
    {"move", 2, 2, run_move, true},
    {"moveid", 2, 2, run_moveid, true},
    {"next", 0, 0, run_next},
    {"notcommands", 0, 0, run_nothing},
    {"outputs", 0, 0, run_outputs},
    {"partition", 1, 1, run_partition},
    {"password", 1, 1, run_password},
    {"pause", 0, 1, run_pause},
    {"ping", 0, 0, run_nothing},
    {"play", 0, 1, run_play},
    {"playid", 0, 1, run_playid},
    {"playlist", 0, 0, run_playlist},
    {"playlistadd", 2, 3, run_read_only},
    {"playlistclear", 1, 1, run_read_only},
    {"playlistdelete", 2, 2, run_read_only},
    {"playlistfind", 1, any_number, run_playlistfind},
    {"playlistid", 0, 1, run_playlistid},
    {"playlistinfo", 0, 1, run_playlistinfo},
    {"playlistmove", 3, 3, run_read_only},
    {"playlistsearch", 1, any_number, run_playlistsearch},
    {"plchanges", 1, 2, run_plchanges},
    {"plchangesposid", 1, 2, run_plchangesposid},
    {"previous", 0, 0, run_previous},
    {"random", 1, 1, run_random},
    {"readpicture", 2, 2, run_cover},
    {"rename", 2, 2, run_read_only},
    {"repeat", 1, 1, run_repeat},
    {"replay_gain_mode", 1, 1, run_replay_gain},
    {"replay_gain_status", 0, 0, run_replay_gain},
    {"rescan", 0, 1, run_update},
    {"rm", 1, 1, run_rm},
    {"save", 1, 2, run_save},
    {"search", 1, any_number, run_search},
    {"searchadd", 1, any_number, run_searchadd},
    {"searchaddpl", 2, any_number, run_read_only},
    {"searchcount", 0, any_number, run_searchcount},
    {"seek", 2, 2, run_seek},
    {"seekcur", 1, 1, run_seekcur},
    {"seekid", 2, 2, run_seekid},
    {"setvol", 1, 1, run_setvol},
    {"shuffle", 0, 1, run_shuffle, true},
    {"single", 1, 1, run_single},
    {"stats", 0, 0, run_stats},
    {"status", 0, 0, run_status},
    {"stop", 0, 0, run_stop},
    {"swap", 2, 2, run_swap, true},
    {"swapid", 2, 2, run_swapid, true},
    {"tagtypes", 0, any_number, run_tagtypes},
    {"toggleoutput", 1, 1, run_toggleoutput},
    {"update", 0, 1, run_update},
    {"urlhandlers", 0, 0, run_nothing},
    {"volume", 1, 1, run_volume},
};

constexpr bool before(const Command &one, const Command &other) {
    return one.name < other.name;
}

static_assert(std::is_sorted(std::begin(commands), std::end(commands), before));

} // namespace

const Command *find_command(std::string_view name) {
    const auto *const found = std::lower_bound(
        std::begin(commands), std::end(commands), name,
        [](const Command &command, std::string_view wanted) { return command.name < wanted; });
    return found != std::end(commands) && found->name == name ? found : nullptr;
}

std::span<const Command> all_commands() {
    return commands;
}

} // namespace vantro::mpd
