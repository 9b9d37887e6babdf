#include "bridges/mpd/partition.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <ctime>

#include <fmt/format.h>

#include <vantro/catalogue.h>
#include <vantro/platform/dictionary.h>

#include "bridges/mpd/service_call.h"

namespace vantro::mpd {
namespace {

using std::chrono::milliseconds;

// The service itself corrects positions by less; a jump shorter than this is inaudible.
constexpr milliseconds jump_least(700);

// Undecodable events in a row. If the file of a player's objects is corrupt, only such events come.
constexpr int misunderstood_max = 100;

// Tracks fetched at a time.
constexpr int32_t tracks_page = 2000;

// A session may be replaced while it is read.
constexpr int attempts = 5;

void add_line(std::string &nodes, const NodeKey &key) {
    nodes += fmt::format("{}{}:{}", nodes.empty() ? "" : "\n", key.source, key.id);
}

const char *error_text(int32_t code) {
    switch (code) {
    case VANTRO_ERROR_GONE:
        return "a file does not exist any more";
    case VANTRO_ERROR_UNREADABLE:
        return "a file cannot be read";
    case VANTRO_ERROR_DAMAGED:
        return "a file cannot be played";
    case VANTRO_ERROR_OUTPUT:
        return "the audio output cannot be used";
    default:
        return "the player has failed";
    }
}

} // namespace

bool Partition::connect() {
    Result<Player> player = reconnecting_.connect(name_.c_str(), [](Player &one) -> Result<void> {
        const Result<int> descriptor = one.events().descriptor();
        return descriptor ? Result<void>() : descriptor.failure();
    });
    if (!player) {
        absent_ = true;
        failure_ = refused(player, ENOENT) ? fmt::format("there is no player \"{}\"", name_)
                                           : std::string(ack_of(player.failure()).what());
        return false;
    }
    player_.emplace(*std::move(player));
    status_.reset();
    ++connections_;
    ++catalogue_version_;
    take_events();
    changed_at_ = std::time(nullptr); // earlier changes are not known
    if (std::exchange(absent_, false)) {
        news_ |= of_a_player();
    }
    return true;
}

Player &Partition::player() {
    if (!player_ && (!reconnecting_.is_due_when_asked() || !connect())) {
        throw Ack(AckCode::system, failure_);
    }
    return *player_;
}

int Partition::descriptor() {
    if (!player_) {
        return -1;
    }
    const Result<int> found = player_->events().descriptor();
    return found ? *found : -1;
}

void Partition::leave(const Ack &why) {
    draft_.reset();
    status_.reset();
    absent_ = true;
    failure_ = why.what();
    reconnecting_.lost(player_, dynamic_cast<const ServiceSilent *>(&why) != nullptr);
}

std::optional<Partition::Clock::time_point> Partition::retry_at() const {
    return player_ ? std::nullopt : std::optional(reconnecting_.retry_at());
}

void Partition::reconnect() {
    if (!player_ && reconnecting_.is_due()) {
        connect();
    }
}

Subsystems Partition::take_events() {
    Subsystems changed = std::exchange(news_, {});
    while (player_) {
        const Result<std::optional<Event>> event = player_->events().next();
        if (!event) {
            if (event.failure().number == EBADMSG && ++misunderstood_ < misunderstood_max) {
                status_.reset(); // for every event
                break;           // the following events are read the next time
            }
            leave(ServiceGone());
            if (misunderstood_ == misunderstood_max) {
                reconnecting_.put_off();
            }
            misunderstood_ = 0;
            return changed | only(Subsystem::player);
        }
        misunderstood_ = 0;
        if (!*event) {
            break;
        }
        note_for_status(**event);
        changed |= changes_of(**event);
    }
    return changed;
}

Subsystems Partition::miss_events() {
    status_.reset();
    ++catalogue_version_;
    return of_a_player();
}

bool Partition::jumped(milliseconds position, const VantroStateInfo &now) {
    const Clock::time_point time = Clock::now();
    milliseconds expected = position_;
    if (moving_) {
        const std::chrono::duration<double, std::milli> passed = time - position_at_;
        expected += milliseconds(static_cast<int64_t>(passed.count() * rate_));
    }
    position_ = position;
    position_at_ = time;
    moving_ = now.state == VANTRO_STATE_PLAYING;
    rate_ = now.rate;
    const milliseconds off = position > expected ? position - expected : expected - position;
    return off > jump_least;
}

Subsystems Partition::changes_of(const Event &event) {
    const VantroStateInfo now = event.now();
    if (const auto *failed = event.as<ErrorEvent>()) {
        error_ = error_text(failed->code);
        return only(Subsystem::player);
    }
    if (const auto *source = event.as<SourceEvent>()) {
        // A source that is gone has no type any more: that of the last playlist.
        if (source->type == VANTRO_SOURCE_PLAYLISTS || event.object() == saved_playlists_) {
            saved_playlists_ = event.object();
            note_saved_playlists();
            return only(Subsystem::stored_playlist);
        }
        changed_at_ = std::time(nullptr);
        ++catalogue_version_;
        return only(Subsystem::database) | only(Subsystem::update) |
               only(Subsystem::stored_playlist);
    }
    if (const auto *state = event.as<StateEvent>()) {
        Subsystems changed;
        if (state->before.state != now.state || state->before.rate != now.rate) {
            changed |= only(Subsystem::player);
        }
        if (state->before.state != now.state && now.state == VANTRO_STATE_IDLE) {
            changed |= only(Subsystem::playlist); // the end of a session causes no event
        }
        if (state->before.repeat != now.repeat || state->before.shuffle != now.shuffle) {
            changed |= only(Subsystem::options);
        }
        return changed;
    }
    if (event.as<SessionEvent>()) {
        return only(Subsystem::playlist) | only(Subsystem::player);
    }
    if (event.as<TrackEvent>()) {
        return only(Subsystem::player);
    }
    if (const auto *status = event.as<PositionEvent>()) {
        return jumped(status->position, now) ? only(Subsystem::player) : Subsystems();
    }
    if (event.object() == "volume") {
        const bool muted = event.attribute("muted").value_or("") == "true";
        return only(Subsystem::mixer) |
               (std::exchange(muted_, muted) == muted ? Subsystems() : only(Subsystem::output));
    }
    return {};
}

void Partition::note_for_status(const Event &event) {
    const auto *const state = event.as<StateEvent>();
    const VantroStateInfo now = event.now();
    if (state && status_ && state->before.state == now.state && state->before.rate == now.rate) {
        status_->state = now; // only the modes
    } else {
        status_.reset();
    }
}

const VantroStatus &Partition::status() {
    player();
    news_ |= take_events();
    if (!player_) {
        throw ServiceGone(); // a draft is lost with it, so the command must not go on
    }
    if (!status_) {
        status_ = checked(player().status());
        status_at_ = Clock::now();
    }
    return *status_;
}

milliseconds Partition::position() {
    const VantroStatus &now = status();
    milliseconds position(now.position);
    if (now.state.state == VANTRO_STATE_PLAYING) {
        const std::chrono::duration<double, std::milli> passed = Clock::now() - status_at_;
        position += milliseconds(static_cast<int64_t>(passed.count() * now.state.rate));
    }
    const milliseconds end(now.metadata ? now.metadata->duration : 0);
    return end.count() > 0 ? std::min(position, end) : position;
}

std::optional<int32_t> Partition::current() {
    const int32_t index = status().index;
    return index < 0 ? std::nullopt : std::optional(index);
}

std::vector<NodeKey> Partition::fetch_tracks(uint64_t tsid, int32_t offset) {
    std::vector<NodeKey> tracks;
    while (true) {
        MediaNode *nodes = nullptr;
        int count = tracks_page;
        if (vantro_get_trksession_tracks(player().handle(), tsid,
                                         offset + static_cast<int32_t>(tracks.size()), &count,
                                         &nodes) != 0) {
            throw_ack(Failure::last());
        }
        const List<MediaNode> page(nodes, count);
        for (const MediaNode &node : page) {
            tracks.push_back({node.ms_id, std::string(text(node.id))});
        }
        if (page.size() < static_cast<size_t>(tracks_page)) {
            return tracks;
        }
    }
}

const Queue &Partition::queue() {
    for (int attempt = 1;; ++attempt) {
        const VantroTrksessionInfo now = status().trksession;
        if (now.type == VANTRO_TRKSESSION_NONE) {
            queue_.replace(0, {});
            return queue_;
        }
        // A song that has left the catalogue is read as gone: its metadata cannot be requested.
        const uint64_t catalogue = catalogue_version_;
        if (now.tsid == queue_.tsid() && queue_read_at_ == catalogue) {
            return queue_;
        }
        try {
            queue_.replace(now.tsid, fetch_tracks(now.tsid, 0));
            queue_read_at_ = catalogue;
        } catch (const Ack &ack) {
            if (ack.code() != AckCode::no_exist || attempt == attempts) {
                throw;
            }
            status_.reset();
        }
    }
}

// @return the new session's id.
uint64_t Partition::append_to_session(const std::string &nodes) {
    const bool begins = queue().size() == 0;
    const uint64_t tsid = checked(player().create_session(0, nodes.c_str(), 0, Start::append));
    if (begins) {
        checked(player().stop()); // a song that never played must be stopped, not paused
    }
    return tsid;
}

void Partition::append(const std::string &nodes) {
    const QueueEntries before = queue().entries();
    const uint64_t tsid = append_to_session(nodes);
    if (before->empty()) {
        return;
    }
    // Only the new tracks are read if the last known track is unchanged, since the rest is then
    // unchanged too.
    std::vector<NodeKey> end = fetch_tracks(tsid, static_cast<int32_t>(before->size()) - 1);
    if (end.empty() || end.front() != before->back().key) {
        return;
    }
    std::vector<QueueEntry> all = *before;
    for (auto at = end.begin() + 1; at != end.end(); ++at) {
        QueueEntry entry;
        entry.id = queue_.take_id();
        entry.key = std::move(*at);
        all.push_back(std::move(entry));
    }
    queue_.take(tsid, std::move(all));
}

QueueDraft &Partition::draft() {
    if (!draft_) {
        draft_.emplace(queue());
    }
    return *draft_;
}

uint32_t Partition::draft_song(NodeKey key) {
    QueueDraft &changed = draft();
    const uint32_t id = queue_.take_id();
    changed.append(id, std::move(key));
    return id;
}

void Partition::commit() {
    if (!draft_) {
        return;
    }
    const QueueDraft draft = *std::move(draft_);
    draft_.reset();
    if (!draft.only_appended()) {
        commit_all(draft);
    } else if (!draft.added().empty()) {
        commit_added(draft);
    }
}

void Partition::commit_added(const QueueDraft &draft) {
    std::string nodes;
    for (const QueueEntry &entry : draft.added()) {
        add_line(nodes, entry.key);
    }
    const uint64_t tsid = append_to_session(nodes);
    // If another program has changed the session meanwhile, its tracks are read later.
    const bool empty = draft.size_before() == 0;
    std::vector<NodeKey> expected;
    if (!empty) {
        expected.push_back(draft.before()->back().key);
    }
    for (const QueueEntry &entry : draft.added()) {
        expected.push_back(entry.key);
    }
    const auto from = static_cast<int32_t>(empty ? 0 : draft.size_before() - 1);
    if (fetch_tracks(tsid, from) == expected) {
        std::vector<QueueEntry> all = *draft.before();
        all.insert(all.end(), draft.added().begin(), draft.added().end());
        queue_.take(tsid, std::move(all));
    }
}

void Partition::commit_all(const QueueDraft &draft) {
    const auto now = static_cast<uint32_t>(current().value_or(0));
    std::string nodes;
    std::vector<QueueEntry> kept;
    int32_t index = 0;
    uint32_t nearest = UINT32_MAX;
    for (const uint32_t place : draft.order()) {
        const QueueEntry &entry = draft.entry(place);
        if (entry.key.id.empty()) {
            continue; // it has left the catalogue, so no request can name it
        }
        if (place >= now && place < nearest) {
            nearest = place;
            index = static_cast<int32_t>(kept.size());
        }
        add_line(nodes, entry.key);
        kept.push_back(entry);
    }
    if (kept.empty()) {
        clear();
        return;
    }
    if (nearest == UINT32_MAX) {
        checked(player().stop()); // before the first track could be heard
    }
    const uint64_t tsid = checked(player().create_session(0, nodes.c_str(), index, Start::keep));
    if (draft.size_before() == 0) {
        checked(player().stop());
    }
    queue_.take(tsid, std::move(kept));
}

void Partition::clear() {
    if (const VantroTrksessionInfo now = status().trksession; now.type != VANTRO_TRKSESSION_NONE) {
        checked(player().destroy_session(now.tsid));
    }
}

} // namespace vantro::mpd
