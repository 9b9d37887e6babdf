// The complete path of a playback command, from the player API to vantrod's engine and back.
#include <filesystem>
#include <fstream>

#include <fmt/format.h>

#include "bench/run.h"
#include "bench/service.h"
#include "bench/waiting_readers.h"

namespace vantro::bench {

namespace {

constexpr const char *player_name = "main";

// The time from one command of command_changes_N to the next. Readers use some of it until all of
// them sleep again. Without readers the next command would follow immediately, while the service
// still polls for it: then the rows would differ by the saving through polling, and not by the cost
// of readers.
constexpr int64_t between_commands_ns = 3'000'000;

void append(std::string &bytes, uint32_t value, int width) {
    for (int i = 0; i < width; ++i) {
        bytes += static_cast<char>(value >> (8 * i));
    }
}

// Half an hour of silence, longer than any run, as a sparse WAV file.
void write_silence(const std::filesystem::path &path) {
    constexpr uint32_t rate = 8000;
    constexpr uint32_t frame_bytes = 2;
    constexpr uint32_t data_bytes = rate * frame_bytes * 1800;
    std::string header = "RIFF";
    append(header, 36 + data_bytes, 4);
    header += "WAVEfmt ";
    append(header, 16, 4);
    append(header, 1, 2); // PCM
    append(header, 1, 2); // one channel
    append(header, rate, 4);
    append(header, rate * frame_bytes, 4);
    append(header, frame_bytes, 2);
    append(header, 8 * frame_bytes, 2);
    header += "data";
    append(header, data_bytes, 4);

    std::ofstream file(path, std::ios::binary);
    file << header;
    file.close();
    std::error_code error;
    std::filesystem::resize_file(path, header.size() + data_bytes, error);
    if (!file || error) {
        fail("cannot write " + path.string());
    }
}

std::string music_with_silence(const std::string &directory) {
    const std::filesystem::path music = std::filesystem::path(directory) / "music";
    std::filesystem::create_directory(music);
    write_silence(music / "silence.wav");
    return music.string();
}

std::vector<std::string> command(const std::string &music, const std::string &state,
                                 const std::vector<std::string> &audio) {
    std::vector<std::string> words = {
        program_beside("vantrod"),        "--music", music, "--player", player_name, "--threads",
        std::to_string(Service::threads), "--state", state};
    words.insert(words.end(), audio.begin(), audio.end());
    return words;
}

} // namespace

Service::Service(const std::string &music, const std::string &state,
                 const std::vector<std::string> &audio)
    : child_(command(music, state, audio)) {
    child_.wait_for_line("vantrod: ready");
}

SilentService::SilentService(const std::string &directory, const std::vector<std::string> &audio)
    : Service(music_with_silence(directory), directory + "/state", audio) {
    wait_until_scanned();
}

Player open_player(const char *name) {
    Player player(vantro_connect());
    if (!player || vantro_open(player.get(), name) != 0) {
        fail(fmt::format("cannot open the player {}", name));
    }
    return player;
}

void play_row(Run &run) {
    if (!run.wants("play")) {
        return;
    }
    const Apart apart;
    const SilentService service(run.directory);
    const Player player = open_player();
    const auto play = [&] {
        if (vantro_play(player.get()) != 0) {
            fail("vantrod refused to play");
        }
    };
    run.against_floor({{"play", Service::threads, each(play)}}, 20000);
}

// Commands that publish a change, while a number of readers wait. Each starts when all readers
// sleep again, and at the same time after the previous command in every row.
void command_rows(Run &run) {
    std::vector<int> crowds;
    for (const int crowd : {0, 1, 10, 100}) {
        if (run.wants(fmt::format("command_changes_{}", crowd))) {
            crowds.push_back(crowd);
        }
    }
    if (crowds.empty()) {
        return;
    }
    const Apart apart;
    const SilentService service(run.directory);
    const Player player = open_player();
    int turn = 0;
    int64_t last = 0;
    const auto command = [&] {
        VantroHandle *const handle = player.get();
        const int step = turn++ % 4;
        const int result = step == 0   ? vantro_repeat(handle, VANTRO_REPEAT_ALL)
                           : step == 1 ? vantro_pause(handle)
                           : step == 2 ? vantro_repeat(handle, VANTRO_REPEAT_OFF)
                                       : vantro_play(handle);
        if (result != 0) {
            fail("vantrod refused a command");
        }
    };
    if (vantro_play(player.get()) != 0) {
        fail("vantrod refused to play");
    }
    std::vector<Contender> contenders;
    contenders.reserve(crowds.size());
    for (const int crowd : crowds) {
        contenders.push_back({fmt::format("command_changes_{}", crowd), Service::threads,
                              [&, crowd](size_t commands, Samples &samples) {
                                  WaitingReaders readers(crowd, player_name,
                                                         WaitingReaders::Run::anywhere, command);
                                  for (size_t i = 0; i < commands; ++i) {
                                      readers.sleep();
                                      while (now_ns() - last < between_commands_ns) {
                                      }
                                      const int64_t before = now_ns();
                                      command();
                                      last = now_ns();
                                      samples.add(last - before);
                                  }
                              }});
    }
    run.against_floor(contenders, 1000);
}

} // namespace vantro::bench
