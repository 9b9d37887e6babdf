// The status of the player, and statistics.
#include <cerrno>
#include <chrono>

#include <fmt/format.h>

#include <vantro/catalogue.h>

#include "bridges/mpd/catalogue.h"
#include "bridges/mpd/client.h"
#include "bridges/mpd/commands/handlers.h"
#include "bridges/mpd/node_walk.h"
#include "bridges/mpd/partitions.h"
#include "bridges/mpd/service_call.h"

namespace vantro::mpd {
namespace {

const char *state_name(int32_t state) {
    return state == VANTRO_STATE_PLAYING ? "play" : state == VANTRO_STATE_PAUSED ? "pause" : "stop";
}

void tell_modes(Context &context, const VantroStatus &status) {
    Reply &reply = context.reply;
    const VantroStateInfo &state = status.state;
    reply.number("volume", status.volume.level);
    reply.number("repeat", state.repeat != VANTRO_REPEAT_OFF);
    reply.number("random", state.shuffle == VANTRO_SHUFFLE_ON);
    reply.number("single", state.repeat == VANTRO_REPEAT_ONE);
    reply.number("consume", 0);
    reply.pair("partition", context.partition.name());
}

// The song at a position of the queue, such as that of the current track; null if there is none.
SongPtr song_at(Context &context, const Queue &queue, int32_t position) {
    const auto at = static_cast<size_t>(position);
    return at < queue.size() ? context.catalogue.queued_song(context.partition.player(),
                                                             queue.entries()->at(at).key)
                             : nullptr;
}

void tell_next(Reply &reply, const Queue &queue, uint32_t position, const VantroStateInfo &state) {
    uint32_t next = position + 1;
    if (state.repeat == VANTRO_REPEAT_ONE) {
        next = position;
    } else if (state.shuffle == VANTRO_SHUFFLE_ON) {
        return; // only the service knows the order
    } else if (next == queue.size() && state.repeat == VANTRO_REPEAT_ALL) {
        next = 0;
    }
    if (next < queue.size()) {
        reply.number("nextsong", next);
        reply.number("nextsongid", queue.entries()->at(next).id);
    }
}

void tell_track(Context &context, const Queue &queue, const VantroStateInfo &state) {
    const std::optional<int32_t> index = context.partition.current();
    if (!index || *index < 0 || static_cast<uint32_t>(*index) >= queue.size()) {
        return;
    }
    Reply &reply = context.reply;
    const auto position = static_cast<uint32_t>(*index);
    reply.number("song", position);
    reply.number("songid", queue.entries()->at(position).id);
    const SongPtr song = song_at(context, queue, *index);
    if (state.state == VANTRO_STATE_PLAYING || state.state == VANTRO_STATE_PAUSED) {
        const int64_t elapsed = context.partition.position().count();
        reply.raw(
            fmt::format("time: {}:{}\n", (elapsed + 500) / 1000, (song->duration_ms + 500) / 1000));
        reply.pair("elapsed", format_seconds(elapsed));
        if (!song->bit_rate.empty()) {
            reply.pair("bitrate", song->bit_rate);
        }
        if (song->duration_ms > 0) {
            reply.pair("duration", format_seconds(song->duration_ms));
        }
        if (const std::string format = audio_format(*song); !format.empty()) {
            reply.pair("audio", format);
        }
    }
    tell_next(reply, queue, position, state);
}

bool scanning(Context &context) {
    for (const Catalogue::Source &source : context.catalogue.sources(context.partition.player())) {
        if (source.status == VANTRO_SOURCE_SCANNING) {
            return true;
        }
    }
    return false;
}

} // namespace

TaskPtr run_status(Context &context, Arguments) {
    Partition &partition = context.partition;
    const Queue &queue = partition.queue();
    const VantroStateInfo state = partition.status().state;
    Reply &reply = context.reply;
    tell_modes(context, partition.status());
    reply.number("playlist", queue.version());
    reply.number("playlistlength", queue.size());
    reply.pair("state", state_name(state.state));
    tell_track(context, queue, state);
    if (scanning(context)) {
        reply.number("updating_db", 1);
    }
    if (!partition.error().empty()) {
        reply.pair("error", partition.error());
    }
    return nullptr;
}

TaskPtr run_clearerror(Context &context, Arguments) {
    context.partition.clear_error();
    return nullptr;
}

TaskPtr run_currentsong(Context &context, Arguments) {
    const Queue &queue = context.partition.queue();
    const std::optional<int32_t> index = context.partition.current();
    if (!index || static_cast<uint32_t>(*index) >= queue.size()) {
        return nullptr;
    }
    context.reply.song(*song_at(context, queue, *index), context.client.shown_tags);
    context.reply.number("Pos", *index);
    context.reply.number("Id", queue.entries()->at(static_cast<size_t>(*index)).id);
    return nullptr;
}

TaskPtr run_stats(Context &context, Arguments) {
    Player &player = context.partition.player();
    int64_t artists = 0;
    int64_t albums = 0;
    int64_t songs = 0;
    for (const Catalogue::Source &source : context.catalogue.sources(player)) {
        NodeWalk walk = NodeWalk::below({source.id, VANTRO_NODE_ROOT}, false);
        while (const MediaNode *const node = walk.next(player).node) {
            const std::string_view id = text(node->id);
            artists += id == "artists" ? node->count : 0;
            albums += id == "albums" ? node->count : 0;
            songs += id == songs_menu ? node->count : 0;
        }
    }
    const auto up = std::chrono::steady_clock::now() - context.partitions.started_at();
    context.reply.number("artists", artists);
    context.reply.number("albums", albums);
    context.reply.number("songs", songs);
    context.reply.number("uptime", std::chrono::duration_cast<std::chrono::seconds>(up).count());
    if (const int64_t changed = context.partition.changed_at(); changed > 0) {
        context.reply.number("db_update", changed);
    }
    return nullptr;
}

} // namespace vantro::mpd
