// Music that comes and goes below a media root.
#include <atomic>
#include <map>
#include <thread>

#include <cstdlib>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

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
    // The sources by name, once there are that many.
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

// Real mounts, in a child that is alone with them.
class Mounts : public MediaRoots {
  protected:
    enum Outcome { tried, failed, no_mounts = 77, no_volumes = 78 };

    void SetUp() override {
        Vantrod::SetUp();
        root = fs::path(path_) / "root";
        music = fs::path(path_) / "music";
        for (const fs::path &each : {root / "a", root / "b", music / "below"}) {
            fs::create_directories(each);
        }
        test::make_music(music / "1.flac", 1'000, {"TITLE=One"});
        // The service reaches it through a link.
        fs::create_directory_symlink(music, path_ + "/link");
    }
    static bool put(const fs::path &where, const std::string &what, const char *type) {
        return mount(what.c_str(), where.c_str(), type, 0, nullptr) == 0;
    }
    static bool alone() {
        return geteuid() == 0 && unshare(CLONE_NEWNS) == 0 &&
               mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
    }
    // A device with a file system, which has one song and a UUID and which only this child sees; ""
    // if none can be made.
    std::string make_volume() const {
        const std::string image = path_ + "/image", holder = path_ + "/holder";
        fs::create_directory(holder);
        const std::string command = fmt::format(
            "truncate -s 8M {0} && mkfs.ext4 -q {0} && mount -o loop {0} {1}", image, holder);
        struct stat status = {};
        if (std::system(command.c_str()) != 0 || stat(holder.c_str(), &status) != 0) {
            return "";
        }
        test::make_music(holder + "/2.flac", 600'000, {"TITLE=Two"});
        const fs::path uuids = "/dev/disk/by-uuid";
        const bool made = put("/dev", "none", "tmpfs") && fs::create_directories(uuids) &&
                          mknod("/dev/null", S_IFCHR | 0666, makedev(1, 3)) == 0 &&
                          mknod("/dev/urandom", S_IFCHR | 0666, makedev(1, 9)) == 0 &&
                          mknod((uuids / "1234-ABCD").c_str(), S_IFBLK, status.st_dev) == 0;
        return made ? uuids / "1234-ABCD" : "";
    }
    // The node ids of its songs, by their names, once there are that many. Two seconds are
    // promised; a machine that is busy with other tests gets more.
    static std::map<std::string, std::string> songs_in_time(int32_t source, size_t wanted) {
        const Client client;
        EXPECT_EQ(client.result(open_main), 0);
        const auto until = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        std::map<std::string, std::string> songs;
        do {
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
            const std::string answer = client.ask(browse(source, "songs"));
            const bool there = answer.substr(0, 4) == bytes(0);
            const auto list = there ? client.list(browse(source, "songs"))
                                    : std::vector<std::pair<std::string, std::string>>();
            songs = {list.begin(), list.end()};
        } while (songs.size() != wanted && std::chrono::steady_clock::now() < until);
        EXPECT_EQ(songs.size(), wanted) << "of source " << source;
        return songs;
    }
    // The number of the source of that name, once there are `sources` sources.
    int32_t number_of(const std::string &name, int sources) {
        VantroHandle *const handle = vantro_connect_timed(20'000);
        EXPECT_EQ(vantro_open(handle, "main"), 0);
        const auto found = wait_for_sources(handle, sources);
        vantro_disconnect(handle);
        const auto source = found.find(name);
        return source != found.end() ? source->second.id : 0;
    }

    int try_mounts() {
        if (!alone()) {
            return no_mounts;
        }
        start({"--music", path_ + "/link", "--media-root", root});
        EXPECT_EQ(told(), "vantrod: ready (0 tracks, players: main)");
        EXPECT_EQ(told(), "vantrod: scanned (1 tracks)");
        const int32_t of_music = 1;
        songs_in_time(of_music, 1);
        if (!put(music / "below", "none", "tmpfs")) {
            return no_mounts;
        }
        test::make_music(music / "below/3.flac", 1'000, {"TITLE=Three"});
        songs_in_time(of_music, 2);
        EXPECT_EQ(umount((music / "below").c_str()), 0);
        songs_in_time(of_music, 1);

        const std::string volume = make_volume();
        if (volume.empty()) {
            return HasFailure() ? failed : no_volumes;
        }
        EXPECT_TRUE(put(music / "below", volume, "ext4"));
        songs_in_time(of_music, 2);
        EXPECT_EQ(umount((music / "below").c_str()), 0);
        songs_in_time(of_music, 1);

        EXPECT_TRUE(put(root / "a", volume, "ext4"));
        const int32_t number = 4; // the folders without it were 2 and 3
        const auto songs = songs_in_time(number, 1);
        EXPECT_EQ(number_of("a", 3), number);
        EXPECT_EQ(umount((root / "a").c_str()), 0);
        songs_in_time(number, 0);
        // Mounted elsewhere, it is the same source with the same songs.
        EXPECT_TRUE(put(root / "b", volume, "ext4"));
        EXPECT_EQ(songs_in_time(number, 1), songs);
        EXPECT_EQ(number_of("b", 2), number);
        service->kill(SIGTERM);
        EXPECT_EQ(service->wait(), 0);
        return HasFailure() ? failed : tried;
    }
    fs::path music;
};

TEST_F(Mounts, AreNoticedWithinTwoSecondsAsIsTheirGoing) {
    test::Process child([this] { return try_mounts(); });
    const std::string output = child.rest();
    const int outcome = child.wait();
    if (outcome == no_mounts) {
        GTEST_SKIP() << "nothing can be mounted here: mounts were NOT tried";
    }
    if (outcome == no_volumes) {
        GTEST_SKIP() << "no file system can be made here: volumes with a UUID were NOT tried";
    }
    EXPECT_EQ(outcome, tried) << output;
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
