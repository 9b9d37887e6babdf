// Saved playlists, as clients of a service that runs have them.
#include <atomic>
#include <csignal>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "tests/service/vantrod.h"

#include <vantro/vantro.hpp>

namespace vantro::service {

namespace {

constexpr int32_t playlists = 1'000'000;

class Playlists : public Vantrod {
  protected:
    void SetUp() override {
        Vantrod::SetUp();
        here_ = path_ + "/here";
        away_ = path_ + "/away";
        state_ = path_ + "/state";
        folder_ = state_ / "playlists";
        const auto make = [](const std::filesystem::path &file, const std::string &title) {
            test::make_music(file, 20'000, {"TITLE=" + title, "ARTIST=Anna"});
        };
        make(here_ / "Folder" / "1.flac", "One");
        make(here_ / "Folder" / "100%\n.flac", "Strange");
        make(away_ / "2.flac", "Away");
    }

    void serve(const std::vector<std::string> &music) {
        std::vector<std::string> arguments = {"--state", state_};
        for (const std::string &each : music) {
            arguments.insert(arguments.end(), {"--music", each});
        }
        start(arguments);
        while (told().rfind("vantrod: scanned", 0) != 0) {
            ASSERT_FALSE(service->ended());
        }
    }
    void end() {
        service->kill(SIGTERM);
        EXPECT_EQ(service->wait(), 0);
    }

    // The id of a saved playlist, "" if there is none, and its entries' names, with a "-" before
    // those that are not found.
    static std::string id_of(Player &player, const std::string &name) {
        for (const MediaNode &node : player.browse(playlists)) {
            if (text(node.name) == name) {
                return std::string(text(node.id)) + "/" + std::to_string(node.count);
            }
        }
        return "";
    }
    static std::string entries(Player &player, const std::string &name, int32_t offset = 0) {
        std::string all;
        const std::string id = id_of(player, name);
        auto nodes = player.browse(playlists, id.substr(0, id.find('/')), offset);
        for (const MediaNode &node : nodes) {
            all += (text(node.id).empty() ? " -" : " ") + std::string(text(node.name));
        }
        EXPECT_TRUE(nodes.done());
        return all;
    }
    static Result<uint64_t> load(Player &player, const std::string &name) {
        const std::string id = id_of(player, name);
        return player.create_session(playlists, id.substr(0, id.find('/')).c_str());
    }

    std::filesystem::path here_, away_, state_, folder_;
};

TEST_F(Playlists, KeepThePlacesOfWhatIsAway) {
    serve({here_, away_});
    {
        Player player = Player::connect("main").or_throw();
        auto events = player.follow();
        ASSERT_TRUE(player.create_session(0, "1:songs\n2:songs\n1:songs"));
        EXPECT_EQ(player.sources()->size(), 2u);
        ASSERT_EQ(player.save_playlist("mix").or_throw(), 5);
        EXPECT_EQ(player.sources()->size(), 3u); // there is one more now, which is told
        for (const Event &event : events) {
            const auto *source = event.as<SourceEvent>();
            if (source && source->type == VANTRO_SOURCE_PLAYLISTS) {
                break;
            }
        }
        EXPECT_EQ(entries(player, "mix"), " One Strange Away One Strange");
    }
    end();
    serve({here_});
    {
        Player player = Player::connect("main").or_throw();
        EXPECT_EQ(entries(player, "mix"), " One Strange -Anna - Away One Strange");
        EXPECT_EQ(entries(player, "mix", 4), " Strange");
        ASSERT_TRUE(load(player, "mix"));
        EXPECT_EQ(player.session()->length, 4);
    }
    end();
    for (const char *file : {"catalogue.db", "catalogue.db-wal", "catalogue.db-shm"}) {
        std::filesystem::remove(state_ / file);
    }
    serve({away_, here_}); // The sources have other numbers than before.
    Player player = Player::connect("main").or_throw();
    EXPECT_EQ(entries(player, "mix"), " One Strange Away One Strange");
    EXPECT_TRUE(player.delete_playlist("mix"));
    EXPECT_EQ(player.sources()->size(), 2u);
    EXPECT_EQ(id_of(player, "mix"), "");
}

TEST_F(Playlists, AreRefusedWithTheReason) {
    serve({here_});
    Player player = Player::connect("main").or_throw();
    EXPECT_EQ(player.save_playlist("none").failure().number, ENODATA);
    EXPECT_EQ(player.delete_playlist("none").failure().number, ENOENT);
    ASSERT_TRUE(player.create_session(1, "songs"));
    for (const std::string &name : {std::string(), std::string("a/b"), std::string(".hidden"),
                                    std::string(".."), std::string("a\nb"), std::string("\xC2\x85"),
                                    std::string("\xFF"), std::string(201, 'x')}) {
        EXPECT_EQ(player.save_playlist(name.c_str()).failure().number, EINVAL) << name;
        EXPECT_EQ(player.delete_playlist(name.c_str()).failure().number, EINVAL) << name;
    }
    EXPECT_TRUE(player.save_playlist(std::string(200, 'x').c_str()));
    EXPECT_EQ(vantro_save_playlist(player.handle(), "flags", 2), -1);
    EXPECT_EQ(id_of(player, "flags"), "");

    // If several clients save under one name at once, one of them succeeds.
    for (int round = 0; round < 5; ++round) {
        const std::string name = "race " + std::to_string(round);
        std::atomic<int> first = 0;
        std::atomic<int> late = 0;
        std::vector<std::thread> clients;
        clients.reserve(4);
        for (int i = 0; i < 4; ++i) {
            clients.emplace_back([&] {
                Player own = Player::connect("main").or_throw();
                const Result<int> saved = own.save_playlist(name.c_str());
                first += saved ? 1 : 0;
                late += !saved && saved.failure().number == EEXIST ? 1 : 0;
            });
        }
        for (std::thread &client : clients) {
            client.join();
        }
        EXPECT_EQ(first, 1);
        EXPECT_EQ(late, 3);
        EXPECT_EQ(entries(player, name), " One Strange");
    }
    ASSERT_TRUE(load(player, "race 0"));
    ASSERT_TRUE(player.create_session(1, player.browse(1, "songs").begin()->id));
    EXPECT_EQ(player.save_playlist("race 0", true).or_throw(), 1);
    EXPECT_EQ(entries(player, "race 0"), " One");

    // A folder that cannot be one.
    std::filesystem::remove_all(folder_);
    test::write_file(folder_, "");
    EXPECT_EQ(player.save_playlist("more").failure().number, EIO);
    EXPECT_EQ(player.browse(playlists).begin(), player.browse(playlists).end());
}

TEST_F(Playlists, MayBePutThereByHand) {
    std::filesystem::create_directories(folder_ / "folder.m3u8");
    test::write_file(folder_ / "mine.m3u8",
                     "\xEF\xBB\xBF# mine\r\nFolder/1.flac\r\n../../etc/passwd\r\nfile://" +
                         (here_ / "Folder/100%25%0A.flac").native() +
                         "\r\n#EXTINF:1,Lost\n/lost\n" + "#EXTVANTRO:x/s0123456789abcdef\n" +
                         (here_ / "Folder/1.flac").native());
    test::write_file(folder_ / "broken.m3u8", std::string("\0\xFF\n\n#EXTVANTRO:/\x01\n", 17));
    test::write_file(folder_ / ".hidden.m3u8", "Folder/1.flac\n");
    test::write_file(folder_ / "mine.txt", "Folder/1.flac\n");
    std::filesystem::create_symlink(folder_ / "mine.m3u8", folder_ / "link.m3u8");
    std::string lines;
    for (int i = 0; i < 100'001; ++i) {
        lines += i % 2 == 0 ? "Folder/1.flac\n" : "Folder/none.flac\n";
    }
    test::write_file(folder_ / "long.m3u8", lines);
    serve({here_});
    Player player = Player::connect("main").or_throw();
    std::string names;
    for (const MediaNode &node : player.browse(playlists, "playlists")) {
        names += std::string(text(node.name)) + "=" + std::to_string(node.count) + " ";
    }
    EXPECT_EQ(names, "broken=1 long=100000 mine=5 ");
    EXPECT_EQ(entries(player, "mine"), " One -../../etc/passwd Strange -Lost One");
    EXPECT_EQ(entries(player, "long", 99'998), " One -Folder/none.flac");
    EXPECT_EQ(load(player, "broken").failure().number, ENODATA);
    ASSERT_TRUE(load(player, "long"));
    EXPECT_EQ(player.session()->length, 50'000);
    EXPECT_EQ(player.save_playlist("long", true).or_throw(), 50'000);
    EXPECT_EQ(entries(player, "long", 49'999), " One");
    EXPECT_EQ(player.save_playlist("folder").failure().number, EEXIST);
    EXPECT_EQ(player.delete_playlist("link").failure().number, ENOENT);
}

} // namespace

} // namespace vantro::service
