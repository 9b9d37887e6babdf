#include "service/catalogue/scan/root_watch.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>

#include "tests/support/process.h"

namespace vantro::service::catalogue {

namespace {

namespace fs = std::filesystem;

// The folders that this process watches.
long watched_folders() {
    long count = 0;
    for (const auto &each : fs::directory_iterator("/proc/self/fdinfo")) {
        std::ifstream info(each.path());
        for (std::string line; std::getline(info, line);) {
            count += line.rfind("inotify wd:", 0) == 0;
        }
    }
    return count;
}

using MediaRootWatch = test::RuntimeDirectory;

TEST_F(MediaRootWatch, IsOneAFolderAndOnlyWhileItIsGiven) {
    const std::string root = path_ + "/root", link = path_ + "/link";
    const struct {
        const char *name;
        std::vector<std::string> first;
        std::function<void()> change;
        std::vector<std::string> then;
        long watches;
    } rows[] = {
        {"one of two roots that are the same folder", {root, link}, [] {}, {root}, 1},
        {"the other one of these roots", {root, link}, [] {}, {link}, 1},
        {"all", {root, link}, [] {}, {}, 0},
        {"a folder that was moved",
         {root},
         [&] {
             fs::rename(root, path_ + "/elsewhere");
             fs::create_directory(root);
         },
         {root},
         1},
    };
    fs::create_directory(root);
    fs::create_directory_symlink(root, link);
    for (const auto &row : rows) {
        const long before = watched_folders();
        MusicSources sources;
        RootWatch watch(
            sources, row.first,
            {[](int32_t) {}, [] {}, [](const MusicPointer &) {}, [](int, const std::string &) {}});
        watch.look();
        EXPECT_EQ(watched_folders() - before, 1) << row.name;
        row.change();
        watch.set_music({{}, row.then});
        watch.look();
        EXPECT_EQ(watched_folders() - before, row.watches) << row.name;
    }
}

} // namespace

} // namespace vantro::service::catalogue
