// How the catalogue follows the directories.
#include <algorithm>
#include <fstream>
#include <thread>

#include <sched.h>
#include <sys/mount.h>
#include <sys/resource.h>

#include "service/catalogue/database/schema.h"
#include "service/catalogue/text/node_ids.h"
#include "tests/service/catalogue/collection.h"

namespace vantro::service::catalogue {

namespace {

namespace fs = std::filesystem;
using Names = std::vector<std::string>;

class Scanned : public Collection {
  protected:
    // Runs `body` in namespaces in which it may mount and set limits. Skips the test if `prepare`
    // fails.
    void in_namespaces_of_its_own(const std::function<bool()> &prepare,
                                  const std::function<void()> &body) {
        constexpr int forbidden = 77;
        test::Process child([&] {
            const auto tell = [](const char *file, const std::string &text) {
                return bool(std::ofstream(file) << text << std::flush);
            };
            const std::string user = fmt::format("0 {} 1", geteuid());
            const std::string group = fmt::format("0 {} 1", getegid());
            if (unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0 || !tell("/proc/self/uid_map", user) ||
                !tell("/proc/self/setgroups", "deny") || !tell("/proc/self/gid_map", group) ||
                !prepare()) {
                return forbidden;
            }
            body();
            close();
            return HasFailure() ? 1 : 0;
        });
        const std::string output = child.rest();
        const int status = child.wait();
        if (status == forbidden) {
            GTEST_SKIP() << "no namespaces here";
        }
        EXPECT_EQ(status, 0) << output;
    }
    // Runs `body` where the kernel grants that many watches.
    void with_watches(int count, const std::function<void()> &body) {
        const auto limit = [count] {
            return bool(std::ofstream("/proc/sys/user/max_inotify_watches") << count << std::flush);
        };
        in_namespaces_of_its_own(limit, body);
    }
};

TEST_F(Scanned, LeavesOutWhatIsBadAndSaysSoOnce) {
    add("good.flac");
    add("b\xE4"
        "d name \xFF/\xFE.flac",
        {{"ARTIST", "x"}});
    fs::create_directories(music_ / "folder.mp3");
    fs::create_directory_symlink("..", music_ / "folder.mp3/round");
    fs::create_directory_symlink("loop", music_ / "loop");
    fs::create_symlink("nowhere", music_ / "dangling.ogg");
    fs::create_symlink("good.flac", music_ / "link.flac");
    fs::create_symlink(template_flac(), music_ / "out.flac");
    fs::create_directory_symlink(path_, music_ / "way out");
    fs::create_symlink("/etc/hostname", music_ / "text"); // not an audio file
    mkfifo((music_ / "pipe.mp3").c_str(), 0600);
    std::string deep;
    for (int i = 0; i < 100; ++i) {
        deep += "d/";
    }
    add(deep + "deep.flac");
    fs::path deeper = music_ / "d";
    for (int i = 0; i < 300; ++i) {
        deeper /= "e";
    }
    fs::create_directories(deeper);
    std::string half;
    {
        std::ifstream in(template_flac(), std::ios::binary);
        half.resize(30);
        in.read(half.data(), 30);
    }
    test::write_file(music_ / "half.flac", half);
    for (const char *ending : {"flac", "ogg", "opus", "mp3", "m4a", "wav"}) {
        test::write_file(music_ / fmt::format("empty.{}", ending), "");
        test::write_file(music_ / fmt::format("noise\n\x1B[31m.{}", ending),
                         std::string(5'000, 'Z') + "fLaCOggS");
    }
    open();
    const std::string bad = "\xEF\xBF\xBD";
    EXPECT_EQ(names("songs"), (Names{"deep", "good", "link", bad}));
    EXPECT_EQ(names(browse("folders")).at(0), "b" + bad + "d name " + bad);
    EXPECT_EQ(extended(browse("songs").at(3).id, {"path"}).at(0),
              (music_ / ("b" + bad + "d name " + bad) / (bad + ".flac")).native());
    Names lines = complaints();
    std::sort(lines.begin(), lines.end());
    EXPECT_EQ(std::unique(lines.begin(), lines.end()), lines.end());
    // 13 bad files, a pipe, five links, one folder that lies too deep.
    EXPECT_EQ(lines.size(), 20u) << testing::PrintToString(lines);
    EXPECT_EQ(last().left_out, 20);

    scan();
    EXPECT_EQ(complaints(), Names{}) << "said once";
    EXPECT_EQ(last().read, 0);
    open();
    EXPECT_EQ(complaints(), Names{}) << "also after a new start";
    fs::copy_file(template_flac(), music_ / "half.flac", fs::copy_options::overwrite_existing);
    test::write_file(music_ / "good.flac", "no longer");
    scan();
    EXPECT_EQ(names("songs"), (Names{"deep", "half", bad}));
    EXPECT_EQ(complaints().size(), 2u) << "the song, and the link to it";
}

TEST_F(Scanned, ReadsOnlyWhatChangedAndKeepsIds) {
    for (int i = 0; i < 20; ++i) {
        add(fmt::format("{}/{}.flac", i % 3, i), {{"TITLE", fmt::format("t{}", i)},
                                                  {"ARTIST", fmt::format("a{}", i % 4)},
                                                  {"ALBUM", fmt::format("b{}", i % 4)},
                                                  {"GENRE", "g"},
                                                  {"DATE", "1999"}});
    }
    open();
    EXPECT_EQ(last().read, 20);
    const auto ids = [&] {
        Names all;
        for (const char *menu : {"artists", "albums", "genres", "years", "songs", "folders"}) {
            for (const Node &node : browse(menu)) {
                all.push_back(node.id);
            }
        }
        return all;
    };
    const Names before = ids();
    const std::string uid = store_->sources()[0].uid;
    const SongId first = all_songs()[0].id;

    open(); // a second start
    EXPECT_EQ(last().read, 0);
    EXPECT_EQ(last().seen, 20);
    EXPECT_EQ(ids(), before);
    EXPECT_EQ(all_songs()[0].id, first);

    add("0/0.flac", {{"TITLE", "renamed"}, {"ARTIST", "new"}});
    fs::remove(music_ / "1/1.flac");
    fs::remove_all(music_ / "2");
    scan();
    EXPECT_EQ(last().read, 1);
    EXPECT_EQ(last().seen, 13);
    EXPECT_EQ(names("folders"), (Names{"0", "1"}));
    EXPECT_EQ(entry("songs", "renamed").id, browse(browse("folders")[0].id)[0].id);
    EXPECT_EQ(found("title", "t0"), Names{});
    EXPECT_EQ(found("artist", "new"), Names{"new"});
    EXPECT_EQ(names("albums").size(), 4u);
    const Names changed = ids();

    close();
    fs::remove_all(state_);
    open(); // made again
    EXPECT_EQ(ids(), changed);
    EXPECT_EQ(store_->sources()[0].uid, uid);
    EXPECT_NE(all_songs()[0].id, first) << "numbers are not given twice";
    add("1/1.flac", {{"TITLE", "t1"}, {"ARTIST", "a1"}, {"ALBUM", "b1"}, {"DATE", "1999"}});
    scan();
    EXPECT_NE(std::find(before.begin(), before.end(), entry("songs", "t1").id), before.end());
}

TEST_F(Scanned, IsBeingScannedFromTheStart) {
    add("1.flac", {{"TITLE", "one"}});
    open(false);
    EXPECT_EQ(store_->sources()[0].status, VANTRO_SOURCE_SCANNING);
    scan();
    EXPECT_EQ(store_->sources()[0].status, VANTRO_SOURCE_READY);
}

TEST_F(Scanned, KeepsWhatItKnowsOfADirectoryThatIsGone) {
    settle_ = std::chrono::milliseconds(20);
    rescan_every_ = std::chrono::milliseconds(100);
    add("1.flac", {{"TITLE", "one"}});
    open();
    const fs::path away = fs::path(path_) / "away";
    const auto status = [&] { return store_->sources()[0].status; };
    fs::rename(music_, away);
    await([&] { return status() == VANTRO_SOURCE_UNAVAILABLE; });
    EXPECT_EQ(names("songs"), Names{"one"});
    EXPECT_EQ(complaints().size(), 1u);
    fs::rename(away, music_);
    add("2.flac", {{"TITLE", "two"}});
    await([&] { return status() == VANTRO_SOURCE_READY && names("songs").size() == 2; });

    close();
    fs::rename(music_, away);
    for (const bool is_place :
         {false, true}) { // missing from the start, and it looks like a mount point or not
        if (is_place) {
            fs::create_directory(music_);
        }
        open(false);
        store_->start_scanning();
        await([&] { return status() == VANTRO_SOURCE_UNAVAILABLE; });
        EXPECT_EQ(names("songs"), (Names{"one", "two"}));
        close();
    }
}

TEST_F(Scanned, KeepsWhatItKnowsOfAFolderThatCannotBeRead) {
    add("open/1.flac", {{"TITLE", "one"}});
    add("shut/2.flac", {{"TITLE", "two"}});
    fs::create_directory(state_);
    for (const fs::path &each : {fs::path(path_), music_, music_ / "shut", state_}) {
        ASSERT_EQ(chown(each.c_str(), test::plain_user(), -1), 0);
    }
    test::Process child([&] { // as somebody who may not read everything
        test::become_plain_user();
        open();
        for (const auto left : {fs::perms::none, fs::perms::owner_read}) {
            fs::permissions(music_ / "shut", left);
            scan();
            EXPECT_EQ(complaints().size(), left == fs::perms::none ? 1u : 0u);
            scan();
            EXPECT_EQ(complaints(), Names{});
            EXPECT_EQ(names("songs"), (Names{"one", "two"}));
        }
        fs::permissions(music_ / "shut", fs::perms::owner_all);
        fs::remove(music_ / "shut/2.flac");
        scan();
        EXPECT_EQ(names("songs"), Names{"one"});
        close();
        return HasFailure() ? 1 : 0;
    });
    const std::string output = child.rest();
    EXPECT_EQ(child.wait(), 0) << output;
}

TEST_F(Scanned, HasSeveralSources) {
    settle_ = std::chrono::milliseconds(20);
    add("1.flac", {{"TITLE", "here"}, {"ARTIST", "anna"}});
    const fs::path other = fs::path(path_) / "other/music";
    fs::create_directories(other);
    fs::copy_file(music_ / "1.flac", other / "1.flac");
    sources_ = {music_, other, music_ / "."};
    open();
    std::vector<Source> sources = store_->sources();
    ASSERT_EQ(sources.size(), 2u) << "one directory is one source";
    EXPECT_NE(sources[0].name, sources[1].name);
    EXPECT_NE(sources[0].uid, sources[1].uid);
    EXPECT_EQ(all_songs().size(), 2u);
    const int32_t first = sources[0].id;
    const int32_t second = sources[1].id;
    const SongId of_first = all_songs()[0].id;

    sources_ = {other};
    open();
    EXPECT_EQ(source_, second);
    EXPECT_EQ(found("", "here"), Names{"here"});
    EXPECT_EQ(found("artist", "anna"), Names{"anna"});
    EXPECT_EQ(song_nodes({of_first})[0].id, "") << "of a source that is not given now";
    sources_ = {other, music_, path_}; // one within another
    open();
    EXPECT_EQ(store_->sources()[1].id, first);
    add("2.flac", {{"TITLE", "new"}});
    for (const size_t each : {1, 2}) {
        source_ = store_->sources()[each].id;
        await([&] { return found("title", "new").size() == 1; });
    }
}

TEST_F(Scanned, MovesADamagedCatalogueAside) {
    add("1.flac", {{"TITLE", "one"}});
    const fs::path file = state_ / "catalogue.db";
    fs::create_directory(state_);
    test::write_file(file, std::string(100'000, 'x'));
    open();
    EXPECT_EQ(names("songs"), Names{"one"});
    EXPECT_EQ(complaints().size(), 1u);
    EXPECT_EQ(fs::file_size(file.native() + ".bad-1"), 100'000u);

    close();
    open_catalogue_file(file, [](const auto &) {})->script("PRAGMA user_version = 99");
    open();
    EXPECT_EQ(names("songs"), Names{"one"});
    EXPECT_EQ(complaints().size(), 1u);
    EXPECT_TRUE(fs::exists(file.native() + ".bad-2")) << "never over an earlier one";

    // Damaged while it is in use.
    for (int i = 0; i < 200; ++i) {
        add(fmt::format("{}.flac", i), {{"TITLE", fmt::format("t{}", i)}});
    }
    scan();
    close();
    open(false);
    NodeList nodes;
    EXPECT_EQ(store_->browse(source_, "songs", {}, nodes), 0);
    const std::string list_before = nodes.list;
    {
        std::fstream bytes(file, std::ios::in | std::ios::out | std::ios::binary);
        for (uintmax_t at = 4096; at < fs::file_size(file); at += 64) {
            bytes.seekp(static_cast<std::streamoff>(at));
            bytes << "damaged!";
        }
    }
    std::vector<QueuedSong> songs;
    EXPECT_EQ(store_->all_songs(songs), EIO);
    store_->start_scanning();
    await([&] {
        nodes.clear();
        return store_->browse(source_, "songs", {}, nodes) == 0 && nodes.size() == 200;
    });
    EXPECT_TRUE(fs::exists(file.native() + ".bad-3"));
    // Nothing kept from the old catalogue is mistaken for a part of the new one.
    for (int i = 0; i < 5; ++i) {
        EXPECT_NE(nodes.list, list_before);
        add("0.flac", {{"TITLE", fmt::format("changed {}", i)}});
        scan();
        nodes.clear();
        EXPECT_EQ(store_->browse(source_, "songs", {}, nodes), 0);
    }
}

TEST_F(Scanned, GoesOnWhenTheDiskHasRoomAgain) {
    add("1.flac", {{"TITLE", "one"}});
    open();
    for (int i = 0; i < 200; ++i) {
        add(fmt::format("x/{}.flac", i), {{"TITLE", fmt::format("t{}", i)}}, png(1, 1, "cover"));
    }
    open(false);
    // A limit on the size of files stands for a full disk.
    rlimit before = {};
    getrlimit(RLIMIT_FSIZE, &before);
    signal(SIGXFSZ, SIG_IGN);
    rlimit tight = before;
    tight.rlim_cur = 64 * 1024;
    setrlimit(RLIMIT_FSIZE, &tight);
    store_->start_scanning();
    await_complaint();
    const Names meanwhile = names("songs"); // readers go on
    EXPECT_EQ(std::count(meanwhile.begin(), meanwhile.end(), "one"), 1);
    EXPECT_LT(meanwhile.size(), 201u);
    EXPECT_EQ(store_->sources()[0].status, VANTRO_SOURCE_SCANNING);
    EXPECT_FALSE(last().done);
    setrlimit(RLIMIT_FSIZE, &before);
    EXPECT_EQ(complaints().size(), 1u);
    await([&] { return store_->sources()[0].status == VANTRO_SOURCE_READY; });
    EXPECT_EQ(names("songs").size(), 201u);
    wait_for([&] { return last_.done; });
}

TEST_F(Scanned, StartsOnAFullDiskWithWhatItKnows) {
    add("1.flac", {{"TITLE", "one"}});
    fs::create_directory(state_);
    const auto small_disk = [&] {
        return mount("none", state_.c_str(), "tmpfs", 0, "size=1m") == 0;
    };
    in_namespaces_of_its_own(small_disk, [&] {
        const auto fill = [&] {
            std::ofstream(state_ / "fill") << std::string(2 << 20, 'x') << std::flush;
        };
        fill();
        StoreOptions options;
        options.state = state_;
        const std::string wrong = last_words(open_store(options).error());
        EXPECT_NE(wrong.find("full"), std::string::npos) << wrong;
        for (const fs::path &each : fs::directory_iterator(state_)) {
            fs::remove_all(each);
        }
        open();
        close();
        fill();
        add("2.flac", {{"TITLE", "two"}});
        open(false);
        store_->start_scanning();
        await_complaint();
        EXPECT_EQ(names("songs"), Names{"one"});
        EXPECT_EQ(store_->take_session_ids(1), 0) << "cannot be noted";
        fs::remove(state_ / "fill");
        await([&] { return names("songs") == Names{"one", "two"}; });
        EXPECT_EQ(store_->take_session_ids(1), 1);
    });
}

TEST_F(Scanned, LooksAgainWhereWatchesRunOut) {
    settle_ = std::chrono::milliseconds(20);
    rescan_unwatched_ = std::chrono::milliseconds(100);
    add_to_folders(0);
    with_watches(3, [&] {
        open();
        add_to_folders(1);
        await([&] { return names("songs").size() == 10; });
        const Names lines = complaints();
        ASSERT_EQ(lines.size(), 1u) << testing::PrintToString(lines);
        EXPECT_NE(lines[0].find("fs.inotify.max_user_watches"), std::string::npos);
    });
}

// Only the top is watched, so a folder is read again only if a scan of it was requested.
TEST_F(Scanned, LooksAgainAtTheFoldersOfANode) {
    add_to_folders(0);
    with_watches(1, [&] {
        open();
        add_to_folders(1);
        EXPECT_EQ(store_->rescan_node(source_, "nothing"), ENOENT);
        EXPECT_EQ(store_->rescan_node(source_ + 1, ""), ENOENT);
        const std::pair<std::string, Names> rows[] = {
            {entry("folders", "2").id, {"2 1"}},
            {entry("songs", "3 0").id, {"3 1"}},
            {entry("artists", "a0").id, {"0 1", "4 1"}},
            {"albums", {"1 1"}}, // a menu: the whole source
        };
        Names wanted = names("songs");
        for (const auto &[node, found] : rows) {
            ASSERT_EQ(store_->rescan_node(source_, node), 0) << node;
            wanted.insert(wanted.end(), found.begin(), found.end());
            std::sort(wanted.begin(), wanted.end());
            await([&] { return names("songs").size() >= wanted.size(); });
            EXPECT_EQ(names("songs"), wanted);
        }
    });
}

TEST_F(Scanned, TellsApartWhatHasOneDigest) {
    add("a.flac", {{"TITLE", "a"}});
    add("other.flac", {{"TITLE", "other"}});
    open();
    const std::string id = entry("songs", "a").id;
    close();
    // "other" gets the key of "a", as a file with the same digest would.
    {
        const auto file = open_catalogue_file(state_ / "catalogue.db", [](const auto &) {});
        file->run("DELETE FROM song WHERE name = 'a'");
        file->run("UPDATE song SET key = ?1", key_of(kind_song, "a.flac"));
        file->run("UPDATE node SET count = 1");
        file->run("UPDATE source SET songs = 1");
    }
    open();
    EXPECT_EQ(names("songs"), (Names{"a", "other"}));
    const std::string salted = entry("songs", "a").id;
    EXPECT_NE(salted, id);
    close();
    open_catalogue_file(state_ / "catalogue.db", [](const auto &) {
    })->run("DELETE FROM song WHERE name = 'other'");
    add("a.flac", {{"TITLE", "again"}});
    open();
    EXPECT_EQ(names("songs"), (Names{"again", "other"}));
    EXPECT_EQ(entry("songs", "again").id, salted) << "it keeps the id it was given";
}

TEST_F(Scanned, SaysWhatCannotBeHad) {
    open(false);
    StoreOptions options;
    options.state = state_;
    const std::string wrong = last_words(open_store(options).error());
    EXPECT_NE(wrong.find("another"), std::string::npos) << wrong;
    options.state = template_flac() / "below a file";
    EXPECT_FALSE(open_store(options));
}

TEST_F(Scanned, AnswersWhileItScans) {
    for (int i = 0; i < 300; ++i) {
        add(fmt::format("{}/{}.flac", i % 10, i), {{"TITLE", fmt::format("t{}", i)},
                                                   {"ARTIST", fmt::format("a{}", i % 7)},
                                                   {"GENRE", "g"}});
    }
    open(false);
    std::atomic<bool> end = false;
    std::vector<std::thread> readers(3);
    for (std::thread &reader : readers) {
        reader = std::thread([&] {
            while (!end) {
                const std::vector<Node> songs = browse("songs");
                const std::vector<Node> root = browse("");
                EXPECT_LE(songs.size(), static_cast<size_t>(root.at(4).count));
                found("", "t1");
                all_songs();
                for (const Node &artist : browse("artists")) {
                    metadata(artist.id);
                }
            }
        });
    }
    scan();
    end = true;
    for (std::thread &reader : readers) {
        reader.join();
    }
    EXPECT_EQ(names("songs").size(), 300u);
    store_->rescan();
    store_->stop_scanning(); // in the middle of it
}

} // namespace

} // namespace vantro::service::catalogue
