// Carries out requests and composes their answers, independently of the messaging layer.
#ifndef VANTRO_SERVICE_REQUESTS_ANSWERS_H
#define VANTRO_SERVICE_REQUESTS_ANSWERS_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <vantro/extras.h>

#include "service/catalogue/catalogue.h"
#include "service/playback/players.h"
#include "service/requests/open_records.h"
#include "service/requests/packed_lists.h"
#include "service/requests/packing.h"
#include "service/requests/parse.h"

namespace vantro::service::requests {

class Answers {
  public:
    // Borrows both, which outlive this.
    Answers(catalogue::Catalogue &catalogue, playback::Players &players)
        : catalogue_(catalogue), players_(players) {}

    // Carries out the request of `size` bytes of the open record `open`, and writes the answer, a
    // result word and its data, to `answer`; the bytes may be anything. Readers that wait for the
    // resulting events are woken when `bell` is destroyed. Throws std::bad_alloc; then nothing was
    // changed, and the answer must not be used.
    void respond(int32_t open, const void *bytes, size_t size, Bytes &answer,
                 publishing::HeldBell &bell);

    // Whether a request may take long, since it reads as much of the catalogue as its client
    // demands.
    bool may_take_long(int32_t open, const void *bytes, size_t size);

    // An open record is closed; may be called twice. The first call returns the record's client.
    std::optional<Client> close(int32_t open) noexcept;

    // Packs the beginning of the list of a source's songs, so that no client needs to wait for it.
    // Any thread. Does nothing if there is no memory.
    void prepare_songs(int32_t source) noexcept;

    OpenRecords &opens() { return opens_; }

    // Fills in how the service identifies a client. Returns 0 or a result word. Set it before the
    // first request; without it identity requests are refused.
    using Identify = std::function<int(const Client &client, VantroIdentity &identity)>;
    void set_identify(Identify identify) { identify_ = std::move(identify); }

    // Called when a player refuses a track session to a client because of a limit. Set it before
    // the first request.
    using SessionsRefused = std::function<void(const Client &client)>;
    void set_sessions_refused(SessionsRefused refused) { sessions_refused_ = std::move(refused); }

  private:
    // A request in progress.
    struct Call {
        int32_t open;
        const Request &request;
        playback::Player *player; // the player that the record has open, or null
        Bytes &answer;
    };
    struct Command;

    // The three ways in which a row of the table runs its command.
    template <int (Answers::*method)(const Call &)>
    static int run(Answers &self, const Call &call) {
        return (self.*method)(call);
    }
    template <int (playback::Player::*method)()>
    static int control(Answers &, const Call &call) {
        return (call.player->*method)();
    }
    template <int (playback::Player::*method)(int32_t)>
    static int control_to(Answers &, const Call &call) {
        return (call.player->*method)(call.request.value);
    }

    static const Command *find_command(uint16_t number);
    int carry_out(int32_t open, const void *bytes, size_t size, Bytes &answer,
                  publishing::HeldBell &bell);
    playback::Player *player_of(int32_t open);

    int open_player(const Call &call);
    int close_player(const Call &call);
    int16_t find_player(std::string_view name);
    int append_players(const Call &call);
    int append_identity(const Call &call);

    // Passes the nodes of a request's list in that range to `nodes`.
    using Give = int (Answers::*)(const Call &call, catalogue::Range range,
                                  catalogue::NodeSink &nodes);
    int give_listing(const Call &call, catalogue::Range range, catalogue::NodeSink &nodes);
    int give_search(const Call &call, catalogue::Range range, catalogue::NodeSink &nodes);
    int give_session_tracks(const Call &call, catalogue::Range range, catalogue::NodeSink &nodes);
    int session_songs(const Call &call, catalogue::Range range,
                      std::vector<catalogue::SongId> &ids);
    // Append the nodes, without and with metadata.
    int append_list(const Call &call, Give give);
    int append_described(const Call &call, Give give);
    int append_listing(const Call &call);
    int append_search(const Call &call);
    int append_session_tracks(const Call &call);
    int append_described_listing(const Call &call);
    int append_described_search(const Call &call);
    int append_described_tracks(const Call &call);

    int append_metadata_of(const Call &call);
    int append_extended_metadata(const Call &call);
    int append_state(const Call &call);
    int append_session(const Call &call);
    int append_track(const Call &call);
    int append_position(const Call &call);
    int append_status(const Call &call);
    int append_current_song(Bytes &answer, const playback::Engine::Snapshot &now);
    int create_session(const Call &call);
    int save_playlist(const Call &call);

    catalogue::Catalogue &catalogue_;
    playback::Players &players_;
    OpenRecords opens_;
    PackedLists packed_lists_;
    Identify identify_;
    SessionsRefused sessions_refused_;
};

} // namespace vantro::service::requests

#endif
