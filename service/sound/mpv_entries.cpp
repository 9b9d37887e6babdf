// mpv's current and following entry.
#include "service/sound/mpv_sound.h"

#include <algorithm>
#include <utility>

#include <vantro/catalogue.h>

namespace vantro::service::sound {

namespace {

// Time allowed from reading a value of mpv until mpv has got the command that depends on it.
constexpr int64_t soon_us = 300'000;

} // namespace

void MpvSound::go_to(const Wanted &wanted) {
    if (wanted.now.number == 0) {
        if (current_.number != 0) {
            own_core_->stop();
            forget_all();
        }
        return;
    }
    if (output_bad_ && !wanted.playing) {
        return;
    }
    output_bad_ = false;
    if (wanted.now.number == ending_) {
        // The wanted following track may have changed after mpv went on to its following entry.
        if (current_.number != 0 && current_.cue.number != ending_ &&
            current_.cue.number != wanted.next.number) {
            listener_.ended(ending_);
        }
        return;
    }
    if (wanted.now.number != current_.cue.number) {
        if (wanted.now.number == failed_ && !wanted.playing) {
            return;
        }
        place(wanted.now);
    }
    if (failure_ != 0) {
        return; // the following track is known only after mpv becomes idle
    }
    const bool can_join = following_.number != 0 && plays_on_into(following_.part);
    if (wanted.next.number != following_.cue.number || can_join) {
        follow_with(wanted.next);
    }
    choose_end();
}

void MpvSound::follow_with(const Cue &cue) {
    following_ = {};
    // If the part cannot be read now, it is requested again, at the latest when the current entry
    // ends.
    const std::optional<Part> part =
        cue.number != 0 ? listener_.part_of(cue.song) : std::optional<Part>();
    following_.joined = part && plays_on_into(*part);
    set_end(following_.joined ? part->stop_us : current_.part.stop_us);
    if (!part || following_.joined) {
        own_core_->forget_following();
    }
    if (!part) {
        return;
    }
    following_.cue = cue;
    following_.part = *part;
    if (!following_.joined) {
        files_.forget(cue.song);
        following_.opened = cue.song;
        following_.stop_us = part->stop_us;
        following_.number = own_core_->append(cue.song, *part);
    }
}

// Whether `part` comes next in the file that mpv plays, and mpv can still move the end before it
// has decoded to the end of the current part: otherwise it discards the samples of the next part
// that it has decoded. The position up to which it has decoded depends on the output's buffers, and
// is not known; but mpv has read further than that.
bool MpvSound::plays_on_into(const Part &part) const {
    if (!own_core_->in_real_time() || !in_entry_ || !current_.open || !current_.placed ||
        current_.part.stop_us == 0 || part.start_us != current_.part.stop_us ||
        part.file != current_.part.file) {
        return false;
    }
    const std::optional<int64_t> read_to = own_core_->read_to_us();
    return read_to && *read_to + soon_us < current_.stop_us;
}

// mpv has reached the following part of the same file.
void MpvSound::play_on(int64_t position_us) {
    report_start(current_.cue.position_us);
    Entry next = std::exchange(following_, {});
    next.joined = false;
    next.number = current_.number;
    next.opened = current_.opened;
    next.stop_us = current_.stop_us;
    next.open = next.loaded = next.placed = true;
    current_ = std::move(next);
    report_start(std::max<int64_t>(position_us, 0));
}

void MpvSound::set_end(int64_t stop_us) {
    if (current_.open && std::exchange(current_.stop_us, stop_us) != stop_us) {
        own_core_->set_end(stop_us);
    }
}

// An entry that begins within a file begins with a seek, and the seek discards the previous entry's
// samples from the output's buffer. So mpv must go on to such an entry only when the buffer has
// been heard. While the current entry is a part and no following entry is known, a part may still
// follow. The option must not change while mpv goes from one entry to the other: mpv would open the
// output again.
void MpvSound::choose_end() {
    const bool part_follows =
        following_.number != 0 ? following_.part.start_us > 0 : current_.part.stop_us > 0;
    const bool plays_out = part_follows && in_entry_;
    if (std::exchange(plays_out_, plays_out) != plays_out) {
        own_core_->set_text("gapless-audio", plays_out ? "no" : "yes");
    }
}

// Makes mpv play from the cue.
void MpvSound::place(const Cue &cue) {
    ending_ = 0;
    failure_ = 0;
    if (current_.open && current_.loaded && current_.cue.song == cue.song) {
        seeking_ = true;
        if (own_core_->seek(current_.part.start_us + cue.position_us)) {
            current_.cue = cue;
            current_.placed = false;
            current_.reported = false;
            return;
        }
    }
    forget_all();
    files_.forget(cue.song);
    current_.cue = cue;
    current_.opened = cue.song;
    if (const std::optional<Part> part = listener_.part_of(cue.song)) {
        current_.part = *part;
        current_.stop_us = part->stop_us;
        current_.number = own_core_->load(cue.song, *part, cue.position_us);
    }
    if (current_.number == 0) { // no memory for the entry, or the catalogue cannot be read
        failed_ = cue.number;
        listener_.failed(cue.number, VANTRO_ERROR_UNREADABLE);
    }
}

void MpvSound::forget_all() {
    current_ = {};
    following_ = {};
    ending_ = 0;
    failure_ = 0;
    seeking_ = false;
}

} // namespace vantro::service::sound
