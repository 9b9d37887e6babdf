// A named player: its engine, and the track sessions that were made for it.
//
// Only the newest session can be the current one; the others stay for their lists to be read until
// they are destroyed. Of the sessions of all songs, which play() makes and no client asked for,
// there is one at most, beside those that clients made; so a client that forgets its sessions uses
// up what clients have, and the music still plays.
//
// What changes in the engine is published by tell(), in the order in which it changed. Whoever
// gives a command or answers a query calls it before the answer leaves: so a client that has an
// answer finds the events of all that the answer tells.
//
// Any thread may call any operation. The catalogue is asked without the lock of the player or of
// its engine; while what it says is published the publisher's is held, so that an answer which has
// something to tell waits for the reading of one song. The lock of a player is taken before that of
// its engine, and so is that of its publisher.
#ifndef VANTRO_SERVICE_PLAYBACK_PLAYER_H
#define VANTRO_SERVICE_PLAYBACK_PLAYER_H

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "service/catalogue/catalogue.h"
#include "service/playback/engine.h"
#include "service/playback/session.h"
#include "service/publishing/publisher.h"

namespace vantro::service::playback {

// Ids of track sessions, for all players, never the same one twice.
class SessionIds {
  public:
    explicit SessionIds(catalogue::Catalogue &catalogue) : catalogue_(catalogue) {}
    // Returns 0 where there are none.
    uint64_t take();

  private:
    catalogue::Catalogue &catalogue_;
    std::mutex mutex_; // guards all that follows
    int32_t next_ = 0;
    int32_t left_ = 0;
};

class Player {
  public:
    // Borrows the catalogue and the ids, which outlive it.
    Player(std::string player_name, catalogue::Catalogue &catalogue, SessionIds &ids,
           Engine::Clock clock, uint32_t seed)
        : name(std::move(player_name)), engine(std::move(clock), seed), catalogue_(catalogue),
          ids_(ids) {}

    // Plays; without a session one of all songs. Returns 0, ENODATA (there are no songs), or EIO
    // (the catalogue fails, or no id can be had).
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

    // Publishes the player from now on; calls `moved` where wake() may be due at another time than
    // it said, or a track has started. Before anybody else uses it. Returns "" or, in words, why it
    // cannot be.
    std::string publish(const object_readers &readers, const publishing::Publisher::Log &log,
                        std::function<void()> moved);

    // Publishes what has changed and is not yet published, by whatever thread. Cheap where that is
    // nothing.
    void tell();

    // Does and publishes what is due by now. Returns how long until the next of it, if there is
    // any.
    std::optional<std::chrono::nanoseconds> wake();

    // Looks whether the track that started last can be played; may wait for the disk.
    void check_file();

    // The source is now this, or holds something else.
    void source_changed(const catalogue::Source &source);

    const std::string name;
    Engine engine;

  private:
    size_t made_of_nodes() const; // these two with the lock held
    void add(SessionPtr session, int32_t index, bool play);
    void publish_change(const Engine::Change &change); // with telling_ held

    catalogue::Catalogue &catalogue_;
    SessionIds &ids_;
    std::mutex mutex_;
    std::vector<SessionPtr> sessions_; // guarded by mutex_; oldest first

    std::function<void()> moved_;    // set by publish()
    std::atomic<uint64_t> told_ = 0; // changes of the engine that are published
    std::mutex telling_;             // guards all that follows
    std::unique_ptr<publishing::Publisher> publisher_;
    catalogue::SongId song_ = 0; // of the track published last, 0 where there is none
};

} // namespace vantro::service::playback

#endif
