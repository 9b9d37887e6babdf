// The program itself, driven through the messaging layer.
#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <optional>
#include <thread>
#include <unistd.h>
#include <vector>

#include <gtest/gtest.h>

#include <vantro/messaging.h>
#include <vantro/player.h>
#include <vantro/protocol.h>

#include "service/music.h"
#include "tools/process.h"

namespace vantro {

namespace {

template <typename... Values>
std::string bytes(Values... values) {
    std::string all;
    (all.append(reinterpret_cast<const char *>(&values), sizeof values), ...);
    return all;
}

std::string request(uint16_t command, const std::string &rest = "") {
    return bytes(command, uint16_t{0}, static_cast<uint32_t>(rest.size()), uint64_t{0}) + rest;
}

std::string name(const std::string &text) {
    return bytes(static_cast<uint32_t>(text.size())) + text;
}

struct Client {
    MsgClient *client = msgclient_open(VANTRO_SERVICE_NAME, nullptr, 0);
    Client() = default;
    ~Client() { msgclient_close(client); }
    Client(const Client &) = delete;
    Client &operator=(const Client &) = delete;

    // The answer to a request, which must arrive whole.
    std::string ask(const std::string &what) const {
        std::string answer(VANTRO_REPLY_AREA, 'u');
        uint32_t length = 0;
        EXPECT_EQ(msgclient_putget(client, what.data(), static_cast<uint32_t>(what.size()),
                                   answer.data(), VANTRO_REPLY_AREA, &length, 0),
                  0);
        answer.resize(length);
        return answer;
    }
    // The result word of a request whose answer is nothing else.
    int32_t result(const std::string &what) const {
        const std::string answer = ask(what);
        int32_t word = -1;
        EXPECT_EQ(answer.size(), sizeof word);
        std::memcpy(&word, answer.data(), std::min(answer.size(), sizeof word));
        return word;
    }
};

class Vantrod : public RuntimeDirectory {
  protected:
    void start(const std::vector<std::string> &arguments) {
        std::vector<std::string> words = {VANTROD};
        words.insert(words.end(), arguments.begin(), arguments.end());
        service.emplace(words);
    }
    // The next line that the service itself prints; its log is between them.
    std::string told() {
        std::string line;
        do
            line = service->line();
        while (!line.empty() && line.rfind("vantrod: ", 0) != 0);
        return line;
    }
    std::optional<Process> service;
};

class Serving : public Vantrod {
  protected:
    void SetUp() override {
        Vantrod::SetUp();
        const std::filesystem::path music = path_ + "/music";
        make_music(music / "1.flac", 20'000, {"TITLE=One", "ARTIST=Anna", "TRACKNUMBER=1"});
        make_music(music / "2.ogg", 5'000, {"TITLE=Two", "TRACKNUMBER=2"});
        write_file(music / "3.mp3", "not music");
        start({"--music", music, "--player", "main", "--player", "kitchen", "--threads", "3"});
        ASSERT_EQ(told(), "vantrod: ready (2 tracks, players: main, kitchen)");
    }
};

const std::string open_main = request(VANTRO_COMMAND_OPEN, name("main"));
const std::string close_main = request(VANTRO_COMMAND_CLOSE, name("main"));
const std::string open_kitchen = request(VANTRO_COMMAND_OPEN, name("kitchen"));
const std::string state = request(VANTRO_COMMAND_GET_CURRENT_STATE);
const std::string track = request(VANTRO_COMMAND_GET_CURRENT_TRACK_INFO);
const std::string position = request(VANTRO_COMMAND_GET_CURRENT_TRACK_POSITION);

TEST_F(Serving, AnswersEveryCommandToTheByte) {
    const Client one;
    const Client other;
    ASSERT_EQ(one.result(open_main), 0);
    ASSERT_EQ(other.result(open_main), 0);
    EXPECT_EQ(one.ask(state), bytes(0, VANTRO_STATE_IDLE, 1.0f, 0, 0));
    EXPECT_EQ(one.ask(request(VANTRO_COMMAND_GET_CURRENT_TRKSESSION_INFO)),
              bytes(0, 1, 2, uint64_t{1}));
    const std::string id = "1/1.flac";
    const std::string node = bytes(1, 0, 1, 1) + name(id) + name("One");
    const std::string metadata =
        bytes(20'000, 0, 0, 0, 1) + name("One") + bytes(-1) + name("Anna") + bytes(-1, -1, -1, -1);
    EXPECT_EQ(one.ask(track), bytes(0, 0, uint64_t{1}, static_cast<int>(node.size()),
                                    static_cast<int>(metadata.size())) +
                                  node + metadata);

    // A player is shared by whoever has it open, and by nobody else.
    EXPECT_EQ(one.result(request(VANTRO_COMMAND_SET_PLAYBACK_RATE, bytes(2.0f))), 0);
    EXPECT_EQ(one.result(request(VANTRO_COMMAND_SHUFFLE, bytes(1))), 0);
    EXPECT_EQ(one.result(request(VANTRO_COMMAND_SHUFFLE, bytes(0))), 0);
    EXPECT_EQ(one.result(request(VANTRO_COMMAND_REPEAT, bytes(2))), 0);
    EXPECT_EQ(one.result(request(VANTRO_COMMAND_PLAY)), 0);
    EXPECT_EQ(other.ask(state), bytes(0, VANTRO_STATE_PLAYING, 2.0f, VANTRO_REPEAT_ONE, 0));
    EXPECT_EQ(other.result(request(VANTRO_COMMAND_PAUSE)), 0);
    EXPECT_EQ(other.result(request(VANTRO_COMMAND_NEXT)), 0);
    EXPECT_EQ(one.result(request(VANTRO_COMMAND_SEEK, bytes(99'999))), 0);
    EXPECT_EQ(one.ask(position), bytes(0, 5'000));
    EXPECT_EQ(one.ask(track).substr(0, 8), bytes(0, 1));
    EXPECT_EQ(one.result(request(VANTRO_COMMAND_PREVIOUS)), 0);
    EXPECT_EQ(one.ask(position), bytes(0, 0));
    EXPECT_EQ(one.result(request(VANTRO_COMMAND_STOP)), 0);
    EXPECT_EQ(one.ask(state).substr(0, 8), bytes(0, VANTRO_STATE_STOPPED));
    ASSERT_EQ(other.result(close_main), 0);
    ASSERT_EQ(other.result(open_kitchen), 0);
    EXPECT_EQ(other.ask(state), bytes(0, VANTRO_STATE_IDLE, 1.0f, 0, 0));
}

TEST_F(Serving, KeepsOnePlayerAConnection) {
    std::optional<Client> first(std::in_place);
    EXPECT_EQ(first->result(state), ENOTCONN);
    EXPECT_EQ(first->result(request(VANTRO_COMMAND_PLAY)), ENOTCONN);
    EXPECT_EQ(first->result(close_main), ENOTCONN);
    EXPECT_EQ(first->result(request(VANTRO_COMMAND_OPEN, name("Main"))), ENOENT);
    EXPECT_EQ(first->result(open_main), 0);
    EXPECT_EQ(first->result(open_main), 0);
    EXPECT_EQ(first->result(open_kitchen), EBUSY);
    first.reset();
    const Client second; // has the place of the first, and nothing open
    EXPECT_EQ(second.result(state), ENOTCONN);
}

TEST_F(Serving, HoldsAnswersThatDoNotFitAndThoseOfPuts) {
    const Client client;
    ASSERT_EQ(client.result(open_main), 0);
    const std::string whole = client.ask(track);
    uint32_t length = 0;
    std::string part(whole.size(), 'u');
    EXPECT_EQ(msgclient_putget(client.client, track.data(), 16, part.data(), 10, &length, 0),
              MSG_STATUS_QUEUED);
    ASSERT_EQ(length, whole.size());
    EXPECT_EQ(msgclient_get(client.client, 0, part.data(), length, &length, 0), 0);
    EXPECT_EQ(part, whole);

    ASSERT_EQ(msgclient_notify_pulse(client.client, 4), 0);
    ASSERT_EQ(msgclient_put(client.client, 7, position.data(), 16, 0), 0);
    EXPECT_EQ(msgclient_wait_pulse(client.client), 7u);
    EXPECT_EQ(msgclient_get(client.client, 7, part.data(), 8, &length, 0), 0);
    EXPECT_EQ(part.substr(0, length), bytes(0, 0));
}

TEST_F(Serving, RefusesWhatIsMalformed) {
    const Client client;
    ASSERT_EQ(client.result(open_main), 0);
    for (const std::string &whole :
         {open_main, close_main, state, track, request(VANTRO_COMMAND_PLAY),
          request(VANTRO_COMMAND_SEEK, bytes(1)),
          request(VANTRO_COMMAND_SET_PLAYBACK_RATE, bytes(1.0f)),
          request(VANTRO_COMMAND_REPEAT, bytes(1))}) {
        for (std::size_t size = 0; size < whole.size(); ++size)
            EXPECT_EQ(client.result(whole.substr(0, size)), EINVAL) << size;
        EXPECT_EQ(client.result(whole + '\0'), EINVAL);
        std::string lying = whole;
        for (const int at : {2, 4, 7, 8, 15}) { // reserved words and the length
            lying[static_cast<std::size_t>(at)] ^= '\x40';
            EXPECT_EQ(client.result(lying), EINVAL) << at;
            lying = whole;
        }
    }
    for (const uint32_t length : {0u, 3u, 5u, 32u, 0x80000000u, 0xFFFFFFFFu})
        EXPECT_EQ(client.result(request(VANTRO_COMMAND_OPEN, bytes(length) + "main")), EINVAL);
    for (const int command : {2, 7, 8, 9, 10, 11, 12, 13, 14, 18, 25, 271, 65535})
        EXPECT_EQ(client.result(request(static_cast<uint16_t>(command))), ENOSYS) << command;
    for (const float rate : {0.0f, -1.0f, 17.0f})
        EXPECT_EQ(client.result(request(VANTRO_COMMAND_SET_PLAYBACK_RATE, bytes(rate))), ERANGE);
    EXPECT_EQ(client.result(request(VANTRO_COMMAND_REPEAT, bytes(3))), ERANGE);

    const std::string junk(16 << 20, '\x0F');
    uint32_t length = 0;
    EXPECT_EQ(msgclient_putget(client.client, junk.data(), static_cast<uint32_t>(junk.size()),
                               nullptr, 0, &length, 0),
              EMSGSIZE);
    EXPECT_EQ(client.ask(state), bytes(0, VANTRO_STATE_IDLE, 1.0f, 0, 0)) << "nothing happened";
}

TEST_F(Serving, ServesManyThreadsAndClientsThatGo) {
    const Client shared;
    ASSERT_EQ(shared.result(open_main), 0);
    std::vector<std::thread> threads;
    for (int i = 0; i < 6; ++i)
        threads.emplace_back([&shared, i] {
            for (int round = 0; round < 50; ++round) {
                const Client own;
                EXPECT_EQ(own.result(i % 2 ? open_main : open_kitchen), 0);
                EXPECT_EQ(own.result(request(VANTRO_COMMAND_NEXT)), 0);
                EXPECT_EQ(shared.ask(track).substr(0, 4), bytes(0));
            }
        });
    for (std::thread &thread : threads)
        thread.join();
}

TEST_F(Serving, StandsAloneAndEndsWhenTold) {
    const Client client;
    for (const int signal : {SIGTERM, SIGINT}) {
        Process second(std::vector<std::string>{VANTROD});
        EXPECT_EQ(second.line(), "vantrod: cannot attach the service \"vantro.sys\", instance "
                                 "\"default\": another vantrod is running");
        EXPECT_EQ(second.wait(), 1);
        service->kill(signal);
        EXPECT_EQ(service->wait(), 0);
        EXPECT_EQ(told(), "") << "one line, and no more";
        uint32_t length = 0;
        EXPECT_EQ(msgclient_putget(client.client, state.data(), 16, nullptr, 0, &length, 0),
                  ECONNRESET);
        start({});
        ASSERT_EQ(told(), "vantrod: ready (0 tracks, players: main)");
    }
    const Client idle;
    ASSERT_EQ(idle.result(open_main), 0);
    for (const std::string &query : {track, position, request(VANTRO_COMMAND_PLAY)})
        EXPECT_EQ(idle.result(query), ENODATA);
}

TEST_F(Vantrod, AsksTheGrantorForCapabilities) {
    write_file(path_ + "/policy", fmt::format("uid:{} net audio\n", geteuid()));
    Process grantor(std::vector<std::string>{VANTRO_GRANTOR, "--policy", path_ + "/policy"});
    ASSERT_NE(grantor.line(), "");
    for (const char *capabilities : {"net,audio", "net,secret"}) {
        start({"--require", capabilities});
        ASSERT_EQ(told(), "vantrod: ready (0 tracks, players: main)");
        const bool granted = Client().client != nullptr;
        EXPECT_EQ(granted, std::string(capabilities) == "net,audio") << capabilities;
        Process by_path(std::vector<std::string>{VANTROD, "--perms", "600"});
        EXPECT_NE(by_path.line().find("another vantrod is running"), std::string::npos);
        service->kill(SIGTERM);
        EXPECT_EQ(service->wait(), 0);
    }
}

TEST_F(Vantrod, RefusesBadOptionsByNameAndValue) {
    struct {
        std::vector<std::string> arguments;
        int exit_code;
    } const table[] = {
        {{"--threads", "'65'"}, 2},
        {{"--threads", "'4x'"}, 2},
        {{"--perms", "'688'"}, 2},
        {{"--uid", "'-1'"}, 2},
        {{"--gid", "'4294967295'"}, 2},
        {{"--player", "'a/b'"}, 2},
        {{"--player", "'" + std::string(32, 'n') + "'"}, 2},
        {{"--player", "'a'", "--player", "'a'"}, 2},
        {{"--require", "'net,,audio'"}, 2},
        {{"--require", "net", "--uid", "0"}, 2},
        {{"--loud"}, 2},
        {{"--music", "'/nowhere/at/all'"}, 1},
        {{"--require", "net"}, 1}, // and no grantor device
    };
    for (const auto &row : table) {
        // Values are printed in quotes, and given without.
        std::vector<std::string> arguments = row.arguments;
        for (std::string &word : arguments)
            word.erase(std::remove(word.begin(), word.end(), '\''), word.end());
        start(arguments);
        const std::string line = told();
        for (const std::string &word : row.arguments)
            EXPECT_TRUE(line.find(word) != std::string::npos || word == "net" || word == "0")
                << line;
        EXPECT_EQ(service->wait(), row.exit_code) << line;
    }
}

} // namespace

} // namespace vantro
