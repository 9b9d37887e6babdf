// Players are restored after a restart, in whichever way the service ended.
#include <cstdlib>
#include <random>
#include <set>
#include <thread>

#include <fmt/format.h>

#include <vantro/vantro.hpp>

#include "tests/service/vantrod.h"

namespace vantro::service {

namespace {

class Restart : public Vantrod {
  protected:
    static constexpr int songs = 6;

    void SetUp() override {
        Vantrod::SetUp();
        for (int i = 0; i < songs; ++i) {
            test::make_music(path_ + "/music/" + std::to_string(i) + ".flac", 60'000,
                             {"TITLE=" + std::to_string(i)});
        }
        run();
        while (told() != "vantrod: scanned (6 tracks)") {
            ASSERT_FALSE(service->ended());
        }
    }
    void run(const std::vector<std::string> &more = {}) {
        std::vector<std::string> arguments = {"--music", path_ + "/music", "--player",
                                              "main",    "--player",       "den"};
        arguments.insert(arguments.end(), more.begin(), more.end());
        start(arguments);
        ASSERT_EQ(told().rfind("vantrod: ready (", 0), 0u);
    }
    void end(int signal) {
        service->kill(signal);
        service->wait();
    }
    // Everything that a client can ask of a player, except the position while it plays.
    static std::string all_of(Player &&player) { return all_of(player); }
    static std::string all_of(Player &player) {
        const VantroStateInfo state = player.state().or_throw();
        const VantroTrksessionInfo session = player.session().or_throw();
        std::string all = bytes(state, session, player.volume().or_throw());
        if (session.tsid != 0) {
            all += bytes(player.track().or_throw()->index);
            for (const MediaNode &node : player.tracks(session.tsid)) {
                all += name(node.id ? node.id : "");
            }
        }
        return all;
    }
    static Player open(const char *name) {
        return Player::connect(name, std::chrono::seconds(20)).or_throw();
    }
    std::filesystem::path file(const char *name) const {
        return path_ + "/state/vantro/players/main/" + name;
    }
};

TEST_F(Restart, PlayersAreWhatTheyWere) {
    Player main = open("main"), den = open("den");
    ASSERT_TRUE(main.set_shuffle(true));
    ASSERT_TRUE(main.create_session(0, "1:songs\n1:songs", 7));
    ASSERT_TRUE(main.set_repeat(Repeat::all));
    ASSERT_TRUE(main.set_rate(1.25f));
    ASSERT_TRUE(main.set_volume(33));
    ASSERT_TRUE(main.next());
    ASSERT_TRUE(main.seek(Player::Milliseconds(12'345)));
    ASSERT_TRUE(den.create_session(1, "songs", 2, Start::playing));
    const std::string before = all_of(main);
    // The order of a shuffle too: the tracks that follow are the same.
    std::vector<int32_t> order;
    for (int i = 0; i < 12; ++i) {
        ASSERT_TRUE(main.next());
        order.push_back(main.track().or_throw()->index);
    }
    ASSERT_TRUE(main.seek(Player::Milliseconds(12'345)));
    ASSERT_EQ(all_of(main), before);
    end(SIGTERM);

    std::filesystem::remove(path_ + "/music/3.flac"); // its place stays, as in any session
    run();
    main = open("main");
    den = open("den");
    EXPECT_EQ(main.position().or_throw().count(), 12'345);
    EXPECT_EQ(main.volume()->level, 33);
    EXPECT_EQ(main.state()->rate, 1.25f);
    EXPECT_EQ(main.state()->state, VANTRO_STATE_PAUSED);
    EXPECT_EQ(main.session()->length, 12);
    for (const int32_t index : order) {
        ASSERT_TRUE(main.next());
        EXPECT_EQ(main.track().or_throw()->index, index);
    }
    EXPECT_EQ(den.state()->state, VANTRO_STATE_PAUSED);
    ASSERT_TRUE(den.play());
    end(SIGTERM);
    run({"--resume"});
    EXPECT_EQ(open("den").state()->state, VANTRO_STATE_PLAYING);
    EXPECT_EQ(open("main").state()->state, VANTRO_STATE_PAUSED);
    EXPECT_EQ(open("den").track().or_throw()->index, 2);
    end(SIGTERM);
    std::filesystem::remove(path_ + "/state/vantro/session-numbers");
    run();
    main = open("main");
    const uint64_t there = main.session()->tsid;
    EXPECT_NE(main.create_session(1, "songs", 0).or_throw(), there);
}

// The first turn waits until the service writes the change by itself; the others kill the service
// while it writes at its end.
TEST_F(Restart, WhateverTheMomentItIsTheOldOrTheNew) {
    std::minstd_rand random(std::random_device{}());
    for (int turn = 0; turn < 10; ++turn) {
        SCOPED_TRACE(turn);
        Player main = open("main");
        const std::string old = all_of(main);
        ASSERT_TRUE(
            main.create_session(0, turn % 2 ? "1:songs\n1:songs" : "1:songs", turn % songs));
        const std::string fresh = all_of(main);
        for (int i = 0; turn == 0 && i < 400 && !std::filesystem::exists(file("session")); ++i) {
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
        }
        if (turn != 0) {
            std::filesystem::remove(file("session.part")); // the last kill may have left it
            service->kill(SIGTERM);
            while (!std::filesystem::exists(file("session.part")) && !service->ended()) {
            }
            std::this_thread::sleep_for(std::chrono::microseconds(1 << random() % 15));
        }
        end(SIGKILL);
        run();
        const std::string after = all_of(main = open("main"));
        EXPECT_TRUE(after == fresh || (turn != 0 && after == old));
        EXPECT_FALSE(std::filesystem::exists(file("session.broken")));
    }
}

// Killed while it plays, scans and writes. VANTRO_ROUNDS may ask for more kills.
TEST_F(Restart, IsWholeHoweverOftenItIsKilled) {
    namespace fs = std::filesystem;
    std::minstd_rand random(std::random_device{}());
    const auto pause = [&](unsigned least_us, unsigned most_us) {
        std::this_thread::sleep_for(
            std::chrono::microseconds(least_us + random() % (most_us - least_us)));
    };
    const char *const wanted = std::getenv("VANTRO_ROUNDS");
    const int rounds = wanted ? std::atoi(wanted) : 12;
    std::set<std::string> possible = {all_of(open("main"))};
    end(SIGTERM);
    for (int round = 0; round < rounds; ++round) {
        SCOPED_TRACE(round);
        fs::copy(path_ + "/music/0.flac", fmt::format("{}/music/more {}.flac", path_, round));
        run({"--resume"});
        Player main = open("main");
        const std::string now = all_of(main);
        EXPECT_EQ(possible.count(now), 1u);
        possible = {now};
        const auto commanded = [&](auto result) {
            EXPECT_TRUE(result);
            possible.insert(all_of(main));
        };
        commanded(main.create_session(0, "1:songs\n1:songs", round % songs, Start::playing));
        commanded(main.set_volume(random() % 100));
        commanded(main.jump(random() % songs));
        commanded(main.set_shuffle(round % 2 == 0));
        if (round % 6 == 5) {
            pause(950'000, 1'050'000); // it writes a second after the change
        } else if (round % 2 == 1) {
            service->kill(SIGTERM); // it writes at its end
            pause(0, 20'000);
        } else {
            pause(0, 100'000);
        }
        end(SIGKILL);
    }
    run({"--resume"});
    EXPECT_EQ(possible.count(all_of(open("main"))), 1u);
    const std::string all = fmt::format("vantrod: scanned ({} tracks)", songs + rounds);
    for (std::string line = told(); line != all; line = told()) {
        ASSERT_NE(line, "");
    }
    for (const auto &each : fs::recursive_directory_iterator(path_ + "/state")) {
        const std::string left = each.path().filename();
        EXPECT_TRUE(left.find(".broken") == left.npos && left.find(".bad") == left.npos) << left;
    }
}

TEST_F(Restart, KeepsAQueueOfAHundredThousand) {
    std::string many;
    for (int i = 0; i < 100'000 / songs + 1; ++i) {
        many += "1:songs\n";
    }
    many.pop_back();
    Player main = open("main");
    ASSERT_TRUE(main.create_session(0, many.c_str(), 99'999));
    ASSERT_TRUE(main.create_session(0, "1:songs", 0, Start::append));
    ASSERT_TRUE(main.create_session(0, "1:songs", 0, Start::insert));
    const std::string before = all_of(main);
    const int32_t length = main.session()->length;
    EXPECT_EQ(length, (100'000 / songs + 3) * songs);
    EXPECT_EQ(main.track().or_throw()->index, 99'999);
    end(SIGTERM);
    run();
    main = open("main");
    EXPECT_TRUE(all_of(main) == before);
    ASSERT_TRUE(main.jump(length - 1));
    ASSERT_TRUE(main.play());
    ASSERT_TRUE(main.next());
    EXPECT_EQ(main.state()->state, VANTRO_STATE_STOPPED);
}

TEST_F(Restart, BrokenFilesCostNoStart) {
    Player main = open("main");
    ASSERT_TRUE(main.create_session(1, "songs", 4));
    end(SIGTERM);
    // The position in the session's file is used then.
    test::write_file(file("position"), "garbage");
    run();
    main = open("main");
    EXPECT_EQ(main.track().or_throw()->index, 4);
    EXPECT_TRUE(std::filesystem::exists(file("position.broken")));
    end(SIGTERM);
    std::filesystem::resize_file(file("session"), 100);
    run();
    main = open("main");
    EXPECT_EQ(main.state()->state, VANTRO_STATE_IDLE);
    EXPECT_TRUE(std::filesystem::exists(file("session.broken")));
    // Where nothing can be written the service runs, and says so once.
    std::filesystem::remove_all(path_ + "/state/vantro/players");
    test::write_file(path_ + "/state/vantro/players", "in the way");
    ASSERT_TRUE(main.create_session(1, "songs", 4));
    const auto says = [this](const char *words) {
        bool found = false;
        while (!found && service->readable(20'000)) {
            found = service->line().find(words) != std::string::npos;
        }
        return found;
    };
    EXPECT_TRUE(says("player \"main\" cannot be saved for a restart"));
    std::filesystem::remove(path_ + "/state/vantro/players");
    ASSERT_TRUE(main.next());
    EXPECT_TRUE(says("player \"main\" is saved for a restart again"));
    EXPECT_TRUE(std::filesystem::exists(file("session")));
}

} // namespace

} // namespace vantro::service
