// Sound by libmpv: one core a player, made when the player first plays.
//
// One thread makes the core, and only that thread calls the core and waits for it. In each round
// the thread takes all pending events, asks the listener for the wanted state, and applies it; so
// mpv's reports and the thread's calls cannot cross. The thread holds no lock while it calls mpv or
// the listener.
//
// mpv has at most two entries: the current one and the following one. When mpv goes from the first
// to the second, the end of the first is still in the output's buffer. So the start of the second
// is reported when its position reaches 0, and the end of an entry that nothing follows is reported
// when mpv becomes idle. At the end of each entry mpv waits until the thread has given it the
// following one.
//
// A part of a file is played with mpv's options `start` and `end`. If the next part of the same
// file follows, it gets no entry: `end` is moved, and the part has started when the position
// reaches its start.
//
// While nothing plays, the thread sleeps without a timer.
#ifndef VANTRO_SERVICE_SOUND_MPV_SOUND_H
#define VANTRO_SERVICE_SOUND_MPV_SOUND_H

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <thread>

#include "common/locks.h"
#include "service/sound/mpv_core.h"
#include "service/sound/mpv_files.h"
#include "service/sound/sound.h"

namespace vantro::service::sound {

// Positions are reported in steps of the output's buffer. A track counts as started when the
// position is this near to its start.
inline constexpr int64_t near_enough_us = 2000;

class MpvSound : public Sound {
  public:
    // Borrows the listener. `client` is the name under which the player uses an output. If
    // `or_clock` is true and no output was ever open, an output that cannot be opened ends the
    // sound (Listener::no_output).
    MpvSound(Listener &listener, std::string client, MpvOptions options, bool or_clock)
        : listener_(listener), client_(std::move(client)), options_(std::move(options)),
          or_clock_(or_clock), files_(listener), wanted_replaygain_(options_.replaygain) {}
    ~MpvSound() override;

    void look() noexcept override;
    void prepare() noexcept override;
    void set_replaygain(const std::string &mode) override;

  private:
    // One of mpv's entries.
    struct Entry {
        Cue cue;
        Part part;
        int64_t number = 0;    // mpv's; 0: no entry
        bool open = false;     // mpv has begun it
        bool loaded = false;   // seeking is possible
        bool placed = false;   // mpv is at the cue's position
        bool reported = false; // its start was reported
        // For the following entry: it is the next part of the same file, and mpv plays on into it.
        bool joined = false;
        int64_t opened = 0;  // the song whose file mpv has opened for it
        int64_t stop_us = 0; // where mpv ends it
    };

    void start_thread() REQUIRES(mutex_);
    void run();
    bool make_core();
    bool is_over();
    void play_until_stopped();
    std::optional<double> round();
    void take_events(double seconds);
    void take(const mpv_event &event);
    void entry_begins(int64_t number);
    void before_entry_ends() noexcept;
    void entry_ends(const mpv_event_end_file &end);
    int32_t failure_of(const mpv_event_end_file &end);
    void apply(const Wanted &wanted);
    void take_replaygain();
    void hold(bool held);
    void go_to(const Wanted &wanted);
    void place(const Cue &cue);
    bool plays_on_into(const Part &part) const;
    void follow_with(const Cue &cue);
    void play_on(int64_t position_us);
    void set_end(int64_t stop_us);
    void choose_end();
    void forget_all();
    void report_end_when_idle();
    std::optional<double> report_progress(const Wanted &wanted);
    std::optional<double> progress_to_next(const Wanted &wanted, int64_t position_us);
    void report_start(int64_t position_us);
    void output_failed(const Error &why);

    Listener &listener_;
    const std::string client_;
    MpvOptions options_; // used by the thread only
    const bool or_clock_;
    MpvFiles files_;
    std::unique_ptr<MpvCore> own_core_; // used by the thread only

    // These too are used by the thread only:
    Entry current_;
    Entry following_;
    uint64_t ending_ = 0; // cue whose end is being heard
    int32_t failure_ = 0; // VANTRO_ERROR_* of the current entry, not yet reported
    uint64_t failed_ = 0; // cue that failed last: while paused, it is not tried again
    bool seeking_ = false;
    bool in_entry_ = false;   // mpv plays the current entry, and is not leaving it yet
    bool plays_out_ = false;  // the current entry is heard to its end before the next one begins
    bool output_bad_ = false; // the output failed, and was not tried again yet
    bool ever_heard_ = false;
    std::string output_error_; // mpv's first message about a failing output
    bool held_ = true;         // a new core starts paused
    float rate_ = 0;
    int32_t volume_ = 100;
    bool muted_ = false;

    Mutex mutex_;
    MpvCore *core_ GUARDED_BY(mutex_) = nullptr;
    bool running_ GUARDED_BY(mutex_) = false; // the thread exists, and will ask the listener again
    bool looked_ GUARDED_BY(mutex_) = false;
    bool prepare_ GUARDED_BY(mutex_) = false; // asks the thread to load the library
    std::string wanted_replaygain_ GUARDED_BY(mutex_);
    bool stop_ GUARDED_BY(mutex_) = false;
    bool over_ GUARDED_BY(mutex_) = false; // the player follows the clock now
    std::thread thread_;                   // started with the lock held
};

} // namespace vantro::service::sound

#endif
