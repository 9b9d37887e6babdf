// Many machines that play in step: a player feeds a pipe, Snapcast's server reads it, and its
// clients write what each machine would play.
#include <algorithm>
#include <array>
#include <chrono>
#include <memory>
#include <thread>

#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fmt/format.h>

#include "tests/service/sound/sound.h"

namespace vantro::service {

namespace {

constexpr const char *server_program = "/usr/bin/snapserver";
constexpr const char *client_program = "/usr/bin/snapclient";
constexpr int rooms = 2;

// Both channels of half a second, at the pipe's 48,000 samples a second.
constexpr size_t silence_samples = 48'000;

int free_port() {
    const int socket = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    EXPECT_EQ(bind(socket, reinterpret_cast<sockaddr *>(&address), size), 0);
    EXPECT_EQ(getsockname(socket, reinterpret_cast<sockaddr *>(&address), &size), 0);
    close(socket);
    return ntohs(address.sin_port);
}

class Rooms : public Sound {
  protected:
    void SetUp() override {
        Sound::SetUp();
        if (access(server_program, X_OK) != 0 || access(client_program, X_OK) != 0) {
            GTEST_SKIP() << "Snapcast is not installed: many machines in step were NOT tested";
        }
        pipe_ = path_ + "/kitchen";
        ASSERT_EQ(mkfifo(pipe_.c_str(), 0600), 0);
        port_ = std::to_string(free_port());
        server_ = std::make_unique<test::Process>(std::vector<std::string>{
            server_program, "--config", "/dev/null", "--server.datadir", path_, "--http.enabled",
            "0", "--tcp.enabled", "0", "--stream.bind_to_address", "127.0.0.1", "--stream.port",
            port_, "--stream.codec", "flac", "--stream.source",
            "pipe://" + pipe_ + "?name=kitchen&sampleformat=48000:16:2&mode=read"});
    }

    // Returns when all of them write, silence at first.
    void start_clients() {
        for (int room = 0; room < rooms; ++room) {
            clients_[room].reset();
            std::filesystem::remove(file_of(room));
            clients_[room] = std::make_unique<test::Process>(std::vector<std::string>{
                client_program, "--host", "127.0.0.1", "--port", port_, "--instance",
                std::to_string(room + 1), "--hostID", fmt::format("room{}", room), "--player",
                "file:filename=" + file_of(room) + ",mode=w"});
        }
        for (int room = 0; room < rooms; ++room) {
            for (int tries = 0; heard_in(room).empty() && tries < longest_wait_ms / 50; ++tries) {
                std::this_thread::sleep_for(std::chrono::milliseconds(50));
            }
            ASSERT_FALSE(heard_in(room).empty()) << "room " << room;
        }
    }

    std::string file_of(int room) const { return fmt::format("{}/room{}", path_, room); }

    Samples heard_in(int room) const {
        std::ifstream file(file_of(room), std::ios::binary);
        const std::string bytes{std::istreambuf_iterator<char>(file), {}};
        return samples_of(bytes);
    }
    // The samples that a room hears, without the silence around them. Waits for half a second of
    // silence behind them.
    Samples await_sound(int room) const {
        const auto end_of_wait =
            std::chrono::steady_clock::now() + std::chrono::milliseconds(longest_wait_ms);
        for (;;) {
            const Samples all = heard_in(room);
            const auto begin =
                std::find_if(all.begin(), all.end(), [](int16_t sample) { return sample != 0; });
            const auto end =
                std::find_if(all.rbegin(), std::make_reverse_iterator(begin), [](int16_t sample) {
                    return sample != 0;
                }).base();
            const bool over = std::chrono::steady_clock::now() > end_of_wait;
            if (over || (begin != end && static_cast<size_t>(all.end() - end) > silence_samples)) {
                return {begin, end};
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
        }
    }

    std::string pipe_;
    std::string port_;
    std::unique_ptr<test::Process> server_;
    std::array<std::unique_ptr<test::Process>, rooms> clients_;
};

// A client whose clock is off, or that got no processor in time, leaves samples out or repeats
// some, which is its task: the test then plays again, a limited number of times. Where the sound
// begins and ends, the server may leave out a piece.
TEST_F(Rooms, HearTheSameSamples) {
    const Samples first = tone(12'000, 1), second = tone(12'000, 2); // a second each
    write("1.wav", wav(first, 48'000, 2));
    write("2.wav", wav(second, 48'000, 2));
    load("pipe:" + pipe_);
    const Samples wanted = first + second;
    std::string fault;
    for (int tries = 0; tries < 5 && (tries == 0 || !fault.empty()); ++tries) {
        fault.clear();
        start_clients();
        ASSERT_EQ(vantro_play(player_), 0);
        until_state(VANTRO_STATE_STOPPED);
        for (int room = 0; room < rooms; ++room) {
            const Samples heard = await_sound(room);
            const auto begin = std::search(wanted.begin(), wanted.end(), heard.begin(),
                                           heard.begin() + std::min<ptrdiff_t>(1000, heard.size()));
            const auto ends = std::mismatch(heard.begin(), heard.end(), begin, wanted.end());
            if (ends.first != heard.end() || heard.size() < wanted.size() * 9 / 10) {
                fault += fmt::format("room {}: {} of {} samples from {} on, and {} alike; ", room,
                                     heard.size(), wanted.size(), begin - wanted.begin(),
                                     ends.first - heard.begin());
            }
        }
    }
    EXPECT_EQ(fault, "") << "each time";
    service->kill(SIGTERM);
    EXPECT_EQ(service->wait(), 0);
}

} // namespace

} // namespace vantro::service
