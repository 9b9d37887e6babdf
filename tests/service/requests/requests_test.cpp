// Requests to the program and the bytes of their answers.
#include <cerrno>
#include <climits>
#include <thread>

#include <fmt/format.h>

#include "tests/service/vantrod.h"

namespace vantro::service {

namespace {

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

    // A player is shared by all clients that have it open, and by no others.
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

    // A player's session, which a client without an open player can ask for by its id.
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

TEST_F(Serving, ListsComeWithTheirMetadata) {
    const Client client;
    EXPECT_EQ(client.ask(players), bytes(0, 2) + name("main") + name("kitchen"));
    ASSERT_EQ(client.result(open_main), 0);
    const std::string none = bytes(0, 0, 0, 0, 0) + bytes(-1, -1, -1, -1, -1, -1, -1);
    const auto described = [&](uint16_t command, const std::string &plain, const auto &records) {
        const std::string nodes = client.ask(plain);
        std::string metadata_of_all;
        for (const std::string &record : records) {
            metadata_of_all += record;
        }
        EXPECT_EQ(client.ask(as(command, plain)),
                  nodes.substr(0, 8) + bytes(static_cast<uint32_t>(nodes.size() - 8)) +
                      nodes.substr(8) + metadata_of_all);
    };
    std::vector<std::string> songs;
    for (const auto &[title, id] : client.list(browse(1, "songs"))) {
        songs.push_back(client.ask(metadata(1, id)).substr(4));
    }
    ASSERT_EQ(songs.size(), 2u);
    described(VANTRO_COMMAND_BROWSE_METADATA, browse(1, "songs"), songs);
    described(VANTRO_COMMAND_BROWSE_METADATA, browse(1, "songs", 1), std::vector{songs[1]});
    std::vector<std::string> menus;
    for (const auto &[title, id] : client.list(browse(1, ""))) {
        menus.push_back(client.ask(metadata(1, id)).substr(4));
    }
    described(VANTRO_COMMAND_BROWSE_METADATA, browse(1, ""), menus);
    described(VANTRO_COMMAND_SEARCH_METADATA, search(1, "title", "one"), std::vector{songs[0]});
    described(VANTRO_COMMAND_SEARCH_METADATA, search(1, "", ""), std::vector<std::string>());
    ASSERT_EQ(client.result(play), 0);
    const uint64_t tsid = id_in(client.ask(session));
    ASSERT_EQ(client.result(request(VANTRO_COMMAND_PAUSE)), 0);
    std::filesystem::remove(path_ + "/music/1.flac");
    while (client.ask(search(1, "title", "one")).size() > 8) {
        std::this_thread::yield();
    }
    described(VANTRO_COMMAND_GET_TRKSESSION_TRACKS_METADATA, tracks(tsid),
              std::vector{none, songs[1]});
    EXPECT_EQ(client.result(as(VANTRO_COMMAND_BROWSE_METADATA, browse(2, ""))), ENOENT);
    EXPECT_EQ(client.result(as(VANTRO_COMMAND_GET_TRKSESSION_TRACKS_METADATA, tracks(99))), ENOENT);

    // At most one page, however much is asked for.
    std::string many;
    for (int i = 0; i < VANTRO_METADATA_PAGE_MAX; ++i) {
        many += "1:songs\n";
    }
    const uint64_t long_one = id_in(client.ask(create(0, many, 0, VANTRO_TRKSESSION_LOAD)));
    for (const int32_t count : {0, -1, INT_MAX}) {
        const std::string page = client.ask(
            as(VANTRO_COMMAND_GET_TRKSESSION_TRACKS_METADATA, tracks(long_one, 0, count)));
        EXPECT_EQ(page.substr(0, 8), bytes(0, VANTRO_METADATA_PAGE_MAX)) << count;
    }
}

TEST_F(Serving, ForgetsTheSessionsOfClientsThatAreGone) {
    for (int i = 0; i < 3 * VANTRO_TRKSESSIONS_MAX; ++i) {
        const Client client;
        ASSERT_EQ(client.result(open_main), 0);
        ASSERT_EQ(client.ask(create(1, "", 0, VANTRO_TRKSESSION_LOAD)).size(), 12u) << i;
    }
}

TEST_F(Serving, NamesWhoMakesTooManySessions) {
    const Client client;
    ASSERT_EQ(client.result(open_main), 0);
    for (int i = 0; i < VANTRO_TRKSESSIONS_MAX; ++i) {
        ASSERT_EQ(client.ask(create(1, "", 0, VANTRO_TRKSESSION_LOAD)).size(), 12u) << i;
    }
    EXPECT_EQ(client.result(create(1, "", 0, VANTRO_TRKSESSION_LOAD)), ENOSPC);
    service->kill(SIGTERM);
    const std::string log = service->rest();
    EXPECT_NE(log.find(fmt::format("limit reached: no more track sessions of a player for user {} ",
                                   geteuid())),
              log.npos)
        << log;
    EXPECT_NE(log.find(fmt::format("by process {} (vantrod_test)", getpid())), log.npos) << log;
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
    } ranges[] = {{0, -1, 2}, {1, INT_MAX, 1}, {2, 0, 0}, {INT_MAX, INT_MAX, 0}, {INT_MIN, 1, 1}};
    for (const auto &range : ranges) {
        SCOPED_TRACE(testing::Message() << range.offset << " " << range.count);
        EXPECT_EQ(client.list(tracks(tsid, range.offset, range.count)).size(), range.expected);
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
    for (const std::string &refused : {browse(1, large), metadata(1, large), values(1, large, {}),
                                       create(1, large, 0, 0), browse(2, ""), search(2, "", "one"),
                                       metadata(2, ""), values(2, "", {}), create(2, "", 0, 0)}) {
        EXPECT_EQ(client.result(refused), ENOENT);
    }
}

// Long listings are kept in their packed form; pages are not.
TEST_F(Vantrod, LongListingsAreThoseOfTheMusicAsItIs) {
    constexpr int songs = 600, page = 100;
    const std::filesystem::path music = path_ + "/music";
    test::make_music(music / "000.flac", 1000, {"ARTIST=Anna"});
    for (int i = 1; i < songs; ++i) {
        std::filesystem::copy_file(music / "000.flac", music / fmt::format("{:03}.flac", i));
    }
    start({"--music", music});
    while (told().rfind("vantrod: scanned", 0) != 0) {
        ASSERT_FALSE(service->ended());
    }
    const Client client;
    ASSERT_EQ(client.result(open_main), 0);
    const auto pages = [&](const std::string &node) {
        decltype(client.list("")) nodes;
        for (int offset = 0; offset < songs; offset += page) {
            const auto some = client.list(browse(1, node, offset, page));
            nodes.insert(nodes.end(), some.begin(), some.end());
        }
        return nodes;
    };
    for (const int renamed : {0, 100, 200}) {
        if (renamed > 0) {
            const std::string new_name = fmt::format("{:03}a", renamed);
            std::filesystem::rename(music / fmt::format("{:03}.flac", renamed),
                                    music / (new_name + ".flac"));
            while (client.list(browse(1, "songs", renamed, 1))[0].first != new_name) {
                std::this_thread::yield();
            }
        }
        for (const char *node : {"songs", "folders"}) {
            auto expected = pages(node);
            EXPECT_EQ(expected.size(), static_cast<size_t>(songs)) << node;
            for (const int count : {0, 0, songs, 0}) {
                EXPECT_EQ(client.list(browse(1, node, 0, count)), expected) << node;
            }
            expected.erase(expected.begin());
            EXPECT_EQ(client.list(browse(1, node, 1, 0)), expected) << node;
        }
    }
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
    const Client second; // has the number of the first client, and nothing open
    EXPECT_EQ(second.result(state), ENOTCONN);
}

TEST_F(Serving, RefusesWhatIsMalformed) {
    const Client client;
    ASSERT_EQ(client.result(open_main), 0);
    for (const std::string &whole :
         {open_main,
          close_main,
          state,
          track,
          play,
          sources,
          request(VANTRO_COMMAND_SEEK, bytes(1)),
          request(VANTRO_COMMAND_SET_PLAYBACK_RATE, bytes(1.0f)),
          request(VANTRO_COMMAND_REPEAT, bytes(1)),
          browse(1, "node"),
          search(1, "title", "term"),
          tracks(1),
          metadata(1, "node"),
          values(1, "node", {"key", ""}),
          create(1, "", 0, 0),
          destroy(1),
          jump(0),
          request(VANTRO_COMMAND_RESCAN),
          as(VANTRO_COMMAND_RESCAN_NODE, metadata(1, "node")),
          players,
          as(VANTRO_COMMAND_BROWSE_METADATA, browse(1, "node")),
          as(VANTRO_COMMAND_GET_TRKSESSION_TRACKS_METADATA, tracks(1))}) {
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
    std::string lying = state; // about its length, which is not looked at
    lying[4] = '\x40';
    EXPECT_EQ(client.ask(lying), client.ask(state));
    for (const uint32_t length : {0u, 3u, 5u, 32u, 0x80000000u, 0xFFFFFFFFu}) {
        const std::string text = bytes(length) + "main";
        EXPECT_EQ(client.result(request(VANTRO_COMMAND_OPEN, text)), EINVAL);
        EXPECT_EQ(client.result(request(VANTRO_COMMAND_BROWSE, bytes(1, 0, 0) + text)), EINVAL);
        std::string twice = bytes(1, 0, 0);
        twice.append(text).append(text);
        EXPECT_EQ(client.result(request(VANTRO_COMMAND_SEARCH, twice)), EINVAL);
        EXPECT_EQ(client.result(request(VANTRO_COMMAND_GET_EXTENDED_METADATA,
                                        bytes(1) + name("node") + bytes(length) + name("key"))),
                  EINVAL);
    }
    EXPECT_EQ(client.result(browse(1, std::string("no\0de", 5))), EINVAL);
    for (const int command : {13, 25, 299, 65535}) {
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
    std::vector<std::thread> threads(6);
    for (size_t i = 0; i < threads.size(); ++i) {
        threads[i] = std::thread([&shared, i] {
            for (int round = 0; round < 50; ++round) {
                const Client own;
                EXPECT_EQ(own.result(i % 2 ? open_main : open_kitchen), 0);
                EXPECT_EQ(own.result(play), 0);
                const std::string change =
                    i % 2 ? request(VANTRO_COMMAND_NEXT)
                          : destroy(id_in(own.ask(create(1, "", 0, VANTRO_TRKSESSION_PLAY))));
                EXPECT_EQ(own.result(change), 0);
                EXPECT_EQ(own.list(search(1, "", "anna")).empty(), false);
                EXPECT_EQ(shared.ask(track).substr(0, 4), bytes(0));
            }
        });
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
}

} // namespace

} // namespace vantro::service
