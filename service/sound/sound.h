// What makes a player's music heard.
//
// A sound does not take commands one by one. It asks its listener, the player, for what is wanted
// now, as a whole, makes it so, and reports what is heard. So nothing that is asked while a file is
// still being opened queues up, and no lock of the player is held while an output is waited for.
//
// A cue is a place from which something is to be heard: the start of a track, or where a seek went.
// It has a number that is never used again, and every report names the cue that it is about. What
// is reported of a cue that is over is ignored.
//
// There are two kinds of sound: mpv (mpv_sound.h), and none. Without one the player works out from
// the clock what would be heard (service/playback/engine.h).
#ifndef VANTRO_SERVICE_SOUND_SOUND_H
#define VANTRO_SERVICE_SOUND_SOUND_H

#include <cstdint>
#include <string>

#include "service/error.h"

namespace vantro::service::sound {

struct Cue {
    uint64_t number = 0; // 0: there is none
    int64_t song = 0;    // as the catalogue numbers it
    int64_t position_us = 0;
};

// Which part of a file is a song, in microseconds; `stop_us` 0 is the file's end. Positions of cues
// count from the part's start.
struct Part {
    int64_t start_us = 0;
    int64_t stop_us = 0;
    std::string file; // the same text for the same file
};

struct Wanted {
    Cue now;              // none: nothing is to be heard, and the output may be closed
    Cue next;             // what follows without a gap, from its start
    bool playing = false; // else `now` is held
    float rate = 1;
    int32_t volume = 100; // of 100
    bool muted = false;
};

class Listener {
  public:
    virtual ~Listener() = default;

    virtual Wanted wanted() = 0;

    // Opens a song's file, whatever links lie on the way, inside its directory of music only.
    // Returns a descriptor, or -1 and errno.
    virtual int open_song(int64_t song) = 0;
    virtual Part part_of(int64_t song) = 0;

    // The first of a cue is heard, or would be if it were not held. For the cue `next` this tells
    // that the track before it has ended.
    virtual void started(uint64_t cue, int64_t position_us) = 0;
    // How far it is.
    virtual void reached(uint64_t cue, int64_t position_us) = 0;
    // The last of its track was heard, and nothing follows.
    virtual void ended(uint64_t cue) = 0;
    // Its file cannot be played: a VANTRO_ERROR_*.
    virtual void failed(uint64_t cue, int32_t error) = 0;
    // The output went away, or cannot be opened. It is tried again when playing is next asked for.
    virtual void output_lost(const Error &why) = 0;
    // There never was an output, and the sound is over: the clock is to take its place.
    virtual void no_output(const Error &why) = 0;
};

class Sound {
  public:
    virtual ~Sound() = default;

    // The listener may want something else than before, or to know the position. Any thread;
    // returns at once.
    virtual void look() noexcept = 0;

    // Playing may soon be wanted. What takes long and is the same for all players can be done
    // before. Any thread; returns at once.
    virtual void prepare() noexcept = 0;

    // As MpvOptions::replaygain, from now on. Any thread; returns at once.
    virtual void set_replaygain(const std::string &mode) = 0;
};

} // namespace vantro::service::sound

#endif
