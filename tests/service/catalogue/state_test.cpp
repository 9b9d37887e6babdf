// What other users can see of the state directory.
#include <sys/stat.h>

#include "tests/service/catalogue/collection.h"

namespace vantro::service::catalogue {

namespace {

namespace fs = std::filesystem;

class State : public Collection {
  protected:
    static std::string mode_of(const fs::path &file) {
        struct stat status = {};
        EXPECT_EQ(lstat(file.c_str(), &status), 0) << file;
        return fmt::format("{:o}", status.st_mode & 07777);
    }
};

TEST_F(State, IsPrivateButForCoversOfThoseWhoMayHaveThem) {
    add("1.flac", {{"TITLE", "one"}}, png(1, 1));
    const struct {
        ArtworkReaders readers;
        const char *folder;
        const char *cover;
    } table[] = {{{}, "711", "644"},
                 {{ArtworkReaders::service_own, getegid(), 0440}, "711", "640"},
                 {{ArtworkReaders::service_own, ArtworkReaders::service_own, 0400}, "700", "600"},
                 {{geteuid(), ArtworkReaders::service_own, 0400}, "711", "600"}};
    for (const bool from_before : {false, true}) {
        for (const auto &[readers, folder, cover] : table) {
            if (!from_before) {
                fs::remove_all(state_);
            }
            artwork_readers_ = readers;
            open();
            const std::string uri = metadata(entry("songs", "one").id).artwork;
            EXPECT_EQ(mode_of(uri.substr(std::string("file://").size())), cover);
            EXPECT_EQ(mode_of(state_ / "artwork"), folder);
            if (!from_before) {
                EXPECT_EQ(mode_of(state_), folder);
            }
            for (const char *file : {"catalogue.db", "catalogue.db-wal", "lock"}) {
                EXPECT_EQ(mode_of(state_ / file), "600") << file;
            }
            close();
            fs::permissions(state_ / "catalogue.db",
                            fs::perms(0644)); // as earlier versions left it
        }
    }
}

} // namespace

} // namespace vantro::service::catalogue
