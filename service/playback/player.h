// A named player: its engine, and the track sessions that were made for it.
//
// Only the newest session can be the current one; the lists of the others can be read until they
// are destroyed, or until there is no room for a new session: then the oldest session whose maker
// is gone is dropped. play() makes a session of all songs without a request of a client; there is
// at most one of these, beside the clients' sessions. So a client that does not destroy its
// sessions uses up the room of clients only, and play() still works.
//
// publish_changes() publishes the engine's changes, in their order. The thread that carries out a
// command or a query calls it before it sends the answer. So when a client has an answer, the
// events for everything in the answer have been published.
//
// Any thread may call any operation. The catalogue is read without the locks of the player and of
// its engine. The publisher's lock is held while the result is published, so a request with changes
// to publish may wait while one song is read. Order of locks: the player's lock before the
// engine's, and the publisher's lock before the engine's.
#ifndef VANTRO_SERVICE_PLAYBACK_PLAYER_H
#define VANTRO_SERVICE_PLAYBACK_PLAYER_H

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "common/locks.h"
#include "service/catalogue/catalogue.h"
#include "service/playback/engine.h"
#include "service/playback/session.h"
#include "service/publishing/publisher.h"
#include "service/sound/sound.h"

namespace vantro::service::playback {

// Ids of track sessions, for all players; each is used only once.
class SessionIds {
  public:
    explicit SessionIds(catalogue::Catalogue &catalogue) : catalogue_(catalogue) {}
    Result<uint64_t> take() EXCLUDES(mutex_);
    // Records an id of an earlier run, so that it is not used again even if the catalogue has lost
    // its count.
    void keep(uint64_t id) EXCLUDES(mutex_);

  private:
    catalogue::Catalogue &catalogue_;
    Mutex mutex_;
    int32_t next_ GUARDED_BY(mutex_) = 0;
    int32_t left_ GUARDED_BY(mutex_) = 0;
    std::vector<uint64_t> kept_ GUARDED_BY(mutex_); // at most one for each player
};

// The client that makes a session.
struct Maker {
    uint64_t number = 0; // unique for all time
    uint32_t uid = 0;
    bool limited = false; // neither user 0 nor the service's own user
};

// Sessions of VANTRO_TRKSESSIONS_MAX that one limited user may have in a player, and all of them
// together; see service/requests/user_limits.h for the rule.
inline constexpr int sessions_of_one_user = 12;
inline constexpr int sessions_of_all_users = 14;

// Makes the sound of a player; null if the player follows the clock.
using SoundMaker =
    std::function<std::unique_ptr<sound::Sound>(sound::Listener &, const std::string &player)>;

class Player : private sound::Listener {
  public:
    // Borrows the catalogue and the ids, which outlive it.
    Player(std::string player_name, catalogue::Catalogue &catalogue, SessionIds &ids,
           Engine::Clock clock, uint32_t seed, const SoundMaker &make_sound = nullptr)
        : name(std::move(player_name)), engine_(std::move(clock), seed, make_sound != nullptr),
          catalogue_(catalogue), ids_(ids), sound_(make_sound ? make_sound(*this, name) : nullptr) {
    }

    // Ends the sound permanently. Afterwards the state changes only by calls.
    void silence() { sound_.reset(); }

    // mpv's value; has no effect on a player without a sound. Any thread.
    void set_replaygain(const std::string &mode) {
        if (sound_) {
            sound_->set_replaygain(mode);
        }
    }

    // Plays; without a session, makes one of all songs. Returns 0, ENODATA (there are no songs), or
    // EIO (the catalogue fails, or there is no free id).
    int play() EXCLUDES(mutex_);

    // Makes a session of the songs of nodes (node_list.h) and makes it the current one, according
    // to `start`: at the song of that index, or replacing the current session, which is then
    // destroyed. Returns 0; the result of songs_of_nodes(); ERANGE (the index is out of range, or
    // not 0 when songs are added, or `start` is not a VANTRO_TRKSESSION_*); EMSGSIZE (more than
    // VANTRO_TRKSESSION_SONGS_MAX songs together with the present ones); ENOSPC (the player has
    // VANTRO_TRKSESSIONS_MAX sessions, or the user has as many as it may, and no maker of them is
    // gone); EIO (there is no free id). If it fails, nothing changes.
    int create(int32_t source, std::string_view nodes, int32_t index, int32_t start, uint64_t &tsid,
               const Maker &maker = {}) EXCLUDES(mutex_);

    // Keeps this maker's sessions until their room is needed.
    void maker_gone(uint64_t number) noexcept EXCLUDES(mutex_);

    // Returns 0 or ENOENT. Without its current session the player is idle.
    int destroy(uint64_t tsid) EXCLUDES(mutex_);

    // See Engine.
    int pause() { return engine_.pause(); }
    int stop() { return engine_.stop(); }
    int next() { return engine_.next(); }
    int previous() { return engine_.previous(); }
    int jump(int32_t index) { return engine_.jump(index); }
    int seek(int32_t position_ms) { return engine_.seek(position_ms); }
    int set_rate(float rate) { return engine_.set_rate(rate); }
    int set_shuffle(int32_t mode) { return engine_.set_shuffle(mode); }
    int set_repeat(int32_t mode) { return engine_.set_repeat(mode); }
    int set_volume(int32_t level) { return engine_.set_volume(level); }
    int set_muted(int32_t muted) { return engine_.set_muted(muted); }
    void set_volume_limit(int32_t limit) { engine_.set_volume_limit(limit); }
    Engine::Snapshot snapshot() { return engine_.snapshot(); }

    // See Engine. The maker of a restored session counts as gone.
    Engine::Saved saved() { return engine_.saved(); }
    void restore(const Engine::Saved &saved, bool play) EXCLUDES(mutex_);

    // Whether there is a current session.
    bool has_session() { return engine_.snapshot().session != nullptr; }

    // A player that was restored with a session may soon get the command to play.
    void prepare_sound() {
        if (sound_ && has_session()) {
            sound_->prepare();
        }
    }

    // Null if the player has no such session.
    SessionPtr session(uint64_t tsid) EXCLUDES(mutex_);

    // The calls by which a player makes other threads work for it.
    struct Calls {
        std::function<void(std::chrono::nanoseconds)> wake_within; // call wake()
        std::function<void()> check_file;
        std::function<void()> keep; // a change other than the passing of time
    };

    // Starts publishing; call it once, before the player is shared. Returns an error if it fails.
    std::optional<Error> publish(const object_readers &readers,
                                 const publishing::Publisher::Log &log, Calls calls)
        EXCLUDES(publish_mutex_);

    // Publishes every unpublished change, whichever thread made it. Cheap if there is none. Changes
    // that cannot be published for lack of memory stay for the next call, which wake_within causes.
    // Waiting readers are woken when `bell` is destroyed.
    void publish_changes(publishing::HeldBell &bell) EXCLUDES(publish_mutex_);
    void publish_changes() EXCLUDES(publish_mutex_) {
        publishing::HeldBell bell;
        publish_changes(bell);
    }

    // Handles and publishes everything that is due. Returns the time until something is due next,
    // if anything is.
    std::optional<std::chrono::nanoseconds> wake() EXCLUDES(publish_mutex_);

    // Checks whether the track that started last can be played. May wait for the disk.
    void check_file() EXCLUDES(publish_mutex_);

    // Publishes a source that has changed, or whose contents have changed. If it is no longer a
    // source, a player that plays from it stops.
    void source_changed(int32_t id) EXCLUDES(publish_mutex_);
    // The same for every source.
    void sources_changed() EXCLUDES(publish_mutex_);

    const std::string name;

  private:
    // The sound's queries and reports, on its own threads.
    sound::Wanted wanted() override { return engine_.wanted(); }
    int open_song(int64_t song) override { return catalogue_.open(song); }
    std::optional<sound::Part> part_of(int64_t song) override {
        std::optional<catalogue::SongPart> part = catalogue_.part(song);
        if (!part) {
            return std::nullopt;
        }
        return sound::Part{part->start_us, part->stop_us, std::move(part->file)};
    }
    void started(uint64_t cue, int64_t position_us) override;
    void reached(uint64_t cue, int64_t position_us) override;
    void ended(uint64_t cue) override;
    void failed(uint64_t cue, int32_t error) override;
    void output_lost(const Error &why) override;
    void no_output(const Error &why) override;
    void publish_report() noexcept;
    void say(int severity, const std::string &line) EXCLUDES(publish_mutex_);

    struct Kept {
        SessionPtr session;
        Maker maker;
        bool maker_gone = false;
    };
    std::optional<std::vector<Kept>> with_room_for(const Maker &maker,
                                                   const TrackSession *without = nullptr) const
        REQUIRES(mutex_);
    void add(std::vector<Kept> kept, SessionPtr session, const Maker &maker, int32_t index,
             bool play, std::vector<Kept> &replaced) REQUIRES(mutex_);
    int check_room(const Engine::Snapshot &now, size_t songs, int32_t start, const Maker &maker)
        EXCLUDES(mutex_);
    std::optional<int> make_current(const Engine::Snapshot &from, const SessionPtr &session,
                                    int32_t index, int32_t start, const Maker &maker)
        EXCLUDES(mutex_);
    void publish_change(const Engine::Change &change) REQUIRES(publish_mutex_);
    bool publish_source(int32_t id) EXCLUDES(publish_mutex_);
    void call_for_what_is_due();

    Engine engine_;
    catalogue::Catalogue &catalogue_;
    SessionIds &ids_;
    Mutex mutex_;
    std::vector<Kept> sessions_ GUARDED_BY(mutex_); // oldest first

    Calls calls_;                               // set by publish()
    std::atomic<uint64_t> published_count_ = 0; // the number of published changes of the engine
    Mutex publish_mutex_;
    std::unique_ptr<publishing::Publisher> publisher_ GUARDED_BY(publish_mutex_);
    publishing::Publisher::Log log_ GUARDED_BY(publish_mutex_);
    // The song of the track published last, 0 if there is none.
    catalogue::SongId song_ GUARDED_BY(publish_mutex_) = 0;

    std::unique_ptr<sound::Sound> sound_; // changes only in silence(); uses all members above
};

} // namespace vantro::service::playback

#endif
