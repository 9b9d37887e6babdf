#include "service/requests/answers.h"

#include <algorithm>
#include <cerrno>
#include <optional>

#include <vantro/catalogue.h>
#include <vantro/protocol.h>

namespace vantro::service::requests {

namespace {

static_assert(sizeof(VantroStateInfo) == 16);
static_assert(sizeof(VantroTrksessionInfo) == 16);

} // namespace

void Answers::respond(int32_t open, const void *bytes, size_t size, Bytes &answer) {
    answer.clear();
    append(answer, int32_t{0});
    Request request;
    int32_t result = parse_request(bytes, size, request);
    if (result == 0) {
        result = carry_out(open, request, answer);
    }
    if (result == 0) {
        return;
    }
    answer.clear();
    append(answer, result);
}

int Answers::carry_out(int32_t open, const Request &request, Bytes &answer) {
    const int16_t at = opens_.player(open);
    playback::Player *const player = at == no_player ? nullptr : &players_[static_cast<size_t>(at)];
    const int result = carry_out(open, player, request, answer);
    // Before the answer: who has it finds the events of what it tells.
    if (player) {
        player->tell();
    }
    return result;
}

int Answers::carry_out(int32_t open, playback::Player *player, const Request &request,
                       Bytes &answer) {
    switch (request.command) {
    case VANTRO_COMMAND_OPEN:
    case VANTRO_COMMAND_CLOSE:
        return open_or_close(open, request);
    case VANTRO_COMMAND_GET_TRKSESSION_TRACKS:
        return append_session_tracks(player, request, answer);
    case VANTRO_COMMAND_GET_EXTENDED_METADATA:
        return append_extended_metadata(request, answer);
    case VANTRO_COMMAND_GET_MEDIA_SOURCES:
    case VANTRO_COMMAND_BROWSE:
    case VANTRO_COMMAND_SEARCH:
    case VANTRO_COMMAND_GET_METADATA:
        return player ? ask_catalogue(request, answer) : ENOTCONN;
    case VANTRO_COMMAND_GET_CURRENT_STATE:
    case VANTRO_COMMAND_GET_CURRENT_TRKSESSION_INFO:
    case VANTRO_COMMAND_GET_CURRENT_TRACK_INFO:
    case VANTRO_COMMAND_GET_CURRENT_TRACK_POSITION:
    case VANTRO_COMMAND_CREATE_TRKSESSION:
        return player ? ask_player(*player, request, answer) : ENOTCONN;
    default:
        return player ? control(*player, request) : ENOTCONN;
    }
}

int Answers::open_or_close(int32_t open, const Request &request) {
    for (size_t i = 0; i < players_.size(); ++i) {
        if (players_[i].name != request.name) {
            continue;
        }
        const auto player = static_cast<int16_t>(i);
        return request.command == VANTRO_COMMAND_OPEN ? opens_.open(open, player)
                                                      : opens_.close(open, player);
    }
    return ENOENT;
}

// Commands whose answer is nothing but the result word.
int Answers::control(playback::Player &player, const Request &request) {
    switch (request.command) {
    case VANTRO_COMMAND_DESTROY_TRKSESSION:
        return player.destroy(request.tsid);
    case VANTRO_COMMAND_PLAY:
        return player.play();
    case VANTRO_COMMAND_STOP:
        return player.engine.stop();
    case VANTRO_COMMAND_PAUSE:
        return player.engine.pause();
    case VANTRO_COMMAND_JUMP:
        return player.engine.jump(request.value);
    case VANTRO_COMMAND_NEXT:
        return player.engine.next();
    case VANTRO_COMMAND_PREVIOUS:
        return player.engine.previous();
    case VANTRO_COMMAND_SEEK:
        return player.engine.seek(request.value);
    case VANTRO_COMMAND_SET_PLAYBACK_RATE:
        return player.engine.set_rate(request.rate);
    case VANTRO_COMMAND_SHUFFLE:
        return player.engine.set_shuffle(request.value);
    case VANTRO_COMMAND_REPEAT:
        return player.engine.set_repeat(request.value);
    default:
        return ENOSYS;
    }
}

int Answers::ask_player(playback::Player &player, const Request &request, Bytes &answer) {
    switch (request.command) {
    case VANTRO_COMMAND_CREATE_TRKSESSION: {
        uint64_t tsid = 0;
        const int result =
            player.create(request.source, request.node, request.value, request.start, tsid);
        append(answer, tsid);
        return result;
    }
    case VANTRO_COMMAND_GET_CURRENT_STATE:
        append(answer, player.engine.snapshot().modes);
        return 0;
    case VANTRO_COMMAND_GET_CURRENT_TRKSESSION_INFO: {
        const playback::SessionPtr session = player.engine.snapshot().session;
        append(answer, session
                           ? VantroTrksessionInfo{session->type, session->length(), session->tsid}
                           : VantroTrksessionInfo{VANTRO_TRKSESSION_NONE, 0, 0});
        return 0;
    }
    case VANTRO_COMMAND_GET_CURRENT_TRACK_POSITION: {
        const playback::Engine::Snapshot now = player.engine.snapshot();
        append(answer, now.position_ms);
        return now.session ? 0 : ENODATA;
    }
    default:
        return append_track(player, answer);
    }
}

int Answers::append_track(playback::Player &player, Bytes &answer) {
    const playback::Engine::Snapshot now = player.engine.snapshot();
    if (!now.session) {
        return ENODATA;
    }
    append(answer, now.index);
    append(answer, now.session->tsid);
    const size_t lengths = answer.size();
    append(answer, uint64_t{0});
    catalogue::Node node;
    catalogue::SongMetadata metadata;
    // A song that has left the catalogue since is played on, but nothing is known of it.
    int result =
        catalogue_.song(now.session->songs[static_cast<size_t>(now.index)].id, node, metadata);
    if (result != 0) {
        return result == ENOENT ? 0 : result;
    }
    const size_t records = answer.size();
    result = append_node(answer, node);
    const auto node_length = static_cast<int32_t>(answer.size() - records);
    if (result == 0) {
        result = append_metadata(answer, metadata);
    }
    const auto all_length = static_cast<int32_t>(answer.size() - records);
    const int32_t both[] = {node_length, all_length - node_length};
    std::copy_n(reinterpret_cast<const unsigned char *>(both), sizeof both,
                answer.begin() + static_cast<ptrdiff_t>(lengths));
    return result;
}

int Answers::ask_catalogue(const Request &request, Bytes &answer) {
    switch (request.command) {
    case VANTRO_COMMAND_GET_MEDIA_SOURCES:
        return append_sources(answer, catalogue_.sources());
    case VANTRO_COMMAND_GET_METADATA: {
        std::optional<catalogue::SongMetadata> metadata;
        const int result = catalogue_.metadata(request.source, request.node, metadata);
        return result == 0 && metadata ? append_metadata(answer, *metadata) : result;
    }
    default:
        return append_listing(request, answer);
    }
}

int Answers::append_listing(const Request &request, Bytes &answer) {
    NodePacker nodes(answer);
    const int result =
        request.command == VANTRO_COMMAND_SEARCH
            ? catalogue_.search(request.source, request.filter, request.term, request.range, nodes)
            : catalogue_.browse(request.source, request.node, request.range, nodes);
    return result == 0 ? nodes.finish() : result;
}

int Answers::append_extended_metadata(const Request &request, Bytes &answer) {
    std::vector<std::string> values;
    const int result =
        catalogue_.extended_metadata(request.source, request.node, request.keys, values);
    return result == 0 ? append_texts(answer, values) : result;
}

// Ids are never given twice, so without an open player a session is known by its id alone.
int Answers::append_session_tracks(playback::Player *player, const Request &request,
                                   Bytes &answer) {
    playback::SessionPtr session = player ? player->session(request.tsid) : nullptr;
    for (auto each = players_.begin(); !player && !session && each != players_.end(); ++each) {
        session = each->session(request.tsid);
    }
    if (!session) {
        return ENOENT;
    }

    const std::vector<catalogue::QueuedSong> &songs = session->songs;
    const auto first =
        std::min(static_cast<size_t>(std::max(request.range.offset, 0)), songs.size());
    size_t count = songs.size() - first;
    if (request.range.count > 0) {
        count = std::min(count, static_cast<size_t>(request.range.count));
    }
    std::vector<catalogue::SongId> ids(count);
    std::transform(songs.data() + first, songs.data() + first + count, ids.begin(),
                   [](const catalogue::QueuedSong &song) { return song.id; });
    NodePacker nodes(answer);
    const int result = catalogue_.song_nodes(ids.data(), count, nodes);
    return result == 0 ? nodes.finish() : result;
}

} // namespace vantro::service::requests
