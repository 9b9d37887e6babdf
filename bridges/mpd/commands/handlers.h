// The handlers of all commands, by file.
#ifndef VANTRO_BRIDGES_MPD_COMMANDS_HANDLERS_H
#define VANTRO_BRIDGES_MPD_COMMANDS_HANDLERS_H

#include "bridges/mpd/command.h"

namespace vantro::mpd {

#define VANTRO_MPD_HANDLER(name) TaskPtr name(Context &context, Arguments arguments)

// commands/client.cpp: the client and the bridge.
VANTRO_MPD_HANDLER(run_binarylimit);
VANTRO_MPD_HANDLER(run_close);
VANTRO_MPD_HANDLER(run_commands);
VANTRO_MPD_HANDLER(run_idle);
VANTRO_MPD_HANDLER(run_notcommands);
VANTRO_MPD_HANDLER(run_nothing);
VANTRO_MPD_HANDLER(run_password);
VANTRO_MPD_HANDLER(run_tagtypes);

// commands/status.cpp
VANTRO_MPD_HANDLER(run_clearerror);
VANTRO_MPD_HANDLER(run_currentsong);
VANTRO_MPD_HANDLER(run_stats);
VANTRO_MPD_HANDLER(run_status);

// commands/playback.cpp
VANTRO_MPD_HANDLER(run_next);
VANTRO_MPD_HANDLER(run_pause);
VANTRO_MPD_HANDLER(run_play);
VANTRO_MPD_HANDLER(run_playid);
VANTRO_MPD_HANDLER(run_previous);
VANTRO_MPD_HANDLER(run_seek);
VANTRO_MPD_HANDLER(run_seekcur);
VANTRO_MPD_HANDLER(run_seekid);
VANTRO_MPD_HANDLER(run_stop);

// commands/options.cpp
VANTRO_MPD_HANDLER(run_consume);
VANTRO_MPD_HANDLER(run_crossfade);
VANTRO_MPD_HANDLER(run_getvol);
VANTRO_MPD_HANDLER(run_random);
VANTRO_MPD_HANDLER(run_repeat);
VANTRO_MPD_HANDLER(run_replay_gain);
VANTRO_MPD_HANDLER(run_setvol);
VANTRO_MPD_HANDLER(run_single);
VANTRO_MPD_HANDLER(run_volume);

// commands/outputs.cpp
VANTRO_MPD_HANDLER(run_disableoutput);
VANTRO_MPD_HANDLER(run_enableoutput);
VANTRO_MPD_HANDLER(run_outputs);
VANTRO_MPD_HANDLER(run_toggleoutput);

// commands/queue_lists.cpp
VANTRO_MPD_HANDLER(run_playlist);
VANTRO_MPD_HANDLER(run_playlistfind);
VANTRO_MPD_HANDLER(run_playlistid);
VANTRO_MPD_HANDLER(run_playlistinfo);
VANTRO_MPD_HANDLER(run_playlistsearch);
VANTRO_MPD_HANDLER(run_plchanges);
VANTRO_MPD_HANDLER(run_plchangesposid);

// commands/queue_changes.cpp
VANTRO_MPD_HANDLER(run_add);
VANTRO_MPD_HANDLER(run_addid);
VANTRO_MPD_HANDLER(run_clear);
VANTRO_MPD_HANDLER(run_delete);
VANTRO_MPD_HANDLER(run_deleteid);
VANTRO_MPD_HANDLER(run_move);
VANTRO_MPD_HANDLER(run_moveid);
VANTRO_MPD_HANDLER(run_prio);
VANTRO_MPD_HANDLER(run_shuffle);
VANTRO_MPD_HANDLER(run_swap);
VANTRO_MPD_HANDLER(run_swapid);

// commands/browsing.cpp
VANTRO_MPD_HANDLER(run_listall);
VANTRO_MPD_HANDLER(run_listallinfo);
VANTRO_MPD_HANDLER(run_listmounts);
VANTRO_MPD_HANDLER(run_lsinfo);

// commands/searching.cpp
VANTRO_MPD_HANDLER(run_find);
VANTRO_MPD_HANDLER(run_findadd);
VANTRO_MPD_HANDLER(run_search);
VANTRO_MPD_HANDLER(run_searchadd);
TaskPtr list_files(Arguments filter); // of run_list()

// commands/summaries.cpp
VANTRO_MPD_HANDLER(run_count);
VANTRO_MPD_HANDLER(run_list);
VANTRO_MPD_HANDLER(run_searchcount);

// commands/updating.cpp
VANTRO_MPD_HANDLER(run_update);

// commands/covers.cpp
VANTRO_MPD_HANDLER(run_albumart);
VANTRO_MPD_HANDLER(run_readpicture);

// commands/comments.cpp
VANTRO_MPD_HANDLER(run_readcomments);

// commands/messages.cpp
VANTRO_MPD_HANDLER(run_channels);
VANTRO_MPD_HANDLER(run_readmessages);
VANTRO_MPD_HANDLER(run_sendmessage);
VANTRO_MPD_HANDLER(run_subscribe);
VANTRO_MPD_HANDLER(run_unsubscribe);

// commands/playlists.cpp
VANTRO_MPD_HANDLER(run_listplaylist);
VANTRO_MPD_HANDLER(run_listplaylistinfo);
VANTRO_MPD_HANDLER(run_listplaylists);
VANTRO_MPD_HANDLER(run_load);
VANTRO_MPD_HANDLER(run_read_only);
VANTRO_MPD_HANDLER(run_rm);
VANTRO_MPD_HANDLER(run_save);

// commands/refusals.cpp
VANTRO_MPD_HANDLER(run_config);
VANTRO_MPD_HANDLER(run_fingerprint);
VANTRO_MPD_HANDLER(run_kill);
VANTRO_MPD_HANDLER(run_listfiles);
VANTRO_MPD_HANDLER(run_mixramp);
VANTRO_MPD_HANDLER(run_mount);
VANTRO_MPD_HANDLER(run_new_partition);
VANTRO_MPD_HANDLER(run_outputset);
VANTRO_MPD_HANDLER(run_songs_own);
VANTRO_MPD_HANDLER(run_sticker);

// commands/partitions.cpp
VANTRO_MPD_HANDLER(run_listpartitions);
VANTRO_MPD_HANDLER(run_partition);

#undef VANTRO_MPD_HANDLER

} // namespace vantro::mpd

#endif
