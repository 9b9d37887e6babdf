// One mpv, for sound alone: nothing of the user's configuration, no scripts, no network, no video.
#ifndef VANTRO_SERVICE_SOUND_MPV_CORE_H
#define VANTRO_SERVICE_SOUND_MPV_CORE_H

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "service/error.h"
#include "service/sound/mpv_files.h"
#include "service/sound/mpv_library.h"
#include "service/sound/pipe_output.h"

namespace vantro::service::sound {

// Outputs, each with what it is.
using Devices = std::vector<std::pair<std::string, std::string>>;

struct MpvOptions {
    // As mpv names outputs; `null` for one that plays to nobody, `pcm/FILE` for one that writes a
    // WAV file as fast as it can, `pipe:PATH` for samples in a named pipe; "" for mpv's choice.
    std::string device;
    std::string replaygain = "no"; // as mpv has it: track, album, no
};

class MpvCore {
  public:
    // Borrows the files; without them it plays nothing. `client` names it among the programs that
    // use an output.
    static Result<std::unique_ptr<MpvCore>> make(const MpvOptions &options, MpvFiles *files,
                                                 const std::string &client);
    ~MpvCore() {
        give_output_up();
        mpv_.terminate_destroy(core_);
    }
    MpvCore(const MpvCore &) = delete;
    MpvCore &operator=(const MpvCore &) = delete;

    // Plays a song in place of all others, from there in its part of the file. Returns the number
    // by which mpv's events name it, 0 where it is refused.
    int64_t load(int64_t song, const Part &part, int64_t position_us);
    // Plays it after the current one, in place of what was to follow.
    int64_t append(int64_t song, const Part &part);
    void forget_following();
    void stop();
    // Where in its file what is played ends; 0 for the file's end.
    void set_end(int64_t stop_us);
    // From the start of the file. False where mpv refuses.
    bool seek(int64_t position_us);
    void set_flag(const char *property, bool value);
    void set_number(const char *property, double value);
    void set_text(const char *property, const char *value);
    bool flag(const char *property) const;
    // Whether the output takes music as fast as it is heard: no file, and no pipe.
    bool in_real_time() const { return in_real_time_; }
    // Whether an output is open.
    bool has_output() const;
    // In the file, of what is heard: before the song's start while the end of the one before it
    // still is.
    std::optional<int64_t> position_us() const;

    // The next event; MPV_EVENT_NONE after that time, or after wake(). Below 0: without limit.
    const mpv_event &wait(double seconds) { return *mpv_.wait_event(core_, seconds); }
    // After an event MPV_EVENT_HOOK, which mpv waits with.
    void go_on(const mpv_event_hook &hook) { mpv_.hook_continue(core_, hook.id); }
    // Any thread.
    void wake() { mpv_.wakeup(core_); }
    // For good: mpv then waits for no reader of a pipe. Any one thread at a time.
    void give_output_up() { pipe_.give_up(); }

    const char *text_of(int error) const { return mpv_.error_string(error); }

    Devices devices() const;

  private:
    MpvCore(const MpvLibrary &mpv, mpv_handle *core) : mpv_(mpv), core_(core) {}
    int64_t load_file(int64_t song, const char *how, int64_t start_us, int64_t stop_us);

    const MpvLibrary &mpv_;
    mpv_handle *const core_;
    PipeOutput pipe_;
    bool in_real_time_ = true;
};

// The outputs that there are now. Fails without mpv.
Result<Devices> mpv_devices();

} // namespace vantro::service::sound

#endif
