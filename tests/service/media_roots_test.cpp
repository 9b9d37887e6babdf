// Music that comes and goes below a media root.
#include <atomic>
#include <fstream>
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

// What all tests of media roots use.
class WithMediaRoot : public Vantrod {
  protected:
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
    // Folders and files that the service watches.
    long watches() const {
        long all = 0;
        for (const auto &each :
             fs::directory_iterator(fmt::format("/proc/{}/fdinfo", service->id()))) {
            std::ifstream lines(each.path());
            for (std::string line; std::getline(lines, line);) {
                all += line.starts_with("inotify wd:") ? 1 : 0;
            }
        }
        return all;
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
    // Reads the state as it is. An error is told only to those who follow already.
    static void follow(VantroHandle *handle) {
        const VantroEvent *event = nullptr;
        do {
            event = vantro_event_get(handle);
            ASSERT_NE(event, nullptr);
        } while (event->type != VANTRO_EVENT_NONE || event->object_name);
    }
    // Reads events until the player has reported an error and a source has disappeared.
    static void wait_for_error_and_end(VantroHandle *handle) {
        for (int error = 0, gone = 0; error == 0 || gone == 0;) {
            ASSERT_GT(vantro_event_wait_for(handle, 20'000), 0);
            const VantroEvent *event = vantro_event_get(handle);
            ASSERT_NE(event, nullptr);
            error += event->type == VANTRO_EVENT_ERROR && event->details.error.code == 1;
            gone += event->type == VANTRO_EVENT_MEDIASOURCE &&
                    event->details.mediasource.type == VANTRO_SOURCE_GONE;
        }
    }
    // Exchanges two sticks while the player plays and three clients browse. VANTRO_ROUNDS may ask
    // for more rounds.
    void come_and_go(VantroHandle *handle, const Client &client, int32_t stick) {
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
    }
    fs::path root;
};

class MediaRoots : public WithMediaRoot {
  protected:
    void SetUp() override {
        Vantrod::SetUp();
        root = fs::path(path_) / "root";
        test::make_music(path_ + "/music/1.flac", 1'000, {"TITLE=One"});
        test::make_music(root / "stick/2.flac", 600'000, {"TITLE=Two"});
        // A file with a second name is watched as well as its folder.
        fs::create_hard_link(root / "stick/2.flac", path_ + "/second name");
        test::make_music(path_ + "/away/other/3.flac", 1'000, {"TITLE=Three"});
        fs::create_directory(root / "odd\xFF\n");
        fs::create_directory_symlink(path_ + "/music", root / "link");
        start({"--music", path_ + "/music", "--media-root", root});
        ASSERT_EQ(told(), "vantrod: ready (0 tracks, players: main)");
        ASSERT_EQ(told(), "vantrod: scanned (2 tracks)");
    }
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

    const long watched = watches();
    follow(handle);
    put_away("stick");
    wait_for_error_and_end(handle);
    for (int i = 0; i < 2000 && watches() > watched - 2; ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    EXPECT_EQ(watches(), watched - 2) << "of " << watched;
    EXPECT_EQ(client.result(browse(stick, "songs")), ENOENT);
    put_back("stick");
    EXPECT_EQ(wait_for_sources(handle, 3).at("stick").id, stick);
    EXPECT_EQ(client.list(browse(stick, "songs")), songs);
    EXPECT_EQ(client.list(tracks(id_in(client.ask(session)))), songs);

    const long open_before = descriptors();
    come_and_go(handle, client, stick);
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
class Mounts : public WithMediaRoot {
  protected:
    enum Outcome { tried, failed, no_mounts = 77, no_volumes = 78 };
    static constexpr const char *folders[2] = {"a", "b"};

    void SetUp() override {
        WithMediaRoot::SetUp();
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
    struct Volume {
        std::string name, type;
        int32_t number = 0; // the number of the source in the media root
        dev_t held = 0;
        std::string device = "/dev/disk/by-uuid/serial of " + name;
        std::map<std::string, std::string> songs = {};
    };
    // Makes a file system of that type with one song, and mounts it where the service does not see
    // it.
    bool hold(Volume &volume) const {
        const std::string image = path_ + "/image." + volume.name;
        const std::string holder = path_ + "/holder." + volume.name;
        fs::create_directories(holder);
        const std::string command =
            fmt::format("PATH=$PATH:/sbin:/usr/sbin; (truncate -s 8M {0} && mkfs.{2} {0} && "
                        "mount -o loop {0} {1}) >/dev/null 2>&1",
                        image, holder, volume.type);
        struct stat status = {};
        if (std::system(command.c_str()) != 0 || stat(holder.c_str(), &status) != 0) {
            return false;
        }
        test::make_music(holder + "/2.flac", 600'000, {"TITLE=Two of " + volume.name});
        volume.held = status.st_dev;
        return true;
    }
    // The devices of all volumes, which only this child sees.
    static bool make_devices(const std::vector<Volume> &volumes) {
        return put("/dev", "none", "tmpfs") && fs::create_directories("/dev/disk/by-uuid") &&
               mknod("/dev/null", S_IFCHR | 0666, makedev(1, 3)) == 0 &&
               mknod("/dev/urandom", S_IFCHR | 0666, makedev(1, 9)) == 0 &&
               std::all_of(volumes.begin(), volumes.end(), [](const Volume &each) {
                   return mknod(each.device.c_str(), S_IFBLK, each.held) == 0;
               });
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
            const auto list = there ? Client::nodes_in(answer)
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

    std::vector<Volume> hold_volumes() const {
        std::vector<Volume> volumes;
        // Without these, the media root's folders are 2 and 3. A host without FAT gets the same
        // type twice.
        for (Volume each : {Volume{"one", "ext4", 4}, Volume{"other", "vfat", 5}}) {
            bool held = hold(each);
            if (!held && each.type == "vfat") {
                each.type = "ext4";
                held = hold(each);
            }
            if (held) {
                volumes.push_back(each);
            }
        }
        return volumes;
    }
    void exchange(std::vector<Volume> &volumes) {
        for (size_t i = 0; i < 2; ++i) {
            Volume &each = volumes[i];
            EXPECT_TRUE(put(root / folders[i], each.device, each.type.c_str()));
            each.songs = songs_in_time(each.number, 1);
            EXPECT_EQ(each.songs.count("Two of " + each.name), 1u);
        }
        for (size_t i = 0; i < 2; ++i) {
            EXPECT_EQ(number_of(folders[i], static_cast<int>(3 - i)), volumes[i].number);
            EXPECT_EQ(umount((root / folders[i]).c_str()), 0);
            songs_in_time(volumes[i].number, 0);
        }
        // After the exchange each stick is the same source with the same songs.
        for (size_t i = 0; i < 2; ++i) {
            const Volume &each = volumes[1 - i];
            EXPECT_TRUE(put(root / folders[i], each.device, each.type.c_str()));
            EXPECT_EQ(songs_in_time(each.number, 1), each.songs);
        }
        EXPECT_EQ(number_of("a", 3), volumes[1].number);
        EXPECT_EQ(number_of("b", 3), volumes[0].number);
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

        std::vector<Volume> volumes = hold_volumes();
        if (volumes.size() < 2 || !make_devices(volumes)) {
            return HasFailure() ? failed : no_volumes;
        }
        for (const Volume &each : volumes) {
            EXPECT_TRUE(put(music / "below", each.device, each.type.c_str()));
            songs_in_time(of_music, 2);
            EXPECT_EQ(umount((music / "below").c_str()), 0);
            songs_in_time(of_music, 1);
        }
        exchange(volumes);
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
        GTEST_SKIP() << "this system cannot make file systems: volumes were NOT tested";
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
