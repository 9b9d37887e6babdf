#include "service/sound/mpv_sound.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <exception>
#include <new>
#include <utility>

#include <fmt/format.h>

#include <vantro/catalogue.h>

#include "service/free_thread.h"

namespace vantro::service::sound {

namespace {

constexpr double without_limit = -1;

// The pause after a round that failed for lack of memory.
constexpr double try_again_seconds = 1;

} // namespace

MpvSound::~MpvSound() {
    {
        const MutexLock guard(mutex_);
        stop_ = true;
        if (core_) {
            core_->give_output_up(); // mpv's thread may wait for the reader of a pipe
            core_->wake();
        }
    }
    if (thread_.joinable()) {
        thread_.join();
    }
}

void MpvSound::look() noexcept {
    try {
        const MutexLock guard(mutex_);
        looked_ = true;
        if (core_) {
            core_->wake();
        }
        if (running_ || over_ || stop_ || !listener_.wanted().playing) {
            return;
        }
        start_thread();
    } catch (const std::exception &) {
        // The thread could not be made. The next look() tries again; every command calls it.
    }
}

void MpvSound::prepare() noexcept {
    try {
        const MutexLock guard(mutex_);
        if (running_ || over_ || stop_ || mpv_library_is_loaded()) {
            return;
        }
        prepare_ = true;
        start_thread();
    } catch (const std::exception &) {
        // The thread could not be made. The library is loaded when something plays.
    }
}

void MpvSound::start_thread() {
    if (thread_.joinable()) {
        thread_.join(); // the thread has nothing left to do
    }
    thread_ = start_free_thread([this] { run(); });
    running_ = true;
}

void MpvSound::set_replaygain(const std::string &mode) {
    {
        const MutexLock guard(mutex_);
        wanted_replaygain_ = mode;
    }
    look();
}

void MpvSound::run() {
    for (;;) {
        bool prepare = false;
        {
            const MutexLock guard(mutex_);
            looked_ = false;
            prepare = std::exchange(prepare_, false);
        }
        try {
            if (prepare) {
                // If this fails, it also fails when something plays, and is reported then.
                mpv_library();
            }
            if (listener_.wanted().playing && make_core()) {
                play_until_stopped();
                return;
            }
        } catch (const std::bad_alloc &) {
            // The next look() tries again.
        }
        const MutexLock guard(mutex_);
        if (stop_ || over_ || !looked_) {
            running_ = false;
            return;
        }
    }
}

bool MpvSound::make_core() {
    take_replaygain();
    auto made = MpvCore::make(options_, &files_, client_);
    if (!made) {
        output_failed(made.error());
        return false;
    }
    own_core_ = std::move(*made);
    const MutexLock guard(mutex_);
    core_ = own_core_.get();
    return true;
}

void MpvSound::play_until_stopped() {
    double seconds = 0;
    for (;;) {
        try {
            take_events(seconds);
            seconds = is_over() ? 0 : round().value_or(without_limit);
        } catch (const std::bad_alloc &) {
            seconds = try_again_seconds; // the next round makes the missing reports
        }
        if (is_over()) {
            break;
        }
    }
    {
        const MutexLock guard(mutex_);
        core_ = nullptr;
    }
    own_core_.reset();
}

bool MpvSound::is_over() {
    const MutexLock guard(mutex_);
    return stop_ || over_;
}

// Takes all pending events; waits for the first one.
void MpvSound::take_events(double seconds) {
    for (const mpv_event *event = &own_core_->wait(seconds); event->event_id != MPV_EVENT_NONE;
         event = &own_core_->wait(0)) {
        take(*event);
    }
}

// Returns when the next round is due, if not at the next event.
std::optional<double> MpvSound::round() {
    report_end_when_idle();
    const Wanted wanted = listener_.wanted();
    apply(wanted);
    return report_progress(wanted);
}

void MpvSound::take(const mpv_event &event) {
    switch (event.event_id) {
    case MPV_EVENT_START_FILE:
        entry_begins(static_cast<mpv_event_start_file *>(event.data)->playlist_entry_id);
        break;
    case MPV_EVENT_FILE_LOADED:
        current_.loaded = current_.open;
        break;
    case MPV_EVENT_SEEK:
        seeking_ = false;
        break;
    case MPV_EVENT_PLAYBACK_RESTART:
        // mpv also sends this event if the output has just failed, before it reports the failure.
        if (current_.open && own_core_->has_output()) {
            current_.placed = !seeking_;
            ever_heard_ = true;
            output_error_.clear();
            in_entry_ = true;
            choose_end();
        }
        break;
    case MPV_EVENT_HOOK:
        in_entry_ = false;
        before_entry_ends();
        choose_end();
        own_core_->go_on(*static_cast<mpv_event_hook *>(event.data));
        break;
    case MPV_EVENT_END_FILE:
        entry_ends(*static_cast<mpv_event_end_file *>(event.data));
        break;
    case MPV_EVENT_LOG_MESSAGE: {
        const auto &message = *static_cast<mpv_event_log_message *>(event.data);
        // The first message has the reason; the last one only says that no output is left to try.
        if (std::strncmp(message.prefix, "ao", 2) == 0 && output_error_.empty()) {
            output_error_ = std::string(message.text, std::strcspn(message.text, "\n"));
        }
        break;
    }
    default:
        break;
    }
}

void MpvSound::entry_begins(int64_t number) {
    if (number == following_.number) {
        current_ = std::exchange(following_, {});
    }
    current_.open = number == current_.number;
    if (number > current_.number) {
        // mpv went on to an entry just before that entry was replaced. After stop() mpv becomes
        // idle, and the listener is asked again.
        own_core_->stop();
        following_ = {};
    }
}

// mpv has decoded an entry to its end, or drops it, and waits. If mpv has no following entry yet,
// because this entry is short or the output is faster than the music, this is the last chance to
// add one: without a following entry mpv closes the output.
void MpvSound::before_entry_ends() noexcept {
    if (!current_.open || !current_.placed || following_.number != 0) {
        return;
    }
    try {
        if (following_.joined) {
            // mpv has played the joined part too, unless `end` was moved too late.
            const std::optional<int64_t> reached = own_core_->position_us();
            if (reached && *reached > current_.part.stop_us + near_enough_us) {
                play_on(0);
            } else {
                following_ = {};
            }
        }
        report_start(current_.cue.position_us);
        apply(listener_.wanted());
    } catch (const std::bad_alloc &) {
        // The following entry is added later, with a gap.
    }
}

void MpvSound::entry_ends(const mpv_event_end_file &end) {
    if (end.playlist_entry_id != current_.number || end.reason == MPV_END_FILE_REASON_STOP) {
        return;
    }
    current_.open = false;
    if (end.reason == MPV_END_FILE_REASON_ERROR && end.error == MPV_ERROR_AO_INIT_FAILED) {
        own_core_->stop(); // else mpv would try the next entry
        forget_all();
        std::string text = std::exchange(output_error_, {});
        if (own_core_->tries_several()) {
            text = fmt::format("none can be opened{}; the last: {}",
                               options_.device.empty() ? "" : ", '" + options_.device + "' neither",
                               text);
        }
        output_failed(Error(Error::Origin::library, ENODEV,
                            text.empty() ? own_core_->text_of(end.error) : text));
        return;
    }
    failure_ = failure_of(end);
    if (failure_ == 0) {
        ending_ = current_.cue.number;
        report_start(current_.cue.position_us);
    } else if (following_.number != 0) {
        // mpv continues with the following entry, and so does the listener.
        failed_ = current_.cue.number;
        listener_.failed(current_.cue.number, std::exchange(failure_, 0));
    }
}

// The VANTRO_ERROR_* for which the current entry could not be played to its end, or 0.
int32_t MpvSound::failure_of(const mpv_event_end_file &end) {
    if (const int32_t error = files_.error_of(current_.opened); error != 0) {
        return error;
    }
    const bool sought_to_end =
        end.error == MPV_ERROR_NOTHING_TO_PLAY && current_.cue.position_us > 0;
    return end.reason == MPV_END_FILE_REASON_EOF || sought_to_end ? 0 : VANTRO_ERROR_DAMAGED;
}

// If mpv is idle, it has no following entry, and the end of the last one has been heard. The
// following entry may have been added too late: an idle mpv does not start it.
void MpvSound::report_end_when_idle() {
    for (int64_t number = -1; number != current_.number;) {
        if (current_.number == 0 || current_.open || (ending_ == 0 && failure_ == 0) ||
            !own_core_->flag("idle-active")) {
            return;
        }
        number = current_.number;
        take_events(0); // mpv may have gone on to the next entry, and ended that too
    }
    if (failure_ != 0) {
        failed_ = current_.cue.number;
        listener_.failed(failed_, failure_);
    } else {
        report_start(current_.cue.position_us);
        listener_.ended(ending_);
    }
    forget_all();
}

void MpvSound::take_replaygain() {
    const MutexLock guard(mutex_);
    if (wanted_replaygain_ == options_.replaygain) {
        return;
    }
    options_.replaygain = wanted_replaygain_;
    if (own_core_) {
        own_core_->set_text("replaygain", options_.replaygain.c_str());
    }
}

void MpvSound::apply(const Wanted &wanted) {
    take_replaygain();
    if (std::exchange(rate_, wanted.rate) != wanted.rate) {
        own_core_->set_number("speed", static_cast<double>(wanted.rate));
    }
    if (std::exchange(volume_, wanted.volume) != wanted.volume) {
        own_core_->set_number("volume", wanted.volume);
    }
    if (std::exchange(muted_, wanted.muted) != wanted.muted) {
        own_core_->set_flag("mute", wanted.muted);
    }
    // mpv gets the following entry before it plays: an output may be faster than the music.
    if (!wanted.playing) {
        hold(true);
    }
    go_to(wanted);
    if (wanted.playing) {
        hold(false);
    }
}

void MpvSound::hold(bool held) {
    if (std::exchange(held_, held) != held) {
        own_core_->set_flag("pause", held);
    }
}

// Returns the seconds until the following track will have started, if that is soon.
std::optional<double> MpvSound::report_progress(const Wanted &wanted) {
    if (!current_.open || !current_.placed) {
        return std::nullopt;
    }
    // Near the end of a track mpv has no position any more, though the track is still heard.
    std::optional<int64_t> known = own_core_->position_us();
    if (known) {
        *known -= current_.part.start_us;
    }
    if (current_.reported) {
        if (known && current_.cue.number == wanted.now.number) {
            listener_.reached(current_.cue.number, *known);
        }
        return following_.joined && known ? progress_to_next(wanted, *known) : std::nullopt;
    }
    const int64_t position = known.value_or(current_.cue.position_us);
    if (position < -near_enough_us) {
        const double left = static_cast<double>(-position) / 1e6 / static_cast<double>(rate_);
        return wanted.playing ? std::optional(left) : std::nullopt;
    }
    report_start(std::max<int64_t>(position, 0));
    return 0; // ask the listener for the new following track
}

// The same for a part that mpv plays on into. `position_us` is in the current part.
std::optional<double> MpvSound::progress_to_next(const Wanted &wanted, int64_t position_us) {
    const int64_t left = current_.part.stop_us - current_.part.start_us - position_us;
    if (left > near_enough_us) {
        const double seconds = static_cast<double>(left) / 1e6 / static_cast<double>(rate_);
        return wanted.playing ? std::optional(seconds) : std::nullopt;
    }
    play_on(-left);
    return 0;
}

void MpvSound::report_start(int64_t position_us) {
    if (current_.reported) {
        return;
    }
    listener_.started(current_.cue.number, position_us);
    current_.reported = true;
    if (ending_ != current_.cue.number) {
        ending_ = 0; // this also ended the track before
    }
}

// Reports that no output can be used; if `or_clock_` is set and none ever worked, ends the sound.
void MpvSound::output_failed(const Error &why) {
    if (or_clock_ && !ever_heard_) {
        {
            const MutexLock guard(mutex_);
            over_ = true;
        }
        listener_.no_output(why);
        return;
    }
    output_bad_ = true;
    listener_.output_lost(why);
}

} // namespace vantro::service::sound
