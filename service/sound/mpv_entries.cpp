// What mpv plays, and what follows it.
#include "service/sound/mpv_sound.h"

#include <algorithm>
#include <utility>

#include <vantro/catalogue.h>

namespace vantro::service::sound {

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
        // What mpv went on with may not be what is to follow any more.
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
        return; // mpv becomes idle, and only then it is known what is to follow
    }
    const bool can_join = following_.number != 0 && plays_on_into(following_.part);
    if (wanted.next.number != following_.cue.number || can_join) {
        follow_with(wanted.next);
    }
    choose_end();
}

void MpvSound::follow_with(const Cue &cue) {
    following_ = {};
    const Part part = cue.number != 0 ? listener_.part_of(cue.song) : Part();
    following_.joined = cue.number != 0 && plays_on_into(part);
    set_end(following_.joined ? part.stop_us : current_.part.stop_us);
    if (cue.number == 0 || following_.joined) {
        own_core_->forget_following();
    }
    if (cue.number == 0) {
        return;
    }
    following_.cue = cue;
    following_.part = part;
    if (!following_.joined) {
        files_.forget(cue.song);
        following_.opened = cue.song;
        following_.stop_us = part.stop_us;
        following_.number = own_core_->append(cue.song, part);
    }
}

// Whether it is what comes next in the file that mpv plays, and mpv can be told so before it has
// decoded to the end of the current part.
bool MpvSound::plays_on_into(const Part &part) const {
    return own_core_->in_real_time() && in_entry_ && current_.open && current_.placed &&
           current_.part.stop_us > 0 && part.start_us == current_.part.stop_us &&
           part.file == current_.part.file;
}

// mpv has come to what follows in the same file.
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

// What begins within a file begins with a seek, and that throws away what the output still holds of
// the entry before. So mpv is to go on with it only when all of that has been heard. As long as
// nothing is known to follow a part of a file, another part may. While mpv goes from one to the
// other it must not be told so: it would open the output anew.
void MpvSound::choose_end() {
    const bool part_follows =
        following_.number != 0 ? following_.part.start_us > 0 : current_.part.stop_us > 0;
    const bool plays_out = part_follows && in_entry_;
    if (std::exchange(plays_out_, plays_out) != plays_out) {
        own_core_->set_text("gapless-audio", plays_out ? "no" : "yes");
    }
}

// Makes mpv play from there.
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
    current_.part = listener_.part_of(cue.song);
    current_.opened = cue.song;
    current_.stop_us = current_.part.stop_us;
    current_.number = own_core_->load(cue.song, current_.part, cue.position_us);
    if (current_.number == 0) { // there is no memory for it
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
