// The catalogue when the disk under its file fails.
#include <atomic>
#include <cerrno>
#include <sys/resource.h>
#include <unistd.h>

#include <sqlite3.h>

#include "tests/service/catalogue/collection.h"
#include "tests/service/catalogue/database/failing_calls.h"

namespace vantro::service::catalogue {

namespace {

namespace fs = std::filesystem;
using Names = std::vector<std::string>;

// Lets one read of SQLite fail, the `which`-th from now on.
class FaultyReads {
  public:
    FaultyReads() {
        vfs()->xSetSystemCall(vfs(), "pread64", reinterpret_cast<sqlite3_syscall_ptr>(&read));
    }
    ~FaultyReads() { vfs()->xSetSystemCall(vfs(), "pread64", nullptr); }

    static void fail(int which) { reads_left = which; }
    static bool failed() { return reads_left <= 0; }

  private:
    static sqlite3_vfs *vfs() { return sqlite3_vfs_find("unix-excl"); }
    static ssize_t read(int file, void *bytes, size_t size, off_t offset) {
        if (reads_left > 0 && --reads_left == 0) {
            errno = EIO;
            return -1;
        }
        return pread(file, bytes, size, offset);
    }

    static inline std::atomic<int> reads_left = 0;
};

class OnAFaultyDisk : public Collection {};

TEST_F(OnAFaultyDisk, KeepsTheCatalogueWhateverReadFails) {
    for (int i = 0; i < 30; ++i) {
        add(fmt::format("{}.flac", i), {{"TITLE", fmt::format("t{}", i)}, {"ARTIST", "a"}});
    }
    open();
    const SongId song = all_songs()[0].id;
    close();
    const FaultyReads reads;
    bool all_met = false;
    for (int which = 1; !all_met; ++which) {
        open(false); // with nothing in memory
        FaultyReads::fail(which);
        NodeList nodes;
        std::vector<QueuedSong> songs;
        std::optional<SongMetadata> metadata;
        int results[] = {store_->part(song) ? 0 : EIO,
                         store_->browse(source_, "artists", {}, nodes),
                         store_->search(source_, "", "t1", {}, nodes), store_->all_songs(songs),
                         store_->metadata(source_, "albums", metadata)};
        all_met = !FaultyReads::failed();
        EXPECT_EQ(std::count(std::begin(results), std::end(results), EIO), all_met ? 0 : 1)
            << which;
        FaultyReads::fail(0);
        scan(); // a reader that mistook it for damage has acted before a scan ends
        EXPECT_EQ(last().read, 0) << which;
        EXPECT_EQ(names("songs").size(), 30u) << which;
    }
    EXPECT_FALSE(fs::exists(state_ / "catalogue.db.bad-1"));
}

// Something that prevents reading the music, and its removal.
struct Obstacle {
    const char *name;
    std::function<void()> begin;
    std::function<void()> end;
};

TEST_F(OnAFaultyDisk, ReadsMusicAsSoonAsItCan) {
    settle_ = std::chrono::milliseconds(20);
    const std::string cover = png(1, 1, std::string(3 << 20, 'x'));
    rlimit all = {};
    getrlimit(RLIMIT_NOFILE, &all);
    const Obstacle table[] = {
        {"reads fail", [] { music_reads_fail = true; }, [] { music_reads_fail = false; }},
        {"no memory", [] { large_blocks_fail = true; }, [] { large_blocks_fail = false; }},
        {"no descriptors",
         [&] {
             const int free = dup(STDIN_FILENO);
             ::close(free);
             rlimit none = all;
             none.rlim_cur = static_cast<rlim_t>(free);
             setrlimit(RLIMIT_NOFILE, &none);
         },
         [&] { setrlimit(RLIMIT_NOFILE, &all); }},
    };
    for (const auto &[name, begin, end] : table) {
        SCOPED_TRACE(name);
        fs::remove_all(state_);
        fs::remove(music_ / "new.flac");
        add("old.flac", {{"TITLE", "old"}});
        open();
        add("../new.flac", {{"TITLE", "new"}}, cover); // outside the music directory for now
        const SongId old = all_songs()[0].id;

        begin();
        fs::rename(fs::path(path_) / "new.flac", music_ / "new.flac");
        await_complaint();
        const int32_t status = store_->sources()[0].status;
        const int32_t checked = store_->check(old);
        end();
        EXPECT_EQ(status, VANTRO_SOURCE_SCANNING);
        EXPECT_NE(checked, VANTRO_ERROR_DAMAGED);
        await([&] { return store_->sources()[0].status == VANTRO_SOURCE_READY; });
        EXPECT_EQ(names("songs"), (Names{"new", "old"}));
        EXPECT_EQ(complaints().size(), 1u);
        close();
    }
}

} // namespace

} // namespace vantro::service::catalogue
