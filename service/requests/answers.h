// Carries requests out and composes their answers. Knows nothing of how they travel.
#ifndef VANTRO_SERVICE_REQUESTS_ANSWERS_H
#define VANTRO_SERVICE_REQUESTS_ANSWERS_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "service/catalogue/catalogue.h"
#include "service/playback/players.h"
#include "service/requests/opens.h"
#include "service/requests/packing.h"
#include "service/requests/parse.h"

namespace vantro::service::requests {

class Answers {
  public:
    // Borrows both, which outlive this.
    Answers(catalogue::Catalogue &catalogue, playback::Players &players)
        : catalogue_(catalogue), players_(players) {}

    // Carries out the request of `size` bytes that came by the open record `open`, and leaves its
    // answer, a result word and what follows it, in `answer`, whatever the bytes are.
    // Throws std::bad_alloc; the answer is then of no use.
    void respond(int32_t open, const void *bytes, size_t size, Bytes &answer);

    Opens &opens() { return opens_; }

  private:
    int carry_out(int32_t open, const Request &request, Bytes &answer);
    int carry_out(int32_t open, playback::Player *player, const Request &request, Bytes &answer);
    int open_or_close(int32_t open, const Request &request);
    int control(playback::Player &player, const Request &request);
    int ask_player(playback::Player &player, const Request &request, Bytes &answer);
    int ask_catalogue(const Request &request, Bytes &answer);
    int append_listing(const Request &request, Bytes &answer);
    int append_track(playback::Player &player, Bytes &answer);
    int append_session_tracks(playback::Player *player, const Request &request, Bytes &answer);
    int append_extended_metadata(const Request &request, Bytes &answer);

    catalogue::Catalogue &catalogue_;
    playback::Players &players_;
    Opens opens_;
};

} // namespace vantro::service::requests

#endif
