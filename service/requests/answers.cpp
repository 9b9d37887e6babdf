#include "service/requests/answers.h"

#include <cerrno>
#include <random>

#include <vantro/protocol.h>
#include <vantro/records.h>

namespace vantro {

namespace {

static_assert(sizeof(VantroStateInfo) == 16);
static_assert(sizeof(VantroTrksessionInfo) == 16);

template <typename Value>
void append(Bytes &bytes, const Value &value) {
    const auto *begin = reinterpret_cast<const unsigned char *>(&value);
    bytes.insert(bytes.end(), begin, begin + sizeof value);
}

// The packers only read; the record is shared with clients, whose strings are their own.
char *text_or_absent(const std::string &text) {
    return text.empty() ? nullptr : const_cast<char *>(text.c_str());
}

ServiceMediaNode node_of(const Track &track) {
    ServiceMediaNode node = {};
    node.id = track.id.c_str();
    node.name = track.title.c_str();
    node.type = node_type_track;
    node.ms_id = track.source;
    node.ms_type = source_type_directory;
    return node;
}

Metadata metadata_of(const Track &track) {
    Metadata metadata = {};
    metadata.title = text_or_absent(track.title);
    metadata.duration = track.duration_ms;
    metadata.artist = text_or_absent(track.artist);
    metadata.album = text_or_absent(track.album);
    metadata.genre = text_or_absent(track.genre);
    metadata.year = text_or_absent(track.year);
    metadata.disc = track.disc;
    metadata.track = track.number;
    return metadata;
}

} // namespace

Answers::Answers(const std::vector<Track> &tracks, const std::vector<std::string> &players,
                 const Engine::Clock &clock)
    : tracks_(tracks) {
    std::random_device seed;
    for (const std::string &name : players)
        players_.emplace_back(name, tracks, clock, seed());
}

void Answers::respond(int32_t open, const void *bytes, std::size_t size, Bytes &answer) {
    answer.clear();
    append(answer, int32_t{0});
    Request request;
    int32_t result = parse_request(bytes, size, request);
    if (result == 0)
        result = carry_out(open, request, answer);
    if (result == 0)
        return;
    answer.clear();
    append(answer, result);
}

int Answers::carry_out(int32_t open, const Request &request, Bytes &answer) {
    if (request.command == VANTRO_COMMAND_OPEN || request.command == VANTRO_COMMAND_CLOSE)
        return open_or_close(open, request);

    const int16_t player = opens_.player(open);
    if (player == no_player)
        return ENOTCONN;
    Engine &engine = players_[static_cast<std::size_t>(player)].engine;
    switch (request.command) {
    case VANTRO_COMMAND_GET_CURRENT_STATE:
        append(answer, engine.snapshot().modes);
        return 0;
    case VANTRO_COMMAND_GET_CURRENT_TRKSESSION_INFO:
        append(answer, VantroTrksessionInfo{session_type_queue,
                                            static_cast<int32_t>(tracks_.size()), queue_tsid});
        return 0;
    case VANTRO_COMMAND_GET_CURRENT_TRACK_INFO:
        return append_track(engine, answer);
    case VANTRO_COMMAND_GET_CURRENT_TRACK_POSITION: {
        const Engine::Snapshot now = engine.snapshot();
        if (now.index < 0)
            return ENODATA;
        append(answer, now.position_ms);
        return 0;
    }
    case VANTRO_COMMAND_PLAY:
        return engine.play();
    case VANTRO_COMMAND_STOP:
        return engine.stop();
    case VANTRO_COMMAND_PAUSE:
        return engine.pause();
    case VANTRO_COMMAND_NEXT:
        return engine.next();
    case VANTRO_COMMAND_PREVIOUS:
        return engine.previous();
    case VANTRO_COMMAND_SEEK:
        return engine.seek(request.value);
    case VANTRO_COMMAND_SET_PLAYBACK_RATE:
        return engine.set_rate(request.rate);
    case VANTRO_COMMAND_SHUFFLE:
        return engine.set_shuffle(request.value);
    case VANTRO_COMMAND_REPEAT:
        return engine.set_repeat(request.value);
    default:
        return ENOSYS;
    }
}

int Answers::open_or_close(int32_t open, const Request &request) {
    for (std::size_t i = 0; i < players_.size(); ++i) {
        if (players_[i].name != request.name)
            continue;
        const auto player = static_cast<int16_t>(i);
        return request.command == VANTRO_COMMAND_OPEN ? opens_.open(open, player)
                                                      : opens_.close(open, player);
    }
    return ENOENT;
}

int Answers::append_track(Engine &engine, Bytes &answer) const {
    const int32_t index = engine.snapshot().index;
    if (index < 0)
        return ENODATA;
    const Track &track = tracks_[static_cast<std::size_t>(index)];
    const ServiceMediaNode node = node_of(track);
    const Metadata metadata = metadata_of(track);
    int node_size = compute_media_node_size(&node, 1);
    int metadata_size = compute_metadata_size(&metadata, 1);

    append(answer, index);
    append(answer, queue_tsid);
    append(answer, int32_t{node_size});
    append(answer, int32_t{metadata_size});
    const std::size_t records = answer.size();
    answer.resize(records + static_cast<std::size_t>(node_size + metadata_size));
    pack_media_node(&node, 1, answer.data() + records, &node_size);
    pack_metadata(&metadata, 1, answer.data() + records + node_size, &metadata_size);
    return 0;
}

} // namespace vantro
