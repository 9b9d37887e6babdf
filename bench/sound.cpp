// From the command to the sound: the time from vantro_play() until the position of a player on
// mpv's null output moves.
#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include <vantro/catalogue.h>
#include <vantro/player.h>

#include "bench/run.h"
#include "bench/service.h"

namespace vantro::bench {

namespace {

constexpr const char *first_row = "sound_first";
constexpr const char *loaded_row = "sound_loaded";
constexpr const char *paused_row = "sound_paused";

const std::vector<std::string> heard = {"--audio", "mpv", "--audio-device", "null"};

// The time between loading and playing, as if a person did both.
constexpr std::chrono::milliseconds between{300};

int32_t position_of(VantroHandle *player) {
    int32_t position_ms = 0;
    if (vantro_get_current_track_position(player, &position_ms) != 0) {
        fail("vantrod has no position");
    }
    return position_ms;
}

// Loads a session, and destroys the session `before` if that is not 0. Returns the new session.
uint64_t load(VantroHandle *player, uint64_t before) {
    const int32_t index = 0;
    uint64_t session = 0;
    if (vantro_create_trksession(player, 1, "songs", &index, VANTRO_TRKSESSION_LOAD, &session) !=
            0 ||
        (before != 0 && vantro_destroy_trksession(player, before) != 0)) {
        fail("vantrod refused a session");
    }
    std::this_thread::sleep_for(between);
    return session;
}

void play_until_it_moves(VantroHandle *player, Samples &samples) {
    const int32_t before = position_of(player);
    const int64_t begin = now_ns();
    if (vantro_play(player) != 0) {
        fail("vantrod refused to play");
    }
    while (position_of(player) <= before) {
        if (now_ns() - begin > 20'000'000'000) {
            fail("nothing is heard: is libmpv installed?");
        }
    }
    samples.add(now_ns() - begin);
}

} // namespace

void sound_rows(Run &run) {
    const size_t count = run.iterations_or(30);
    Samples first;
    Samples loaded;
    Samples paused;
    if (run.wants(first_row)) {
        for (size_t i = 0; i < count; ++i) {
            const SilentService service(run.directory, heard);
            const Player player = open_player();
            load(player.get(), 0);
            play_until_it_moves(player.get(), first);
        }
        run.add(first_row, first, {}, Service::threads);
    }
    if (!run.wants(loaded_row) && !run.wants(paused_row)) {
        return;
    }
    const SilentService service(run.directory, heard);
    const Player player = open_player();
    Samples not_counted;
    uint64_t session = load(player.get(), 0);
    play_until_it_moves(player.get(), not_counted);
    for (size_t i = 0; i < count; ++i) {
        session = load(player.get(), session);
        play_until_it_moves(player.get(), loaded);
        vantro_pause(player.get());
        std::this_thread::sleep_for(between);
        play_until_it_moves(player.get(), paused);
    }
    if (run.wants(loaded_row)) {
        run.add(loaded_row, loaded, {}, Service::threads);
    }
    if (run.wants(paused_row)) {
        run.add(paused_row, paused, {}, Service::threads);
    }
}

} // namespace vantro::bench
