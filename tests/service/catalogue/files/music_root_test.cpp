// Nothing outside a directory of music can be opened through it.
#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

#include "service/catalogue/files/music_root.h"
#include "tests/service/catalogue/collection.h"

namespace vantro::service::catalogue {

namespace {

namespace fs = std::filesystem;

class Roots : public Collection {};

TEST_F(Roots, OpenWhatLiesBelowThemAlone) {
    test::write_file(fs::path(path_) / "outside", "");
    fs::create_directories(music_ / "a/b");
    test::write_file(music_ / "a/b/file", "");
    fs::create_symlink("b/file", music_ / "a/link");
    fs::create_symlink(music_ / "a/b/file", music_ / "a/whole");
    fs::create_directory_symlink("a", music_ / "folder");
    fs::create_symlink("../../outside", music_ / "a/out");
    fs::create_directory_symlink(path_, music_ / "away");
    const MusicRoot root(music_);
    const struct {
        const char *path;
        bool opened;  // without following links
        bool as_file; // with a link at the end followed, if it stays inside
    } table[] = {
        {"", true, true},
        {"a", true, true},
        {"a/b/file", true, true},
        {"a/link", false, true},
        {"a/whole", false, true},
        {"folder/b/file", false, true},
        {"a/out", false, false},
        {"away", false, false},
        {"away/outside", false, false},
        {"../outside", false, false},
        {"a/../../outside", false, false},
        {"none", false, false},
    };
    for (const auto &[path, opened, as_file] : table) {
        SCOPED_TRACE(path);
        int files[] = {root.open(path, O_RDONLY), walk_below(root.descriptor(), path, O_RDONLY),
                       root.open_file(path)};
        EXPECT_EQ(files[0] >= 0, opened);
        EXPECT_EQ(files[1] >= 0, opened);
        EXPECT_EQ(files[2] >= 0, as_file);
        for (const int file : files) {
            ::close(file);
        }
    }
    errno = 0;
    EXPECT_FALSE(root.target_of("a/out"));
    EXPECT_EQ(errno, EXDEV);
    EXPECT_EQ(root.target_of("a/whole").value_or(""), "a/b/file");
}

TEST_F(Roots, AreNotLeftByAFolderThatBecomesALink) {
    add("x/1.flac", {{"TITLE", "inside"}});
    open();
    const fs::path outside = fs::path(path_) / "outside";
    fs::create_directory(outside);
    test::write_file(outside / "1.flac", "what nobody may see");
    const SongId song = all_songs()[0].id;
    EXPECT_EQ(store_->check(song), 0);
    fs::rename(music_ / "x", fs::path(path_) / "away");
    fs::create_directory_symlink(outside, music_ / "x");
    EXPECT_EQ(store_->check(song), VANTRO_ERROR_UNREADABLE) << "damaged would tell what is there";
}

} // namespace

} // namespace vantro::service::catalogue
