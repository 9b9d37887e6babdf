// The track sessions of a player: made, kept, and destroyed.
#include "service/playback/player.h"

#include <algorithm>
#include <cerrno>
#include <utility>

#include <vantro/catalogue.h>

#include "service/playback/node_list.h"

namespace vantro::service::playback {

namespace {

// Taken at once, so that hardly any request waits for the disk. Those left at the end are lost.
constexpr int32_t ids_at_once = 64;

// The songs of a session, and behind its current one, or behind all of them, those that are added.
std::vector<catalogue::QueuedSong> with_added(const TrackSession &session, int32_t index,
                                              const std::vector<catalogue::QueuedSong> &added,
                                              int32_t start) {
    std::vector<catalogue::QueuedSong> songs;
    songs.reserve(session.songs.size() + added.size());
    songs = session.songs;
    const auto at = start == VANTRO_TRKSESSION_INSERT ? songs.begin() + index + 1 : songs.end();
    songs.insert(at, added.begin(), added.end());
    return songs;
}

} // namespace

uint64_t SessionIds::take() {
    const MutexLock guard(mutex_);
    if (left_ == 0) {
        next_ = catalogue_.take_session_ids(ids_at_once);
        if (next_ <= 0) {
            return 0;
        }
        left_ = ids_at_once;
    }
    --left_;
    return static_cast<uint64_t>(next_++);
}

// The sessions as they are without one of them, and once there is room for one more; nothing where
// there cannot be.
std::optional<std::vector<Player::Kept>> Player::with_room_for(const Maker &maker,
                                                               const TrackSession *without) const {
    std::vector<Kept> kept = sessions_;
    std::erase_if(kept, [without](const Kept &each) { return each.session.get() == without; });
    const auto own = [&](const Kept &each) { return each.maker.uid == maker.uid; };
    const auto limited = [](const Kept &each) { return each.maker.limited; };
    const auto any = [](const Kept &) { return true; };
    // Drops the oldest one that may go, where there are as many as may be.
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

// Keeps those and the new session, which becomes the current one, in place of what was kept.
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
    const uint64_t tsid = ids_.take();
    if (tsid == 0) {
        return EIO;
    }
    auto session =
        std::make_shared<const TrackSession>(tsid, VANTRO_TRKSESSION_ALL, std::move(songs));

    std::vector<Kept> replaced; // goes after the lock
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
    const bool adds = start == VANTRO_TRKSESSION_APPEND || start == VANTRO_TRKSESSION_INSERT;
    if (index < 0 || static_cast<size_t>(index) >= (adds ? 1 : songs.size())) {
        return ERANGE;
    }
    const bool replaces = adds || start == VANTRO_TRKSESSION_KEEP;
    {
        // Checked here already, so that refused requests use up no ids.
        const Engine::Snapshot now = engine_.snapshot();
        const MutexLock guard(mutex_);
        if (!with_room_for(maker, replaces ? now.session.get() : nullptr)) {
            return ENOSPC;
        }
    }
    tsid = ids_.take();
    if (tsid == 0) {
        return EIO;
    }
    for (;;) {
        const Engine::Snapshot now = engine_.snapshot();
        const bool alone = !replaces || !now.session;
        SessionPtr session = std::make_shared<const TrackSession>(
            tsid, VANTRO_TRKSESSION_NODE,
            alone || !adds ? songs : with_added(*now.session, now.index, songs, start));
        std::vector<Kept> replaced; // goes after the lock
        const MutexLock guard(mutex_);
        std::optional<std::vector<Kept>> kept =
            with_room_for(maker, alone ? nullptr : now.session.get());
        if (!kept) {
            return ENOSPC;
        }
        if (alone) {
            add(std::move(*kept), std::move(session), maker, index, start == VANTRO_TRKSESSION_PLAY,
                replaced);
            return 0;
        }
        kept->push_back({session, maker});
        if (adds ? engine_.extend(now, session, start == VANTRO_TRKSESSION_INSERT)
                 : engine_.keep(now, session, index)) {
            sessions_.swap(*kept);
            replaced.swap(*kept);
            return 0;
        }
        // The player has gone on meanwhile.
    }
}

void Player::maker_gone(uint64_t number) noexcept {
    const MutexLock guard(mutex_);
    for (Kept &each : sessions_) {
        each.maker_gone = each.maker_gone || (each.maker.number == number && number != 0);
    }
}

int Player::destroy(uint64_t tsid) {
    SessionPtr dropped; // goes after the lock
    const MutexLock guard(mutex_);
    const auto found = std::find_if(sessions_.begin(), sessions_.end(), [tsid](const Kept &each) {
        return each.session->tsid == tsid;
    });
    if (found == sessions_.end()) {
        return ENOENT;
    }
    engine_.unload(tsid); // first, since there may be no memory for it
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
