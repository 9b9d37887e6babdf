// vantro-mpd with allocations and system calls failing in turn under its clients. A failure costs
// at most the client that needed the call; afterwards every answer is right again.
#include <map>
#include <optional>
#include <string>

#include "tests/bridges/mpd/bridge_process.h"
#include "tests/faults/control_file.h"

namespace vantro::faults {

namespace {

class Mpd : public mpd::Bridge {
  protected:
    void SetUp() override {
        file_.name_in_environment();
        Bridge::SetUp();
    }

    ControlFile file_;
};

TEST_F(Mpd, FailsInTurnUnderItsClients) {
    const char *const questions[] = {
        "playlistinfo", "listallinfo",      "find \"(Artist == 'Red')\"",
        "list album",   "count artist Red", "search title o",
        "lsinfo",       "listplaylists",    "outputs",
        "commands"};
    std::map<std::string, std::string> right;
    {
        mpd::RawClient client(port_);
        EXPECT_EQ(client.ask("add \"\""), "OK\n");
        for (const char *question : questions) {
            right[question] = client.ask(question);
            EXPECT_TRUE(right[question].ends_with("OK\n")) << question;
        }
    }
    std::optional<mpd::RawClient> waiting;
    const auto clients = [&](int round) {
        waiting.emplace(port_).send("idle options\n");
        mpd::RawClient working(port_);
        working.ask("newpartition x"); // refused or not, the player is tried
        for (const char *question : questions) {
            working.ask(question);
        }
        working.ask(round % 2 ? "random 1" : "random 0");
    };
    const auto check = [&](int round, const std::string &what) {
        mpd::RawClient after(port_);
        for (const auto &[question, answer] : right) {
            EXPECT_EQ(after.ask(question), answer) << what << ": " << question;
        }
        after.ask(round % 2 ? "random 0" : "random 1");
        after.ask(round % 2 ? "random 1" : "random 0");
        EXPECT_TRUE(waiting->has_answer(5000)) << what;
    };
    fail_in_turn(*file_.get(), *bridge_, clients, check);
}

} // namespace

} // namespace vantro::faults
