#include "service/playback/player.h"

#include <algorithm>
#include <cerrno>
#include <new>
#include <utility>

#include <vantro/catalogue.h>
#include <vantro/platform/log.h>

namespace vantro::service::playback {

std::optional<Error> Player::publish(const object_readers &readers,
                                     const publishing::Publisher::Log &log, Calls calls) {
    const MutexLock guard(publish_mutex_);
    auto opened = publishing::Publisher::open(name, readers, log);
    if (!opened) {
        return opened.error();
    }
    publisher_ = std::move(*opened);
    log_ = log;
    calls_ = std::move(calls);
    publisher_->state(engine_.snapshot().modes, 0);
    for (const catalogue::Source &source : catalogue_.sources()) {
        publisher_->source(source, false);
    }
    return std::nullopt;
}

void Player::publish_changes(publishing::HeldBell &bell) {
    if (published_count_.load(std::memory_order_acquire) == engine_.changes()) {
        return;
    }
    if (sound_) {
        sound_->look(); // first, since publishing reads from a disk
    }
    bool more_than_ticks = false;
    try {
        const MutexLock guard(publish_mutex_);
        if (publisher_) {
            bell.hold(*publisher_);
        }
        // If publishing throws, the change stays for the next call.
        for (Engine::Change change; engine_.first_change(change); engine_.drop_change()) {
            if (publisher_) {
                publish_change(change);
            }
            more_than_ticks = more_than_ticks || change.what != Engine::Change::tick;
            published_count_.fetch_add(1, std::memory_order_release);
        }
    } catch (...) {
        if (calls_.wake_within) {
            calls_.wake_within(std::chrono::nanoseconds(0));
        }
        throw;
    }
    if (more_than_ticks) {
        call_for_what_is_due();
        if (calls_.keep) {
            calls_.keep();
        }
    }
}

// If the next work has become later, for example by a pause, the clock's thread is not woken: it
// later wakes once without work, which is cheaper.
void Player::call_for_what_is_due() {
    if (!calls_.wake_within) {
        return;
    }
    if (const auto next = engine_.next_wake()) {
        calls_.wake_within(*next);
    }
    if (engine_.has_start()) {
        calls_.check_file();
    }
}

// "state" comes first, in the order in which the library reports several changes read at once.
void Player::publish_change(const Engine::Change &change) {
    const Engine::Snapshot &now = change.now;
    if ((change.what & Engine::Change::state) != 0) {
        publisher_->state(now.modes, change.error);
    }
    if ((change.what & Engine::Change::volume) != 0) {
        publisher_->volume(now.volume);
    }
    if (!now.session) {
        if (song_ != 0) {
            publisher_->session_gone();
        }
        song_ = 0;
        return;
    }
    if ((change.what & Engine::Change::session) != 0) {
        publisher_->trksession(now.session->type, now.session->length(), now.session->tsid);
    }
    if ((change.what & Engine::Change::track) != 0) {
        song_ = now.session->songs[static_cast<size_t>(now.index)].id;
        catalogue::Node node;
        catalogue::SongMetadata metadata;
        const bool known = catalogue_.song(song_, node, metadata) == 0;
        publisher_->track(now.index, now.session->tsid, known ? &node : nullptr,
                          known ? &metadata : nullptr);
    }
    if ((change.what & (Engine::Change::position | Engine::Change::tick)) != 0) {
        publisher_->position(now.position_ms);
    }
}

std::optional<std::chrono::nanoseconds> Player::wake() {
    const auto next = engine_.wake();
    publish_changes();
    return next;
}

void Player::check_file() {
    // One check in a round: if the next track has to be checked, publish_changes() requests another
    // round.
    if (const auto start = engine_.take_start()) {
        engine_.checked(start->number, catalogue_.check(start->song));
        publish_changes();
    }
}

// A change that cannot be published for lack of memory stays for the clock's thread.
void Player::publish_report() noexcept {
    try {
        publish_changes();
    } catch (const std::bad_alloc &) {
    }
}

void Player::say(int severity, const std::string &line) {
    const MutexLock guard(publish_mutex_);
    if (log_) {
        log_(severity, "player \"" + name + "\": " + line);
    }
}

void Player::started(uint64_t cue, int64_t position_us) {
    engine_.started(cue, position_us);
    publish_report();
}

void Player::reached(uint64_t cue, int64_t position_us) {
    engine_.reached(cue, position_us);
    publish_report();
}

void Player::ended(uint64_t cue) {
    engine_.ended(cue);
    publish_report();
}

void Player::failed(uint64_t cue, int32_t error) {
    engine_.failed(cue, error);
    publish_report();
}

void Player::output_lost(const Error &why) {
    engine_.output_lost();
    publish_report();
    say(LOG_SEVERITY_WARNING, "paused: the audio output cannot be used: " + log_text(why));
}

void Player::no_output(const Error &why) {
    engine_.no_output();
    publish_report();
    say(LOG_SEVERITY_WARNING, "nothing is heard, positions follow the clock: " + log_text(why));
}

void Player::source_changed(int32_t id) {
    if (publish_source(id)) {
        engine_.source_gone(id);
        publish_changes();
    }
}

void Player::sources_changed() {
    std::vector<int32_t> ids;
    {
        const MutexLock guard(publish_mutex_);
        if (publisher_) {
            ids = publisher_->sources();
        }
    }
    for (const catalogue::Source &source : catalogue_.sources()) {
        ids.push_back(source.id);
    }
    for (const int32_t id : ids) {
        source_changed(id);
    }
}

// True if the source has gone. The catalogue is read with the lock held, so that a thread with an
// older state cannot publish a source that has gone.
bool Player::publish_source(int32_t id) {
    const MutexLock guard(publish_mutex_);
    if (!publisher_) {
        return false;
    }
    const std::vector<catalogue::Source> all = catalogue_.sources();
    const auto source =
        std::find_if(all.begin(), all.end(), [id](const auto &each) { return each.id == id; });
    const bool gone = source == all.end();
    if (gone) {
        publisher_->source_gone(id);
    } else {
        // A source changes continuously during a scan: only the end of the scan is published.
        publisher_->source(*source, source->status != VANTRO_SOURCE_SCANNING);
    }
    if (song_ == 0) {
        return gone;
    }
    catalogue::Node node;
    catalogue::SongMetadata metadata;
    const int result = catalogue_.song(song_, node, metadata);
    if (result != 0 && result != ENOENT) {
        return gone; // the catalogue failed: keep what was published
    }
    const bool known = result == 0;
    publisher_->track_changed(known ? &node : nullptr, known ? &metadata : nullptr);
    return gone;
}

} // namespace vantro::service::playback
