// Music that comes and goes below a media root.
#include <atomic>
#include <map>
#include <thread>

#include <fmt/format.h>

#include "tests/service/vantrod.h"

namespace vantro::service {

namespace {

namespace fs = std::filesystem;

class MediaRoots : public Vantrod {
  protected:
    void SetUp() override {
        Vantrod::SetUp();
        root = fs::path(path_) / "root";
        test::make_music(path_ + "/music/1.flac", 1'000, {"TITLE=One"});
        test::make_music(root / "stick/2.flac", 600'000, {"TITLE=Two"});
        test::make_music(path_ + "/away/other/3.flac", 1'000, {"TITLE=Three"});
        fs::create_directory(root / "odd\xFF\n");
        fs::create_directory_symlink(path_ + "/music", root / "link");
        start({"--music", path_ + "/music", "--media-root", root});
        ASSERT_EQ(told(), "vantrod: ready (0 tracks, players: main)");
        ASSERT_EQ(told(), "vantrod: scanned (2 tracks)");
    }
    void put_away(const std::string &name) { fs::rename(root / name, path_ + "/away/" + name); }
    void put_back(const std::string &name) { fs::rename(path_ + "/away/" + name, root / name); }
    long descriptors() const {
        const fs::directory_iterator all(fmt::format("/proc/{}/fd", service->id()));
        return std::count_if(begin(all), end(all), [](const auto &each) {
            std::error_code closed;
            const std::string link = read_symlink(each.path(), closed).native();
            return link.find("/root/") != std::string::npos;
        });
    }
    // By name: the numbers of the sources, once they are so many.
    std::map<std::string, MediaSource> wait_for_sources(VantroHandle *handle, int wanted) {
        std::map<std::string, MediaSource> found;
        for (int i = 0; i < 2000; ++i) {
            MediaSource *records = nullptr;
            int count = 0;
            EXPECT_EQ(vantro_get_media_sources(handle, &records, &count), 0);
            found.clear();
            for (int k = 0; k < count; ++k) {
                found[records[k].name] = records[k];
            }
            vantro_free_media_sources(records, count);
            if (count == wanted) {
                return found;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        ADD_FAILURE() << found.size() << " sources";
        return found;
    }
    fs::path root;
};

TEST_F(MediaRoots, ComeAndGoWhileAPlayerPlaysAndClientsBrowse) {
    VantroHandle *const handle = vantro_connect_timed(20'000);
    ASSERT_EQ(vantro_open(handle, "main"), 0);
    const auto before = wait_for_sources(handle, 3);
    ASSERT_TRUE(before.count("stick") == 1 && before.count("odd\xEF\xBF\xBD\n") == 1);
    EXPECT_EQ(before.at("stick").type, VANTRO_SOURCE_REMOVABLE);
    const int32_t stick = before.at("stick").id;
    const Client client;
    ASSERT_EQ(client.result(open_main), 0);
    const auto songs = client.list(browse(stick, "songs"));
    ASSERT_EQ(songs.size(), 1u);
    client.ask(create(stick, "", 0, VANTRO_TRKSESSION_PLAY));
    for (const char *const node : {"", "songs", "folders"}) {
        MediaNode *nodes = nullptr;
        int count = 0;
        ASSERT_EQ(vantro_browse(handle, stick, node, 0, &count, &nodes), 0);
        ASSERT_GT(count, 0);
        EXPECT_EQ(nodes[0].ms_type, VANTRO_SOURCE_REMOVABLE) << node;
        vantro_free_media_nodes(nodes, count);
    }

    put_away("stick");
    for (int error = 0, gone = 0; error == 0 || gone == 0;) {
        ASSERT_GT(vantro_event_wait_for(handle, 20'000), 0);
        const VantroEvent *event = vantro_event_get(handle);
        ASSERT_NE(event, nullptr);
        error += event->type == VANTRO_EVENT_ERROR && event->details.error.code == 1;
        gone += event->type == VANTRO_EVENT_MEDIASOURCE &&
                event->details.mediasource.type == VANTRO_SOURCE_GONE;
    }
    EXPECT_EQ(client.result(browse(stick, "songs")), ENOENT);
    put_back("stick");
    EXPECT_EQ(wait_for_sources(handle, 3).at("stick").id, stick);
    EXPECT_EQ(client.list(browse(stick, "songs")), songs);
    EXPECT_EQ(client.list(tracks(id_in(client.ask(session)))), songs);

    const long open_before = descriptors();
    std::atomic<bool> ended = false;
    std::vector<std::thread> browsing;
    browsing.reserve(3);
    for (int i = 0; i < 3; ++i) {
        browsing.emplace_back([&ended, stick] {
            const Client other;
            EXPECT_EQ(other.result(open_main), 0);
            while (!ended) {
                other.ask(sources);
                other.ask(browse(stick, "songs"));
            }
        });
    }
    const char *const rounds = std::getenv("VANTRO_ROUNDS");
    for (int i = 0; i < (rounds ? std::atoi(rounds) : 25); ++i) {
        put_away("stick");
        put_back("other");
        wait_for_sources(handle, 3);
        client.ask(play);
        put_back("stick");
        put_away("other");
        std::this_thread::sleep_for(std::chrono::milliseconds(i % 3 * 50));
    }
    ended = true;
    for (std::thread &each : browsing) {
        each.join();
    }
    for (int i = 0; i < 500 && wait_for_sources(handle, 3).count("stick") == 0; ++i) {
    }
    EXPECT_EQ(wait_for_sources(handle, 3).at("stick").id, stick);
    EXPECT_EQ(client.list(browse(stick, "songs")), songs);
    EXPECT_LE(descriptors(), open_before + 1);
    vantro_disconnect(handle);
    service->kill(SIGTERM);
    EXPECT_EQ(service->wait(), 0);
}

TEST_F(Vantrod, RefusesMediaRootsThatCannotBe) {
    fs::create_directories(path_ + "/music/below");
    test::write_file(path_ + "/file", "");
    for (const char *const each : {"/nowhere", "/file", "/music/below", "/music", ""}) {
        start({"--music", path_ + "/music", "--media-root", path_ + each});
        EXPECT_EQ(told().rfind("vantrod: --media-root: ", 0), 0u) << each;
        EXPECT_EQ(service->wait(), 1) << each;
    }
}

} // namespace

} // namespace vantro::service
