// The interface between a player and its output of sound.
//
// A sound does not take single commands. It asks its listener, the player, for the complete wanted
// state, applies that state, and reports what is heard. So commands do not queue up while a file is
// being opened, and the player holds no lock while the sound waits for an output.
//
// A cue is a place from which music is to be heard: the start of a track, or the target of a seek.
// It has a number that is never reused, and every report names its cue. Reports about a cue that is
// over are ignored.
//
// The only implementation is mpv (mpv_sound.h). A player without a sound computes its position from
// the clock (service/playback/engine.h).
#ifndef VANTRO_SERVICE_SOUND_SOUND_H
#define VANTRO_SERVICE_SOUND_SOUND_H

#include <cstdint>
#include <optional>
#include <string>

#include "service/error.h"

namespace vantro::service::sound {

struct Cue {
    uint64_t number = 0; // 0: no cue
    int64_t song = 0;    // the catalogue's row number
    int64_t position_us = 0;
};

// The part of a file that is a song, in microseconds; a `stop_us` of 0 is the file's end. Positions
// of cues count from the part's start.
struct Part {
    int64_t start_us = 0;
    int64_t stop_us = 0;
    std::string file; // identifies the file: equal for equal files
};

struct Wanted {
    Cue now;              // no cue: silence, and the output may be closed
    Cue next;             // follows without a gap, from its start
    bool playing = false; // false: paused in `now`
    float rate = 1;
    int32_t volume = 100; // 0 to 100
    bool muted = false;
};

class Listener {
  public:
    virtual ~Listener() = default;

    virtual Wanted wanted() = 0;

    // Opens a song's file. Links on the path cannot lead out of its directory of music. Returns a
    // descriptor, or -1 and errno.
    virtual int open_song(int64_t song) = 0;
    // The song's part of its file; nothing if it cannot be read now.
    virtual std::optional<Part> part_of(int64_t song) = 0;

    // The start of a cue is heard, or would be heard if the player were not paused. For the cue
    // `next` this also reports that the track before it has ended.
    virtual void started(uint64_t cue, int64_t position_us) = 0;
    // The position of the cue that is heard now.
    virtual void reached(uint64_t cue, int64_t position_us) = 0;
    // The end of the cue's track was heard, and nothing follows.
    virtual void ended(uint64_t cue) = 0;
    // The cue's file cannot be played; `error` is a VANTRO_ERROR_*.
    virtual void failed(uint64_t cue, int32_t error) = 0;
    // The output disappeared, or cannot be opened. It is tried again at the next play.
    virtual void output_lost(const Error &why) = 0;
    // No output was ever open, and the sound has ended: the player must follow the clock instead.
    virtual void no_output(const Error &why) = 0;
};

class Sound {
  public:
    virtual ~Sound() = default;

    // The wanted state may have changed, or the listener wants a report of the position. Any
    // thread; returns at once.
    virtual void look() noexcept = 0;

    // Playing may start soon: does the slow preparations that are the same for all players. Any
    // thread; returns at once.
    virtual void prepare() noexcept = 0;

    // Changes MpvOptions::replaygain, also for the current track. Any thread; returns at once.
    virtual void set_replaygain(const std::string &mode) = 0;
};

} // namespace vantro::service::sound

#endif
