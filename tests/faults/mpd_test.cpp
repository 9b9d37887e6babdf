// vantro-mpd with allocations and system calls failing in turn under its clients. A failure costs
// at most the client that needed the call; afterwards every answer is right again.
#include <chrono>
#include <cstdlib>
#include <map>
#include <string>

#include <fcntl.h>
#include <poll.h>
#include <sys/mman.h>
#include <unistd.h>

#include <fmt/format.h>

#include "tests/bridges/mpd/bridge_process.h"
#include "tests/faults/inject.h"

namespace vantro::faults {

namespace {

using Clock = std::chrono::steady_clock;

class Mpd : public mpd::Bridge {
  protected:
    void SetUp() override {
        char name[] = "/tmp/vantro-faults-XXXXXX";
        const int file = mkstemp(name);
        ASSERT_GE(file, 0);
        ASSERT_EQ(ftruncate(file, sizeof(Control)), 0);
        control_ = static_cast<Control *>(
            mmap(nullptr, sizeof(Control), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0));
        close(file);
        setenv("VANTRO_FAULTS", name, 1);
        Bridge::SetUp();
        unlink(name);
    }
    void TearDown() override {
        Bridge::TearDown();
        munmap(control_, sizeof(Control));
    }

    Control *control_ = nullptr;
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
    const char *wanted = std::getenv("FAULTS_SECONDS");
    const auto end = Clock::now() + std::chrono::seconds(wanted ? std::atoi(wanted) : 12);
    int failures = 0;
    for (int round = 0; Clock::now() < end && !HasFailure(); ++round) {
        const Kind kind = round % 3 ? Kind::allocation : Kind::call;
        const Plan plan = {kind, round * 31 % 700, kind == Kind::call ? round / 3 % variants : 0,
                           round % 7 == 0 ? from_then_on : 1};
        const std::string what =
            fmt::format("failure {} of kind {}, variant {}, {} times", plan.nth,
                        static_cast<int>(kind), plan.variant, plan.times);
        arm(*control_, plan);
        mpd::RawClient waiting(port_);
        waiting.send("idle options\n");
        mpd::RawClient working(port_);
        working.ask("newpartition x"); // refused or not, the player is tried
        for (const char *question : questions) {
            working.ask(question);
        }
        working.ask(round % 2 ? "random 1" : "random 0");
        disarm(*control_);
        failures += control_->failed > 0;
        ASSERT_FALSE(bridge_->ended()) << what << ": " << bridge_->rest();
        mpd::RawClient after(port_);
        for (const auto &[question, answer] : right) {
            EXPECT_EQ(after.ask(question), answer) << what << ": " << question;
        }
        after.ask(round % 2 ? "random 0" : "random 1");
        after.ask(round % 2 ? "random 1" : "random 0");
        EXPECT_TRUE(waiting.has_answer(5000)) << what << ": " << control_->name;
    }
    EXPECT_GT(failures, 0);
}

} // namespace

} // namespace vantro::faults
