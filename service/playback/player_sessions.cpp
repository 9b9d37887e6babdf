// The track sessions of a player: making, keeping and destroying them.
#include "service/playback/player.h"

#include <algorithm>
#include <cerrno>
#include <utility>

#include <vantro/catalogue.h>

#include "service/playback/node_list.h"

namespace vantro::service::playback {

namespace {

// The number of ids taken at a time, so that few requests wait for the disk. Unused ids are lost at
// the end.
constexpr int32_t ids_at_once = 64;

// For a VANTRO_TRKSESSION_*: whether songs are added to the present ones, and whether the current
// song plays on.
bool adds(int32_t start) {
    return start == VANTRO_TRKSESSION_APPEND || start == VANTRO_TRKSESSION_INSERT;
}
bool goes_on(int32_t start) {
    return adds(start) || start == VANTRO_TRKSESSION_KEEP;
}

// The songs of the current session with the added songs after the current one, or after all.
std::vector<catalogue::QueuedSong> with_added(const Engine::Snapshot &now,
                                              const std::vector<catalogue::QueuedSong> &added,
                                              int32_t start) {
    std::vector<catalogue::QueuedSong> songs;
    songs.reserve(now.session->songs.size() + added.size());
    songs = now.session->songs;
    const auto at = start == VANTRO_TRKSESSION_INSERT ? songs.begin() + now.index + 1 : songs.end();
    songs.insert(at, added.begin(), added.end());
    return songs;
}

} // namespace

Result<uint64_t> SessionIds::take() {
    const MutexLock guard(mutex_);
    uint64_t id = 0;
    do {
        if (left_ == 0) {
            next_ = catalogue_.take_session_ids(ids_at_once);
            if (next_ <= 0) {
                return Error(Error::Origin::state, EIO,
                             "there is no free number for a track session");
            }
            left_ = ids_at_once;
        }
        --left_;
        id = static_cast<uint64_t>(next_++);
    } while (std::find(kept_.begin(), kept_.end(), id) != kept_.end());
    return id;
}

void SessionIds::keep(uint64_t id) {
    const MutexLock guard(mutex_);
    kept_.push_back(id);
}

// The sessions without `without`, and with room for a further one; nothing if there cannot be room.
std::optional<std::vector<Player::Kept>> Player::with_room_for(const Maker &maker,
                                                               const TrackSession *without) const {
    std::vector<Kept> kept = sessions_;
    std::erase_if(kept, [without](const Kept &each) { return each.session.get() == without; });
    const auto own = [&](const Kept &each) { return each.maker.uid == maker.uid; };
    const auto limited = [](const Kept &each) { return each.maker.limited; };
    const auto any = [](const Kept &) { return true; };
    // If the limit is reached, drops the oldest session that may be dropped.
    const auto make_room = [&](int most, const auto &counts) {
        const auto counted = [&](const Kept &each) {
            return each.session->type == VANTRO_TRKSESSION_NODE && counts(each);
        };
        if (std::count_if(kept.begin(), kept.end(), counted) < most) {
            return true;
        }
        const auto oldest = std::find_if(kept.begin(), kept.end(), [&](const Kept &each) {
            return each.maker_gone && counted(each);
        });
        if (oldest == kept.end()) {
            return false;
        }
        kept.erase(oldest);
        return true;
    };
    if (maker.limited &&
        (!make_room(sessions_of_one_user, own) || !make_room(sessions_of_all_users, limited))) {
        return std::nullopt;
    }
    return make_room(VANTRO_TRKSESSIONS_MAX, any) ? std::optional(std::move(kept)) : std::nullopt;
}

// Replaces the sessions by `kept` and the new session, which becomes the current one.
void Player::add(std::vector<Kept> kept, SessionPtr session, const Maker &maker, int32_t index,
                 bool play, std::vector<Kept> &replaced) {
    kept.push_back({session, maker});
    engine_.load(std::move(session), index, play);
    sessions_.swap(kept);
    replaced.swap(kept);
}

int Player::play() {
    if (const int result = engine_.play(); result != ENODATA) {
        return result;
    }
    std::vector<catalogue::QueuedSong> songs;
    if (const int result = catalogue_.all_songs(songs); result != 0) {
        return result;
    }
    if (songs.empty()) {
        return ENODATA;
    }
    const Result<uint64_t> tsid = ids_.take();
    if (!tsid) {
        return result_word(tsid.error());
    }
    auto session =
        std::make_shared<const TrackSession>(*tsid, VANTRO_TRKSESSION_ALL, std::move(songs));

    std::vector<Kept> replaced; // freed after the lock is released
    const MutexLock guard(mutex_);
    if (engine_.play() == 0) { // another client has made one meanwhile
        return 0;
    }
    std::vector<Kept> kept = sessions_;
    std::erase_if(kept,
                  [](const Kept &each) { return each.session->type == VANTRO_TRKSESSION_ALL; });
    add(std::move(kept), std::move(session), {}, any_index, true, replaced);
    return 0;
}

int Player::create(int32_t source, std::string_view nodes, int32_t index, int32_t start,
                   uint64_t &tsid, const Maker &maker) {
    if (start < VANTRO_TRKSESSION_LOAD || start > VANTRO_TRKSESSION_KEEP) {
        return ERANGE;
    }
    std::vector<catalogue::QueuedSong> songs;
    if (const int result = songs_of_nodes(catalogue_, source, nodes, songs); result != 0) {
        return result;
    }
    if (index < 0 || static_cast<size_t>(index) >= (adds(start) ? 1 : songs.size())) {
        return ERANGE;
    }
    // Checked already here, so that refused requests do not use up ids.
    if (const int result = check_room(engine_.snapshot(), songs.size(), start, maker);
        result != 0) {
        return result;
    }
    if (sound_) {
        sound_->prepare();
    }
    const Result<uint64_t> id = ids_.take();
    if (!id) {
        return result_word(id.error());
    }
    tsid = *id;
    const auto made = [tsid](std::vector<catalogue::QueuedSong> list) {
        return std::make_shared<const TrackSession>(tsid, VANTRO_TRKSESSION_NODE, std::move(list));
    };
    std::optional<int> result;
    if (!adds(start)) {
        const SessionPtr session = made(std::move(songs));
        while (!result) {
            result = make_current(engine_.snapshot(), session, index, start, maker);
        }
        return *result;
    }
    while (!result) {
        const Engine::Snapshot now = engine_.snapshot();
        if (const int refused = check_room(now, songs.size(), start, maker); refused != 0) {
            return refused;
        }
        const SessionPtr session = made(now.session ? with_added(now, songs, start) : songs);
        result = make_current(now, session, index, start, maker);
    }
    return *result;
}

int Player::check_room(const Engine::Snapshot &now, size_t songs, int32_t start,
                       const Maker &maker) {
    if (adds(start) && now.session &&
        now.session->songs.size() + songs > VANTRO_TRKSESSION_SONGS_MAX) {
        return EMSGSIZE;
    }
    const MutexLock guard(mutex_);
    return with_room_for(maker, goes_on(start) ? now.session.get() : nullptr) ? 0 : ENOSPC;
}

// Returns 0, ENOSPC, or nothing if the player has gone on since `from`.
std::optional<int> Player::make_current(const Engine::Snapshot &from, const SessionPtr &session,
                                        int32_t index, int32_t start, const Maker &maker) {
    const bool takes_place = goes_on(start) && from.session;
    std::vector<Kept> replaced; // freed after the lock is released
    const MutexLock guard(mutex_);
    std::optional<std::vector<Kept>> kept =
        with_room_for(maker, takes_place ? from.session.get() : nullptr);
    if (!kept) {
        return ENOSPC;
    }
    if (!takes_place) {
        add(std::move(*kept), session, maker, index, start == VANTRO_TRKSESSION_PLAY, replaced);
        return 0;
    }
    kept->push_back({session, maker});
    if (!(adds(start) ? engine_.extend(from, session, start == VANTRO_TRKSESSION_INSERT)
                      : engine_.keep(from, session, index))) {
        return std::nullopt;
    }
    sessions_.swap(*kept);
    replaced.swap(*kept);
    return 0;
}

void Player::restore(const Engine::Saved &saved, bool play) {
    const MutexLock guard(mutex_);
    if (saved.session) {
        ids_.keep(saved.session->tsid);
        sessions_.push_back({saved.session, {}, true});
    }
    engine_.restore(saved, play);
}

void Player::maker_gone(uint64_t number) noexcept {
    const MutexLock guard(mutex_);
    for (Kept &each : sessions_) {
        each.maker_gone = each.maker_gone || (each.maker.number == number && number != 0);
    }
}

int Player::destroy(uint64_t tsid) {
    SessionPtr dropped; // freed after the lock is released
    const MutexLock guard(mutex_);
    const auto found = std::find_if(sessions_.begin(), sessions_.end(), [tsid](const Kept &each) {
        return each.session->tsid == tsid;
    });
    if (found == sessions_.end()) {
        return ENOENT;
    }
    engine_.unload(tsid); // first, since it may fail for lack of memory
    dropped.swap(found->session);
    sessions_.erase(found);
    return 0;
}

SessionPtr Player::session(uint64_t tsid) {
    const MutexLock guard(mutex_);
    for (const Kept &each : sessions_) {
        if (each.session->tsid == tsid) {
            return each.session;
        }
    }
    return nullptr;
}

} // namespace vantro::service::playback
