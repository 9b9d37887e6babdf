// Carries requests out and composes their answers. Knows nothing of how they travel.
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

    // Carries out the request of `size` bytes that came by the open record `open`, and leaves its
    // answer, a result word and what follows it, in `answer`, whatever the bytes are. Those who
    // wait for the events of it are woken at the end of `bell`.
    // Throws std::bad_alloc; then nothing was changed, and the answer must not be used.
    void respond(int32_t open, const void *bytes, size_t size, Bytes &answer,
                 publishing::HeldBell &bell);

    // Whether a request may take long: it reads as much of the catalogue as its client asks for.
    bool may_take_long(int32_t open, const void *bytes, size_t size);

    // An open record goes away, perhaps for the second time. Returns whose it was the first time.
    std::optional<Client> close(int32_t open) noexcept;

    OpenRecords &opens() { return opens_; }

    // What tells whom a client is taken for: 0, or a result word. To be set before the first
    // request; without it nobody is told.
    using Identify = std::function<int(const Client &client, VantroIdentity &identity)>;
    void set_identify(Identify identify) { identify_ = std::move(identify); }

    // Is told whom a player refused a track session, of which it has as many as may be. Likewise.
    using SessionsRefused = std::function<void(const Client &client)>;
    void set_sessions_refused(SessionsRefused refused) { sessions_refused_ = std::move(refused); }

  private:
    // A request that is being carried out.
    struct Call {
        int32_t open;
        const Request &request;
        playback::Player *player; // that the record has open, or null
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

    // Give the nodes of a request's list that lie in the range.
    using Give = int (Answers::*)(const Call &call, catalogue::Range range,
                                  catalogue::NodeSink &nodes);
    int give_listing(const Call &call, catalogue::Range range, catalogue::NodeSink &nodes);
    int give_search(const Call &call, catalogue::Range range, catalogue::NodeSink &nodes);
    int give_session_tracks(const Call &call, catalogue::Range range, catalogue::NodeSink &nodes);
    int session_songs(const Call &call, catalogue::Range range,
                      std::vector<catalogue::SongId> &ids);
    // The nodes alone, and each with its metadata.
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
