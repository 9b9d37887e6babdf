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

#include <vantro/catalogue.h>
#include <vantro/extras.h>
#include <vantro/messaging.h>
#include <vantro/player.h>
#include <vantro/protocol.h>

#include "tests/support/music.h"
#include "tests/support/process.h"

namespace vantro::service {

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

    // The answer to a request, fetched where it is held.
    std::string ask(const std::string &what) const {
        std::string answer(VANTRO_REPLY_AREA, 'u');
        uint32_t length = 0;
        int result = msgclient_putget(client, what.data(), static_cast<uint32_t>(what.size()),
                                      answer.data(), VANTRO_REPLY_AREA, &length, 0);
        answer.resize(length);
        if (result == MSG_STATUS_QUEUED) {
            result = msgclient_get(client, 0, answer.data(), length, &length, 0);
        }
        EXPECT_EQ(result, 0);
        return answer;
    }
    // The nodes of a listing, as their names and ids.
    std::vector<std::pair<std::string, std::string>> list(const std::string &what) const {
        std::string answer = ask(what);
        int32_t words[2] = {-1, -1};
        EXPECT_GE(answer.size(), sizeof words);
        std::memcpy(words, answer.data(), std::min(answer.size(), sizeof words));
        EXPECT_EQ(words[0], 0);
        std::vector<std::pair<std::string, std::string>> nodes;
        MediaNode *records = nullptr;
        if (words[1] == 0 ||
            unpack_media_node(answer.data() + 8, static_cast<int>(answer.size()) - 8, words[1],
                              &records) != 0) {
            return nodes;
        }
        for (int i = 0; i < words[1]; ++i) {
            nodes.emplace_back(records[i].name ? records[i].name : "",
                               records[i].id ? records[i].id : "");
        }
        vantro_free_media_nodes(records, words[1]);
        return nodes;
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

class Vantrod : public test::RuntimeDirectory {
  protected:
    void start(const std::vector<std::string> &arguments) {
        std::vector<std::string> words = {VANTROD};
        words.insert(words.end(), arguments.begin(), arguments.end());
        service.emplace(words);
    }
    // The next line that the service itself prints; its log is between them.
    std::string told() {
        std::string line;
        do {
            line = service->line();
        } while (!line.empty() && line.rfind("vantrod: ", 0) != 0);
        return line;
    }
    std::optional<test::Process> service;
};

class Serving : public Vantrod {
  protected:
    void SetUp() override {
        Vantrod::SetUp();
        const std::filesystem::path music = path_ + "/music";
        test::make_music(music / "1.flac", 20'000, {"TITLE=One", "ARTIST=Anna", "TRACKNUMBER=1"});
        test::make_music(music / "2.ogg", 5'000, {"TITLE=Two", "TRACKNUMBER=2"});
        test::write_file(music / "3.mp3", "not music");
        start({"--music", music, "--player", "main", "--player", "kitchen", "--threads", "3"});
        ASSERT_EQ(told(), "vantrod: ready (0 tracks, players: main, kitchen)");
        ASSERT_EQ(told(), "vantrod: scanned (2 tracks)");
    }
};

const std::string open_main = request(VANTRO_COMMAND_OPEN, name("main"));
const std::string close_main = request(VANTRO_COMMAND_CLOSE, name("main"));
const std::string open_kitchen = request(VANTRO_COMMAND_OPEN, name("kitchen"));
const std::string state = request(VANTRO_COMMAND_GET_CURRENT_STATE);
const std::string track = request(VANTRO_COMMAND_GET_CURRENT_TRACK_INFO);
const std::string position = request(VANTRO_COMMAND_GET_CURRENT_TRACK_POSITION);
const std::string session = request(VANTRO_COMMAND_GET_CURRENT_TRKSESSION_INFO);
const std::string play = request(VANTRO_COMMAND_PLAY);
const std::string sources = request(VANTRO_COMMAND_GET_MEDIA_SOURCES);

std::string browse(int32_t source, const std::string &node, int32_t offset = 0, int32_t count = 0) {
    return request(VANTRO_COMMAND_BROWSE, bytes(source, offset, count) + name(node));
}

std::string search(int32_t source, const std::string &filter, const std::string &term,
                   int32_t offset = 0, int32_t count = 0) {
    return request(VANTRO_COMMAND_SEARCH, bytes(source, offset, count) + name(filter) + name(term));
}

std::string tracks(uint64_t tsid, int32_t offset = 0, int32_t count = 0) {
    return request(VANTRO_COMMAND_GET_TRKSESSION_TRACKS, bytes(tsid, offset, count));
}

std::string metadata(int32_t source, const std::string &node) {
    return request(VANTRO_COMMAND_GET_METADATA, bytes(source) + name(node));
}

std::string values(int32_t source, const std::string &node, const std::vector<std::string> &keys) {
    std::string rest = bytes(source) + name(node) + bytes(static_cast<int>(keys.size()));
    for (const std::string &key : keys) {
        rest += name(key);
    }
    return request(VANTRO_COMMAND_GET_EXTENDED_METADATA, rest);
}

// As the library sends it: the length that it states is 4 too small.
std::string create(int32_t source, const std::string &node, int32_t index, int32_t start) {
    std::string whole =
        request(VANTRO_COMMAND_CREATE_TRKSESSION, bytes(source, index, start) + name(node));
    whole[4] = static_cast<char>(whole[4] - 4);
    return whole;
}

std::string destroy(uint64_t tsid) {
    return request(VANTRO_COMMAND_DESTROY_TRKSESSION, bytes(tsid));
}

std::string jump(int32_t index) {
    return request(VANTRO_COMMAND_JUMP, bytes(index));
}

// The track session's, which ends the answers to create and session.
uint64_t id_in(const std::string &answer) {
    uint64_t tsid = 0;
    EXPECT_GE(answer.size(), 12u);
    std::memcpy(&tsid, answer.data() + std::max<size_t>(answer.size(), 8) - 8, sizeof tsid);
    return tsid;
}

TEST_F(Serving, AnswersEveryCommandToTheByte) {
    const Client one;
    const Client other;
    ASSERT_EQ(one.result(open_main), 0);
    ASSERT_EQ(other.result(open_main), 0);
    EXPECT_EQ(one.ask(state), bytes(0, VANTRO_STATE_IDLE, 1.0f, 0, 0));
    EXPECT_EQ(one.ask(session), bytes(0, VANTRO_TRKSESSION_NONE, 0, uint64_t{0}));
    for (const std::string &refused : {track, position, jump(0), request(VANTRO_COMMAND_NEXT)}) {
        EXPECT_EQ(one.result(refused), ENODATA);
    }
    const auto found = one.list(search(1, "title", "one"));
    ASSERT_EQ(found.size(), 1u);
    const std::string node = bytes(VANTRO_NODE_SONG, 0, 1, VANTRO_SOURCE_DIRECTORY) +
                             name(found[0].second) + name("One");
    const std::string record =
        bytes(20'000, 0, 0, 0, 1) + name("One") + bytes(-1) + name("Anna") + bytes(-1, -1, -1, -1);
    EXPECT_EQ(one.ask(search(1, "title", "one")), bytes(0, 1) + node);
    EXPECT_EQ(one.ask(metadata(1, found[0].second)), bytes(0) + record);
    EXPECT_EQ(one.ask(values(1, found[0].second, {"artist", "no such key", "codec", "artist"})),
              bytes(0) + name("Anna") + bytes(0) + name("flac") + name("Anna"));

    // Without a session, play makes one of all songs.
    EXPECT_EQ(one.result(play), 0);
    const std::string all = one.ask(session);
    EXPECT_EQ(all.substr(0, 12), bytes(0, VANTRO_TRKSESSION_ALL, 2));
    EXPECT_EQ(one.ask(track),
              bytes(0, 0) + all.substr(12) +
                  bytes(static_cast<int>(node.size()), static_cast<int>(record.size())) + node +
                  record);

    // A player is shared by whoever has it open, and by nobody else.
    EXPECT_EQ(one.result(request(VANTRO_COMMAND_SET_PLAYBACK_RATE, bytes(2.0f))), 0);
    EXPECT_EQ(one.result(request(VANTRO_COMMAND_SHUFFLE, bytes(1))), 0);
    EXPECT_EQ(one.result(request(VANTRO_COMMAND_SHUFFLE, bytes(0))), 0);
    EXPECT_EQ(one.result(request(VANTRO_COMMAND_REPEAT, bytes(2))), 0);
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

TEST_F(Serving, MakesListsAndDestroysSessions) {
    const Client client;
    ASSERT_EQ(client.result(open_main), 0);
    const uint64_t tsid = id_in(client.ask(create(1, VANTRO_NODE_ROOT, 1, VANTRO_TRKSESSION_PLAY)));
    EXPECT_EQ(client.ask(session), bytes(0, VANTRO_TRKSESSION_NODE, 2, tsid));
    EXPECT_EQ(client.ask(track).substr(0, 16), bytes(0, 1, tsid));
    EXPECT_EQ(client.ask(state).substr(0, 8), bytes(0, VANTRO_STATE_PLAYING));
    EXPECT_EQ(client.result(jump(0)), 0);
    EXPECT_EQ(client.result(jump(2)), ERANGE);
    EXPECT_EQ(client.result(jump(-1)), ERANGE);
    EXPECT_EQ(client.ask(track).substr(0, 8), bytes(0, 0));
    const auto list = client.list(tracks(tsid));
    ASSERT_EQ(list.size(), 2u);
    EXPECT_EQ(list[0].first + list[1].first, "OneTwo");

    // A player's session, and known by its id to who has none open.
    const Client other;
    EXPECT_EQ(other.list(tracks(tsid)), list);
    ASSERT_EQ(other.result(open_kitchen), 0);
    EXPECT_EQ(other.result(tracks(tsid)), ENOENT);
    EXPECT_EQ(other.result(destroy(tsid)), ENOENT);

    // A song that vanishes keeps its place. Nobody looks at the file of a player that is paused.
    EXPECT_EQ(client.result(request(VANTRO_COMMAND_PAUSE)), 0);
    std::filesystem::remove(path_ + "/music/1.flac");
    while (client.ask(search(1, "title", "one")).size() > 8) {
        std::this_thread::yield();
    }
    EXPECT_EQ(client.ask(track), bytes(0, 0, tsid, 0, 0));
    EXPECT_EQ(client.list(tracks(tsid, 0, 1)), (decltype(list){{"", ""}}));

    EXPECT_EQ(client.result(destroy(tsid + 1)), ENOENT);
    EXPECT_EQ(client.result(destroy(tsid)), 0);
    EXPECT_EQ(client.result(tracks(tsid)), ENOENT);
    EXPECT_EQ(client.ask(state).substr(0, 8), bytes(0, VANTRO_STATE_IDLE));
}

TEST_F(Serving, TakesWhatIsLargeAndFarOff) {
    const Client client;
    ASSERT_EQ(client.result(open_main), 0);
    ASSERT_EQ(client.result(play), 0);
    const uint64_t tsid = id_in(client.ask(session));
    const struct {
        int32_t offset;
        int32_t count;
        size_t expected;
    } ranges[] = {{0, 0, 2},       {0, -1, 2},
                  {0, 1, 1},       {1, 0, 1},
                  {1, INT_MAX, 1}, {2, 0, 0},
                  {INT_MAX, 0, 0}, {INT_MAX, INT_MAX, 0},
                  {-1, 1, 1},      {INT_MIN, INT_MIN, 2}};
    std::string folder; // whose entries are the songs
    for (const auto &entry : client.list(browse(1, ""))) {
        if (client.list(browse(1, entry.second)) == client.list(tracks(tsid))) {
            folder = entry.second;
        }
    }
    ASSERT_NE(folder, "");
    for (const auto &range : ranges) {
        SCOPED_TRACE(testing::Message() << range.offset << " " << range.count);
        EXPECT_EQ(client.list(tracks(tsid, range.offset, range.count)).size(), range.expected);
        EXPECT_EQ(client.list(browse(1, folder, range.offset, range.count)).size(), range.expected);
        EXPECT_EQ(client.list(search(1, "title", "t", range.offset, range.count)).size(),
                  range.offset == 1 || range.expected == 0 ? 0u : 1u);
    }

    const std::string song = client.list(tracks(tsid))[0].second;
    const std::vector<std::string> keys(10'000, VANTRO_KEY_TITLE);
    std::string expected = bytes(0);
    for (size_t i = 0; i < keys.size(); ++i) {
        expected += name("One");
    }
    EXPECT_TRUE(client.ask(values(1, song, keys)) == expected);
    EXPECT_EQ(client.result(values(1, song, std::vector<std::string>(16'385, "k"))), EMSGSIZE);
    const std::string large(1 << 20, '"');
    EXPECT_EQ(client.list(search(1, "", large)).size(), 0u);
    EXPECT_EQ(client.list(search(1, "", "")).size(), 0u);
    EXPECT_EQ(client.result(search(1, large, "one")), EINVAL);
    for (const std::string &node : {large, std::string("\xFF\xFE"), std::string("../..")}) {
        EXPECT_EQ(client.result(browse(1, node)), ENOENT);
        EXPECT_EQ(client.result(metadata(1, node)), ENOENT);
        EXPECT_EQ(client.result(values(1, node, {})), ENOENT);
        EXPECT_EQ(client.result(create(1, node, 0, 0)), ENOENT);
    }
    for (const int32_t source : {0, 2, -1, INT_MAX, INT_MIN}) {
        EXPECT_EQ(client.result(browse(source, "")), ENOENT);
        EXPECT_EQ(client.result(search(source, "", "one")), ENOENT);
        EXPECT_EQ(client.result(create(source, "", 0, 0)), ENOENT);
    }
    const std::string junk(16 << 20, '\x0F');
    uint32_t length = 0;
    EXPECT_EQ(msgclient_putget(client.client, junk.data(), static_cast<uint32_t>(junk.size()),
                               nullptr, 0, &length, 0),
              EMSGSIZE);
}

TEST_F(Serving, KeepsOnePlayerAConnection) {
    std::optional<Client> first(std::in_place);
    for (const std::string &refused :
         {close_main, state, play, sources, browse(1, ""), search(1, "", "o"), metadata(1, "x"),
          create(1, "", 0, 0), destroy(1), jump(0)}) {
        EXPECT_EQ(first->result(refused), ENOTCONN);
    }
    EXPECT_EQ(first->ask(values(1, "", {"no such key"})), bytes(0, 0)) << "needs no player";
    EXPECT_EQ(first->result(request(VANTRO_COMMAND_OPEN, name("Main"))), ENOENT);
    EXPECT_EQ(first->result(open_main), 0);
    EXPECT_EQ(first->result(open_main), 0);
    EXPECT_EQ(first->result(open_kitchen), EBUSY);
    first.reset();
    const Client second; // has the place of the first, and nothing open
    EXPECT_EQ(second.result(state), ENOTCONN);
}

TEST_F(Serving, HoldsAnswersOfPuts) {
    const Client client;
    ASSERT_EQ(client.result(open_main), 0);
    ASSERT_EQ(client.ask(create(1, "", 0, VANTRO_TRKSESSION_LOAD)).size(), 12u);
    ASSERT_EQ(msgclient_notify_pulse(client.client, 4), 0);
    ASSERT_EQ(msgclient_put(client.client, 7, position.data(), 16, 0), 0);
    EXPECT_EQ(msgclient_wait_pulse(client.client), 7u);
    uint32_t length = 0;
    std::string answer(8, 'u');
    EXPECT_EQ(msgclient_get(client.client, 7, answer.data(), 8, &length, 0), 0);
    EXPECT_EQ(answer, bytes(0, 0));
}

TEST_F(Serving, RefusesWhatIsMalformed) {
    const Client client;
    ASSERT_EQ(client.result(open_main), 0);
    for (const std::string &whole :
         {open_main, close_main, state, track, play, sources,
          request(VANTRO_COMMAND_SEEK, bytes(1)),
          request(VANTRO_COMMAND_SET_PLAYBACK_RATE, bytes(1.0f)),
          request(VANTRO_COMMAND_REPEAT, bytes(1)), browse(1, "node"), search(1, "title", "term"),
          tracks(1), metadata(1, "node"), values(1, "node", {"key", ""}), create(1, "", 0, 0),
          destroy(1), jump(0)}) {
        for (size_t size = 0; size < whole.size(); ++size) {
            EXPECT_EQ(client.result(whole.substr(0, size)), EINVAL) << size;
        }
        EXPECT_EQ(client.result(whole + '\0'), EINVAL);
        std::string lying = whole;
        for (const size_t at : {2u, 3u, 8u, 12u, 15u}) { // reserved words
            lying[at] ^= '\x40';
            EXPECT_EQ(client.result(lying), EINVAL) << at;
            lying = whole;
        }
    }
    std::string lying = state; // about its length, which nobody looks at
    lying[4] = '\x40';
    EXPECT_EQ(client.ask(lying), client.ask(state));
    for (const uint32_t length : {0u, 3u, 5u, 32u, 0x80000000u, 0xFFFFFFFFu}) {
        const std::string text = bytes(length) + "main";
        EXPECT_EQ(client.result(request(VANTRO_COMMAND_OPEN, text)), EINVAL);
        EXPECT_EQ(client.result(request(VANTRO_COMMAND_BROWSE, bytes(1, 0, 0) + text)), EINVAL);
        EXPECT_EQ(client.result(request(VANTRO_COMMAND_SEARCH, bytes(1, 0, 0) + text + text)),
                  EINVAL);
        EXPECT_EQ(client.result(request(VANTRO_COMMAND_GET_EXTENDED_METADATA,
                                        bytes(1) + name("node") + bytes(length) + name("key"))),
                  EINVAL);
    }
    EXPECT_EQ(client.result(browse(1, std::string("no\0de", 5))), EINVAL);
    for (const int command : {13, 25, 271, 65535}) {
        EXPECT_EQ(client.result(request(static_cast<uint16_t>(command))), ENOSYS) << command;
    }
    for (const float rate : {0.0f, -1.0f, 17.0f}) {
        EXPECT_EQ(client.result(request(VANTRO_COMMAND_SET_PLAYBACK_RATE, bytes(rate))), ERANGE);
    }
    EXPECT_EQ(client.result(request(VANTRO_COMMAND_REPEAT, bytes(3))), ERANGE);

    EXPECT_EQ(client.ask(state), bytes(0, VANTRO_STATE_IDLE, 1.0f, 0, 0)) << "nothing happened";
}

TEST_F(Serving, ServesManyThreadsAndClientsThatGo) {
    const Client shared;
    ASSERT_EQ(shared.result(open_main), 0);
    ASSERT_EQ(shared.result(play), 0);
    std::vector<std::thread> threads;
    for (int i = 0; i < 6; ++i) {
        threads.emplace_back([&shared, i] {
            for (int round = 0; round < 50; ++round) {
                const Client own;
                EXPECT_EQ(own.result(i % 2 ? open_main : open_kitchen), 0);
                EXPECT_EQ(own.result(play), 0);
                EXPECT_EQ(own.result(request(VANTRO_COMMAND_NEXT)), 0);
                EXPECT_EQ(own.list(search(1, "", "anna")).empty(), false);
                EXPECT_EQ(shared.ask(track).substr(0, 4), bytes(0));
            }
        });
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
}

TEST_F(Serving, StandsAloneAndEndsWhenTold) {
    const Client client;
    for (const int signal : {SIGTERM, SIGINT}) {
        test::Process second(std::vector<std::string>{VANTROD});
        EXPECT_EQ(second.line(), "vantrod: cannot attach the service \"vantro.sys\", instance "
                                 "\"default\": another vantrod is running");
        EXPECT_EQ(second.wait(), 1);
        service->kill(signal);
        EXPECT_EQ(service->wait(), 0);
        EXPECT_EQ(told(), "") << "two lines, and no more";
        uint32_t length = 0;
        EXPECT_EQ(msgclient_putget(client.client, state.data(), 16, nullptr, 0, &length, 0),
                  ECONNRESET);
        start({});
        ASSERT_EQ(told(), "vantrod: ready (0 tracks, players: main)");
        ASSERT_EQ(told(), "vantrod: scanned (0 tracks)");
    }
    const Client idle;
    ASSERT_EQ(idle.result(open_main), 0);
    for (const std::string &query : {track, position, play}) {
        EXPECT_EQ(idle.result(query), ENODATA);
    }
}

TEST_F(Serving, StartsAgainWithWhatItKnows) {
    uint64_t before = 0;
    for (int start_again = 0; start_again < 2; ++start_again) {
        const Client client;
        ASSERT_EQ(client.result(open_main), 0);
        const uint64_t tsid = id_in(client.ask(create(1, "", 0, 0)));
        EXPECT_GT(tsid, before);
        before = tsid;

        service->kill(SIGTERM); // the second time a scan has just begun
        EXPECT_EQ(service->wait(), 0);
        start({"--music", path_ + "/music"});
        ASSERT_EQ(told(), "vantrod: ready (2 tracks, players: main)");
    }
    // The state directory has one user, also where the names have others.
    const std::string other = path_ + "/other";
    std::filesystem::create_directory(other);
    test::Process second(std::vector<std::string>{VANTROD, "--state", path_ + "/state/vantro"},
                         [&] { setenv("XDG_RUNTIME_DIR", other.c_str(), 1); });
    EXPECT_NE(second.line().find(path_ + "/state/vantro"), std::string::npos);
    EXPECT_EQ(second.wait(), 1);
}

TEST_F(Vantrod, AsksTheGrantorForCapabilities) {
    test::write_file(path_ + "/policy", fmt::format("uid:{} net audio\n", geteuid()));
    test::Process grantor(std::vector<std::string>{VANTRO_GRANTOR, "--policy", path_ + "/policy"});
    ASSERT_NE(grantor.line(), "");
    for (const char *capabilities : {"net,audio", "net,secret"}) {
        start({"--require", capabilities});
        ASSERT_EQ(told(), "vantrod: ready (0 tracks, players: main)");
        const bool granted = Client().client != nullptr;
        EXPECT_EQ(granted, std::string(capabilities) == "net,audio") << capabilities;
        test::Process by_path(std::vector<std::string>{VANTROD, "--perms", "600"});
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
        {{"--music", path_, "--music", "'" + path_ + "/.'"}, 1},
        {{"--state", "'/dev/null/state'"}, 1},
        {{"--require", "net"}, 1}, // and no grantor device
    };
    for (const auto &row : table) {
        // Values are printed in quotes, and given without.
        std::vector<std::string> arguments = row.arguments;
        for (std::string &word : arguments) {
            word.erase(std::remove(word.begin(), word.end(), '\''), word.end());
        }
        start(arguments);
        const std::string line = told();
        for (const std::string &word : row.arguments) {
            EXPECT_TRUE(line.find(word) != std::string::npos || word == "net" || word == "0")
                << line;
        }
        EXPECT_EQ(service->wait(), row.exit_code) << line;
    }
}

} // namespace

} // namespace vantro::service
