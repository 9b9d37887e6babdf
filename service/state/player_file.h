// The two files in which a player is kept: all of it (its session, where it is, its modes), and
// what changes often, without the session. The second belongs to one edition of the first.
#ifndef VANTRO_SERVICE_STATE_PLAYER_FILE_H
#define VANTRO_SERVICE_STATE_PLAYER_FILE_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "service/playback/engine.h"

namespace vantro::service::state {

struct KeptPlayer {
    uint64_t edition = 0; // of the session; never that of another one
    playback::Engine::Saved saved;
};

// More than the longest session takes.
inline constexpr size_t session_bytes_max = 8 * 1024 * 1024;
inline constexpr size_t position_bytes_max = 1024;

std::string write_session(const KeptPlayer &player);
std::string write_position(const KeptPlayer &player);

// Nothing where the text is not exactly what was written, or holds what no player can be.
std::optional<KeptPlayer> read_session(std::string_view text);
// Brings the player up to date where the text belongs to this edition of it. Returns false where
// the text is broken.
bool read_position(std::string_view text, KeptPlayer &player);

} // namespace vantro::service::state

#endif
