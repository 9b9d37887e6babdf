// The two files of a saved player: the complete state (session, position, modes), and the state
// that changes often, without the session. The second file belongs to one edition of the first.
#ifndef VANTRO_SERVICE_STATE_PLAYER_FILE_H
#define VANTRO_SERVICE_STATE_PLAYER_FILE_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include <vantro/catalogue.h>

#include "service/playback/engine.h"

namespace vantro::service::state {

struct KeptPlayer {
    uint64_t edition = 0; // of the session; unique for all time
    playback::Engine::Saved saved;
};

inline constexpr size_t position_bytes_max = 1024;

// The longest session has VANTRO_TRKSESSION_SONGS_MAX lines, each at most this long: an id, a
// source, a duration and a place in the order of play.
inline constexpr size_t song_bytes_max =
    sizeof " -9223372036854775808 2147483647 2147483647 999999";
static_assert(VANTRO_TRKSESSION_SONGS_MAX <= 1'000'000);
inline constexpr size_t session_bytes_max =
    position_bytes_max + song_bytes_max * VANTRO_TRKSESSION_SONGS_MAX;

std::string write_session(const KeptPlayer &player);
std::string write_position(const KeptPlayer &player);

// Nothing if the text is not in the form that is written, or no player can have that state.
std::optional<KeptPlayer> read_session(std::string_view text);
// Updates the player if the text belongs to its edition. Returns false if the text is damaged.
bool read_position(std::string_view text, KeptPlayer &player);

} // namespace vantro::service::state

#endif
