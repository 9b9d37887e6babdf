#include "service/requests/answers.h"

#include <algorithm>
#include <cerrno>
#include <exception>
#include <iterator>
#include <optional>

#include <vantro/catalogue.h>

#include "service/requests/command_table.h"

namespace vantro::service::requests {

namespace {

static_assert(sizeof(VantroStateInfo) == 16);
static_assert(sizeof(VantroTrksessionInfo) == 16);

// Room for the answer of every command that changes something. The room is reserved before the
// command is carried out: if the answer could not be made, it would look like a refusal although
// the command was carried out.
constexpr size_t short_answer = 64;

VantroTrksessionInfo info_of(const playback::TrackSession *session) {
    return session ? VantroTrksessionInfo{session->type, session->length(), session->tsid}
                   : VantroTrksessionInfo{VANTRO_TRKSESSION_NONE, 0, 0};
}

} // namespace

playback::Player *Answers::player_of(int32_t open) {
    const int16_t at = opens_.player(open);
    return at == no_player ? nullptr : &players_[static_cast<size_t>(at)];
}

bool Answers::may_take_long(int32_t open, const void *bytes, size_t size) {
    RequestHeader header;
    const Command *const command =
        read_header(bytes, size, header) ? find_command(header.command) : nullptr;
    if (!command || command->takes == Takes::moments) {
        return false;
    }
    playback::Player *const player = player_of(open);
    if (!player) {
        return command->player == Player::optional; // otherwise it is refused
    }
    return command->takes == Takes::long_time || !player->has_session();
}

void Answers::respond(int32_t open, const void *bytes, size_t size, Bytes &answer,
                      publishing::HeldBell &bell) {
    answer.clear();
    answer.reserve(short_answer);
    append(answer, int32_t{0});
    int32_t result = carry_out(open, bytes, size, answer, bell);
    if (result == 0) {
        return;
    }
    answer.clear();
    append(answer, result);
}

int Answers::carry_out(int32_t open, const void *bytes, size_t size, Bytes &answer,
                       publishing::HeldBell &bell) {
    RequestHeader header;
    if (!read_header(bytes, size, header)) {
        return EINVAL;
    }
    const Command *const command = find_command(header.command);
    if (!command) {
        return ENOSYS;
    }
    Request request;
    if (const int result = parse_request(header, command->form, bytes, size, request);
        result != 0) {
        return result;
    }
    const Call call{open, request, player_of(open), answer};
    if (!call.player && command->player == Player::needed) {
        return ENOTCONN;
    }
    const int result = command->carry_out(*this, call);
    // Published before the answer, so that a client with the answer finds its events. If memory is
    // short, the events follow later: the command was carried out, and its answer says so.
    if (call.player) {
        try {
            call.player->publish_changes(bell);
        } catch (const std::exception &) {
            return result;
        }
    }
    return result;
}

std::optional<Client> Answers::close(int32_t open) noexcept {
    const std::optional<Client> client = opens_.forget(open);
    if (client) {
        players_.maker_gone(client->number);
    }
    return client;
}

int16_t Answers::find_player(std::string_view name) {
    int16_t at = 0;
    for (const playback::Player &each : players_) {
        if (each.name == name) {
            return at;
        }
        ++at;
    }
    return no_player;
}

int Answers::append_identity(const Call &call) {
    VantroIdentity identity = {};
    const int result = identify_ ? identify_(opens_.client(call.open), identity) : ENOSYS;
    append(call.answer, identity);
    return result;
}

int Answers::open_player(const Call &call) {
    const int16_t player = find_player(call.request.name);
    return player == no_player ? ENOENT : opens_.open(call.open, player);
}

int Answers::close_player(const Call &call) {
    const int16_t player = find_player(call.request.name);
    return player == no_player ? ENOENT : opens_.close(call.open, player);
}

int Answers::create_session(const Call &call) {
    uint64_t tsid = 0;
    const Request &request = call.request;
    const Client client = opens_.client(call.open);
    const int result =
        call.player->create(request.source, request.node, request.value, request.start, tsid,
                            {client.number, client.uid, is_limited(client.uid)});
    if (result == ENOSPC && sessions_refused_) {
        sessions_refused_(client);
    }
    if (opens_.client(call.open).number != client.number) {
        call.player->maker_gone(client.number); // the connection ended before the session was made
    }
    append(call.answer, tsid);
    return result;
}

int Answers::append_state(const Call &call) {
    append(call.answer, call.player->snapshot().modes);
    return 0;
}

int Answers::append_session(const Call &call) {
    append(call.answer, info_of(call.player->snapshot().session.get()));
    return 0;
}

int Answers::append_position(const Call &call) {
    const playback::Engine::Snapshot now = call.player->snapshot();
    append(call.answer, now.position_ms);
    return now.session ? 0 : ENODATA;
}

int Answers::append_track(const Call &call) {
    const playback::Engine::Snapshot now = call.player->snapshot();
    if (!now.session) {
        return ENODATA;
    }
    append(call.answer, now.index);
    append(call.answer, now.session->tsid);
    return append_current_song(call.answer, now);
}

// The lengths of the node and of the metadata, then both. A song that has left the catalogue plays
// on, but has neither.
int Answers::append_current_song(Bytes &answer, const playback::Engine::Snapshot &now) {
    const size_t lengths = answer.size();
    append(answer, uint64_t{0});
    catalogue::Node node;
    catalogue::SongMetadata metadata;
    int result =
        catalogue_.song(now.session->songs[static_cast<size_t>(now.index)].id, node, metadata);
    if (result != 0) {
        return result == ENOENT ? 0 : result;
    }
    const size_t records = answer.size();
    result = append_nodes(answer, &node, 1);
    const auto node_length = static_cast<int32_t>(answer.size() - records);
    if (result == 0) {
        result = append_metadata(answer, &metadata, 1);
    }
    const auto all_length = static_cast<int32_t>(answer.size() - records);
    const int32_t both[] = {node_length, all_length - node_length};
    std::copy_n(reinterpret_cast<const unsigned char *>(both), sizeof both,
                answer.begin() + static_cast<ptrdiff_t>(lengths));
    return result;
}

int Answers::append_status(const Call &call) {
    Bytes &answer = call.answer;
    const playback::Engine::Snapshot now = call.player->snapshot();
    append(answer, now.modes);
    append(answer, info_of(now.session.get()));
    append(answer, now.volume);
    append(answer, now.session ? now.position_ms : 0);
    append(answer, now.session ? now.index : -1);
    if (!now.session) {
        append(answer, uint64_t{0}); // no node, no metadata
        return 0;
    }
    return append_current_song(answer, now);
}

int Answers::append_players(const Call &call) {
    std::vector<std::string> names;
    std::transform(players_.begin(), players_.end(), std::back_inserter(names),
                   [](const playback::Player &each) { return each.name; });
    append(call.answer, static_cast<int32_t>(names.size()));
    return append_texts(call.answer, names);
}

} // namespace vantro::service::requests
