// What becomes of the catalogue when the disk under its file fails.
#include <atomic>
#include <cerrno>
#include <unistd.h>

#include <sqlite3.h>

#include "tests/service/catalogue/collection.h"

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

    static void fail(int which) { left_ = which; }
    static bool failed() { return left_ <= 0; }

  private:
    static sqlite3_vfs *vfs() { return sqlite3_vfs_find("unix-excl"); }
    static ssize_t read(int file, void *bytes, size_t size, off_t offset) {
        if (left_ > 0 && --left_ == 0) {
            errno = EIO;
            return -1;
        }
        return pread(file, bytes, size, offset);
    }

    static inline std::atomic<int> left_ = 0;
};

class OnAFaultyDisk : public Collection {};

TEST_F(OnAFaultyDisk, KeepsTheCatalogueWhateverReadFails) {
    for (int i = 0; i < 30; ++i) {
        add(fmt::format("{}.flac", i), {{"TITLE", fmt::format("t{}", i)}, {"ARTIST", "a"}});
    }
    open();
    close();
    const FaultyReads reads;
    bool all_met = false;
    for (int which = 1; !all_met; ++which) {
        open(false); // with nothing in memory
        FaultyReads::fail(which);
        NodeList nodes;
        std::vector<QueuedSong> songs;
        std::optional<SongMetadata> metadata;
        int results[] = {store_->browse(source_, "artists", {}, nodes),
                         store_->search(source_, "", "t1", {}, nodes), store_->all_songs(songs),
                         store_->metadata(source_, "albums", metadata)};
        all_met = !FaultyReads::failed();
        EXPECT_EQ(std::count(std::begin(results), std::end(results), EIO), all_met ? 0 : 1)
            << which;
        FaultyReads::fail(0);
        scan(); // whoever took it for damage has acted by the end of a scan
        EXPECT_EQ(last().read, 0) << which;
        EXPECT_EQ(names("songs").size(), 30u) << which;
    }
    EXPECT_FALSE(fs::exists(state_ / "catalogue.db.bad-1"));
}

} // namespace

} // namespace vantro::service::catalogue
