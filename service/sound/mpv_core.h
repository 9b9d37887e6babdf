// One mpv instance, for sound only: without the user's configuration, scripts, network and video.
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

// Outputs: name and description of each.
using Devices = std::vector<std::pair<std::string, std::string>>;

struct MpvOptions {
    // mpv's name of an output; `null` discards the sound, `pcm/FILE` writes a WAV file as fast as
    // it can, `pipe:PATH` writes samples to a named pipe; "" for mpv's choice.
    std::string device;
    std::string replaygain = "no"; // mpv's values: track, album, no
};

class MpvCore {
  public:
    // Borrows `files`; if that is null, the core plays nothing. `client` is the name under which
    // the core uses an output.
    static Result<std::unique_ptr<MpvCore>> make(const MpvOptions &options, MpvFiles *files,
                                                 const std::string &client);
    ~MpvCore() {
        give_output_up();
        mpv_.terminate_destroy(core_);
    }
    MpvCore(const MpvCore &) = delete;
    MpvCore &operator=(const MpvCore &) = delete;

    // Replaces all entries by this song and plays it from `position_us`, which counts from the
    // start of `part`. Returns the number that mpv's events use for the entry; 0 if mpv refuses it.
    int64_t load(int64_t song, const Part &part, int64_t position_us);
    // Replaces the following entry by this song, which plays after the current one.
    int64_t append(int64_t song, const Part &part);
    void forget_following();
    void stop();
    // Sets where in its file the current entry ends; 0 for the file's end.
    void set_end(int64_t stop_us);
    // `position_us` counts from the start of the file. False if mpv refuses.
    bool seek(int64_t position_us);
    void set_flag(const char *property, bool value);
    void set_number(const char *property, double value);
    void set_text(const char *property, const char *value);
    bool flag(const char *property) const;
    // Whether the output takes music at the speed at which it is heard: neither a file nor a pipe.
    bool in_real_time() const { return in_real_time_; }
    // Whether other outputs are tried if the configured one cannot be opened.
    bool tries_several() const { return tries_several_; }
    // Whether an output is open.
    bool has_output() const;
    // The position in the file that is heard now. It is before the song's start while the end of
    // the previous song is still heard.
    std::optional<int64_t> position_us() const;
    // The position up to which the file was read. Decoded sound that still waits is before it.
    std::optional<int64_t> read_to_us() const { return time_us("demuxer-cache-time"); }

    // The next event; MPV_EVENT_NONE after `seconds`, or after wake(). A negative value waits
    // without limit.
    const mpv_event &wait(double seconds) { return *mpv_.wait_event(core_, seconds); }
    // mpv waits after an event MPV_EVENT_HOOK until this is called.
    void go_on(const mpv_event_hook &hook) { mpv_.hook_continue(core_, hook.id); }
    // Any thread.
    void wake() { mpv_.wakeup(core_); }
    // After this mpv never waits for a reader of a pipe. Any thread, one at a time.
    void give_output_up() { pipe_.give_up(); }

    const char *text_of(int error) const { return mpv_.error_string(error); }

    Devices devices() const;

  private:
    MpvCore(const MpvLibrary &mpv, mpv_handle *core) : mpv_(mpv), core_(core) {}
    int64_t load_file(int64_t song, const char *how, int64_t start_us, int64_t stop_us);
    std::optional<int64_t> time_us(const char *property) const;

    const MpvLibrary &mpv_;
    mpv_handle *const core_;
    PipeOutput pipe_;
    bool in_real_time_ = true;
    bool tries_several_ = false;
};

// The outputs available now. Fails without mpv.
Result<Devices> mpv_devices();

} // namespace vantro::service::sound

#endif
