// Carries requests out and composes their answers. Knows nothing of how they travel.
#ifndef VANTRO_SERVICE_REQUESTS_ANSWERS_H
#define VANTRO_SERVICE_REQUESTS_ANSWERS_H

#include <cstddef>
#include <cstdint>
#include <deque>
#include <string>
#include <string_view>
#include <vector>

#include "service/catalogue/track.h"
#include "service/playback/engine.h"
#include "service/requests/opens.h"
#include "service/requests/parse.h"

namespace vantro {

// What the integers of the records mean in this service.
inline constexpr uint64_t queue_tsid = 1; // every player's queue is its only track session
inline constexpr int32_t session_type_queue = 1;
inline constexpr int32_t node_type_track = 1;
inline constexpr int32_t source_type_directory = 1;

using Bytes = std::vector<unsigned char>;

class Answers {
  public:
    // Borrows the tracks, which outlive this and do not change. Player names are unique; at most
    // 32767.
    Answers(const std::vector<Track> &tracks, const std::vector<std::string> &players,
            const Engine::Clock &clock);

    // Carries out the request of `size` bytes that came by the open record `open`, and leaves its
    // answer, a result word and what follows it, in `answer`, whatever the bytes are.
    // Throws std::bad_alloc; the answer is then of no use.
    void respond(int32_t open, const void *bytes, std::size_t size, Bytes &answer);

    Opens &opens() { return opens_; }

  private:
    struct Player {
        Player(const std::string &player_name, const std::vector<Track> &tracks,
               const Engine::Clock &clock, uint32_t seed)
            : name(player_name), engine(tracks, clock, seed) {}
        std::string name;
        Engine engine;
    };

    int carry_out(int32_t open, const Request &request, Bytes &answer);
    int open_or_close(int32_t open, const Request &request);
    int append_track(Engine &engine, Bytes &answer) const;

    const std::vector<Track> &tracks_;
    std::deque<Player> players_; // never changes; holds what cannot be moved
    Opens opens_;
};

} // namespace vantro

#endif
