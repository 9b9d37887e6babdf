// Every command by its name.
#include <algorithm>
#include <iterator>

#include "bridges/mpd/commands/handlers.h"

namespace vantro::mpd {
namespace {

using may = Permission;

// In the order of the names, each with the smallest and the largest number of its arguments.
constexpr Command commands[] = {
    {"add", may::add, 1, 2, run_add, true},
    {"addid", may::add, 1, 2, run_addid, true},
    {"addtagid", may::nobody, 3, 3, run_songs_own},
    {"albumart", may::read, 2, 2, run_albumart},
    {"binarylimit", may::none, 1, 1, run_binarylimit},
    {"channels", may::read, 0, 0, run_channels},
    {"clear", may::player, 0, 0, run_clear},
    {"clearerror", may::player, 0, 0, run_clearerror},
    {"cleartagid", may::nobody, 1, 2, run_songs_own},
    {"close", may::none, 0, 0, run_close},
    {"commands", may::none, 0, 0, run_commands},
    {"config", may::nobody, 0, 0, run_config},
    {"consume", may::player, 1, 1, run_consume},
    {"count", may::read, 0, any_number, run_count},
    {"crossfade", may::player, 1, 1, run_crossfade},
    {"currentsong", may::read, 0, 0, run_currentsong},
    {"decoders", may::read, 0, 0, run_nothing},
    {"delete", may::player, 1, 1, run_delete, true},
    {"deleteid", may::player, 1, 1, run_deleteid, true},
    {"delpartition", may::nobody, 1, 1, run_new_partition},
    {"disableoutput", may::admin, 1, 1, run_disableoutput},
    {"enableoutput", may::admin, 1, 1, run_enableoutput},
    {"find", may::read, 1, any_number, run_find},
    {"findadd", may::add, 1, any_number, run_findadd},
    {"getfingerprint", may::nobody, 1, 1, run_fingerprint},
    {"getvol", may::read, 0, 0, run_getvol},
    {"idle", may::read, 0, any_number, run_idle},
    {"kill", may::nobody, 0, any_number, run_kill},
    {"list", may::read, 1, any_number, run_list},
    {"listall", may::read, 0, 1, run_listall},
    {"listallinfo", may::read, 0, 1, run_listallinfo},
    {"listfiles", may::nobody, 0, 1, run_listfiles},
    {"listmounts", may::read, 0, 0, run_listmounts},
    {"listneighbors", may::read, 0, 0, run_nothing},
    {"listpartitions", may::read, 0, 0, run_listpartitions},
    {"listplaylist", may::read, 1, 1, run_listplaylist},
    {"listplaylistinfo", may::read, 1, 1, run_listplaylistinfo},
    {"listplaylists", may::read, 0, 0, run_listplaylists},
    {"load", may::add, 1, 3, run_load},
    {"lsinfo", may::read, 0, 1, run_lsinfo},
    {"mixrampdb", may::nobody, 1, 1, run_mixramp},
    {"mixrampdelay", may::nobody, 1, 1, run_mixramp},
    {"mount", may::nobody, 0, 2, run_mount},
    {"move", may::player, 2, 2, run_move, true},
    {"moveid", may::player, 2, 2, run_moveid, true},
    {"moveoutput", may::nobody, 1, 1, run_new_partition},
    {"newpartition", may::nobody, 1, 1, run_new_partition},
    {"next", may::player, 0, 0, run_next},
    {"notcommands", may::none, 0, 0, run_notcommands},
    {"outputs", may::read, 0, 0, run_outputs},
    {"outputset", may::nobody, 3, 3, run_outputset},
    {"partition", may::read, 1, 1, run_partition},
    {"password", may::none, 1, 1, run_password},
    {"pause", may::player, 0, 1, run_pause},
    {"ping", may::none, 0, 0, run_nothing},
    {"play", may::player, 0, 1, run_play},
    {"playid", may::player, 0, 1, run_playid},
    {"playlist", may::read, 0, 0, run_playlist},
    {"playlistadd", may::nobody, 2, 3, run_read_only},
    {"playlistclear", may::nobody, 1, 1, run_read_only},
    {"playlistdelete", may::nobody, 2, 2, run_read_only},
    {"playlistfind", may::read, 1, any_number, run_playlistfind},
    {"playlistid", may::read, 0, 1, run_playlistid},
    {"playlistinfo", may::read, 0, 1, run_playlistinfo},
    {"playlistmove", may::nobody, 3, 3, run_read_only},
    {"playlistsearch", may::read, 1, any_number, run_playlistsearch},
    {"plchanges", may::read, 1, 2, run_plchanges},
    {"plchangesposid", may::read, 1, 2, run_plchangesposid},
    {"previous", may::player, 0, 0, run_previous},
    {"prio", may::nobody, 2, any_number, run_prio},
    {"prioid", may::nobody, 2, any_number, run_prio},
    {"random", may::player, 1, 1, run_random},
    {"rangeid", may::nobody, 2, 2, run_songs_own},
    {"readcomments", may::read, 1, 1, run_readcomments},
    {"readmessages", may::read, 0, 0, run_readmessages},
    {"readpicture", may::read, 2, 2, run_readpicture},
    {"rename", may::nobody, 2, 2, run_read_only},
    {"repeat", may::player, 1, 1, run_repeat},
    {"replay_gain_mode", may::nobody, 1, 1, run_replay_gain},
    {"replay_gain_status", may::nobody, 0, 0, run_replay_gain},
    {"rescan", may::control, 0, 1, run_update},
    {"rm", may::control, 1, 1, run_rm},
    {"save", may::control, 1, 2, run_save},
    {"search", may::read, 1, any_number, run_search},
    {"searchadd", may::add, 1, any_number, run_searchadd},
    {"searchaddpl", may::nobody, 2, any_number, run_read_only},
    {"searchcount", may::read, 0, any_number, run_searchcount},
    {"seek", may::player, 2, 2, run_seek},
    {"seekcur", may::player, 1, 1, run_seekcur},
    {"seekid", may::player, 2, 2, run_seekid},
    {"sendmessage", may::control, 2, 2, run_sendmessage},
    {"setvol", may::player, 1, 1, run_setvol},
    {"shuffle", may::player, 0, 1, run_shuffle, true},
    {"single", may::player, 1, 1, run_single},
    {"stats", may::read, 0, 0, run_stats},
    {"status", may::read, 0, 0, run_status},
    {"sticker", may::nobody, 3, any_number, run_sticker},
    {"stop", may::player, 0, 0, run_stop},
    {"subscribe", may::read, 1, 1, run_subscribe},
    {"swap", may::player, 2, 2, run_swap, true},
    {"swapid", may::player, 2, 2, run_swapid, true},
    {"tagtypes", may::none, 0, any_number, run_tagtypes},
    {"toggleoutput", may::admin, 1, 1, run_toggleoutput},
    {"unmount", may::nobody, 1, 1, run_mount},
    {"unsubscribe", may::read, 1, 1, run_unsubscribe},
    {"update", may::control, 0, 1, run_update},
    {"urlhandlers", may::read, 0, 0, run_nothing},
    {"volume", may::player, 1, 1, run_volume},
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
