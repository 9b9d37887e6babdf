// A named player: its engine, and the track sessions that were made for it.
//
// Only the newest session can be the current one; the others stay for their lists to be read until
// they are destroyed. Of the sessions of all songs, which play() makes and no client asked for, there
// is one at most, beside those that clients made; so a client that forgets its sessions uses up what
// clients have, and the music still plays.
//
// Any thread may call any operation. The catalogue is asked with no lock held;
// the lock of a player is taken before that of its engine.
#ifndef VANTRO_SERVICE_PLAYBACK_PLAYER_H
#define VANTRO_SERVICE_PLAYBACK_PLAYER_H

#include <cstdint>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "service/catalogue/catalogue.h"
#include "service/playback/engine.h"
#include "service/playback/session.h"

namespace vantro {

// Ids of track sessions, for all players, never the same one twice.
class SessionIds {
  public:
    explicit SessionIds(Catalogue &catalogue) : catalogue_(catalogue) {}
    // Returns 0 where there are none.
    uint64_t take();

  private:
    Catalogue &catalogue_;
    std::mutex mutex_; // guards all that follows
    int32_t next_ = 0;
    int32_t left_ = 0;
};

class Player {
  public:
    // Borrows the catalogue and the ids, which outlive it.
    Player(std::string player_name, Catalogue &catalogue, SessionIds &ids, Engine::Clock clock,
           uint32_t seed)
        : name(std::move(player_name)), engine(std::move(clock), seed), catalogue_(catalogue),
          ids_(ids) {}

    // Plays; without a session one of all songs. Returns 0, ENODATA (there are no songs), or EIO (the
    // catalogue fails, or no id can be had).
    int play();

    // Makes a session of a node's songs and makes it the current one, at the song of that index.
    // Returns 0; what the catalogue returned; ENODATA (the node has no songs); ERANGE (index, or
    // `start` is no VANTRO_TRKSESSION_*); ENOSPC (VANTRO_TRKSESSIONS_MAX are there); EIO (no id can
    // be had). Where it fails nothing is changed.
    int create(int32_t source, std::string_view node, int32_t index, int32_t start, uint64_t &tsid);

    // Returns 0 or ENOENT. Without its current session the player is idle.
    int destroy(uint64_t tsid);

    // Null where the player has no such session.
    SessionPtr session(uint64_t tsid);

    const std::string name;
    Engine engine;

  private:
    std::size_t made_of_nodes() const; // these two with the lock held
    void add(SessionPtr session, int32_t index, bool play);

    Catalogue &catalogue_;
    SessionIds &ids_;
    std::mutex mutex_;
    std::vector<SessionPtr> sessions_; // guarded by mutex_; oldest first
};

} // namespace vantro

#endif
