// Changes are followed as they happen.
#include <unistd.h>

#include "tests/service/catalogue/collection.h"

namespace vantro::service::catalogue {

namespace {

namespace fs = std::filesystem;
using Names = std::vector<std::string>;

class Watched : public Collection {
  protected:
    void becomes(const Names &titles) {
        await([&] { return names("songs") == titles; });
        EXPECT_EQ(names("songs"), titles);
    }
};

TEST_F(Watched, FollowsChangesAtOnce) {
    settle_ = std::chrono::milliseconds(20);
    add("a/1.flac", {{"TITLE", "one"}});
    add("b/2.flac", {{"TITLE", "two"}});
    open();
    add("a/3.flac", {{"TITLE", "three"}});
    becomes({"one", "three", "two"});
    add("c/d/e/4.flac", {{"TITLE", "four"}});
    becomes({"four", "one", "three", "two"});
    add("c/d/e/5.flac", {{"TITLE", "five"}}); // in a folder that is new itself
    becomes({"five", "four", "one", "three", "two"});
    add("a/1.flac", {{"TITLE", "uno"}});
    becomes({"five", "four", "three", "two", "uno"});
    fs::remove(music_ / "a/3.flac");
    becomes({"five", "four", "two", "uno"});
    fs::rename(music_ / "c/d", music_ / "b/moved");
    await([&] { return names("folders") == (Names{"a", "b"}); });
    becomes({"five", "four", "two", "uno"});
    add("b/moved/e/6.flac", {{"TITLE", "six"}});
    becomes({"five", "four", "six", "two", "uno"});
    fs::remove_all(music_ / "b");
    becomes({"uno"});
    test::write_file(music_ / "a/cover.png", png(5, 5));
    await([&] { return metadata(entry("songs", "uno").id).width == 5; });
}

TEST_F(Watched, FollowsFilesThatAreChangedByAnotherName) {
    settle_ = std::chrono::milliseconds(20);
    add("target/1.flac", {{"TITLE", "target"}});
    add("cut.flac", {{"TITLE", "cut"}});
    const fs::path outside = fs::path(path_) / "outside.flac";
    fs::copy_file(music_ / "cut.flac", outside);
    fs::create_hard_link(outside, music_ / "hard.flac");
    fs::create_directory(music_ / "links");
    fs::create_symlink("../target/1.flac", music_ / "links/1.flac");
    open();
    EXPECT_EQ(names("songs"), (Names{"cut", "cut", "target", "target"}));
    add("target/1.flac", {{"TITLE", "new target"}});
    becomes({"cut", "cut", "new target", "new target"});
    add("target/1.flac", {{"TITLE", "newest"}});
    becomes({"cut", "cut", "newest", "newest"});
    fs::copy_file(music_ / "target/1.flac", outside, fs::copy_options::overwrite_existing);
    becomes({"cut", "newest", "newest", "newest"});
    ASSERT_EQ(truncate((music_ / "cut.flac").c_str(), 30), 0);
    becomes({"newest", "newest", "newest"});
}

} // namespace

} // namespace vantro::service::catalogue
