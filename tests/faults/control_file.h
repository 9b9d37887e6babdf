// The Control of another process, in a file that both map.
#ifndef VANTRO_TESTS_FAULTS_CONTROL_FILE_H
#define VANTRO_TESTS_FAULTS_CONTROL_FILE_H

#include <chrono>
#include <cstdlib>
#include <functional>
#include <string>
#include <utility>

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <fmt/format.h>
#include <gtest/gtest.h>

#include "tests/faults/inject.h"
#include "tests/support/process.h"

namespace vantro::faults {

class ControlFile {
  public:
    explicit ControlFile(std::string path = fmt::format("/tmp/vantro-faults-{}", getpid()))
        : path_(std::move(path)) {
        const int file = open(path_.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
        EXPECT_EQ(ftruncate(file, sizeof(Control)), 0);
        control_ = static_cast<Control *>(
            mmap(nullptr, sizeof(Control), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0));
        close(file);
    }
    ~ControlFile() {
        munmap(control_, sizeof(Control));
        unlink(path_.c_str());
    }
    ControlFile(const ControlFile &) = delete;
    ControlFile &operator=(const ControlFile &) = delete;

    Control *get() const { return control_; }
    // A process that is started with this environment takes part, if it is linked with inject.cpp.
    void name_in_environment() const { setenv("VANTRO_FAULTS", path_.c_str(), 1); }

  private:
    std::string path_;
    Control *control_;
};

// How long a test of random failures lasts, in seconds.
inline int budget_seconds() {
    const char *wanted = std::getenv("FAULTS_SECONDS");
    return wanted ? std::atoi(wanted) : 12;
}

inline std::string words_of(const Plan &plan) {
    return fmt::format("failure {} of kind {}, variant {}, {} times", plan.nth,
                       static_cast<int>(plan.kind), plan.variant, plan.times);
}

// Lets allocations and calls of a bridge fail, single ones and many, until the time is over. The
// bridge outlives each failure.
// @param clients use the bridge meanwhile.
// @param check   is called after each failure, with the words for it.
inline void fail_in_turn(Control &control, test::Process &bridge,
                         const std::function<void(int round)> &clients,
                         const std::function<void(int round, const std::string &what)> &check) {
    using Clock = std::chrono::steady_clock;
    const auto end = Clock::now() + std::chrono::seconds(budget_seconds());
    int failures = 0;
    for (int round = 0; Clock::now() < end && !testing::Test::HasFailure(); ++round) {
        const Kind kind = round % 3 ? Kind::allocation : Kind::call;
        const Plan plan = {kind, round * 31 % 700, kind == Kind::call ? round / 3 % variants : 0,
                           round % 7 == 0 ? from_then_on : 1};
        arm(control, plan);
        clients(round);
        disarm(control);
        failures += control.failed > 0;
        const std::string what = fmt::format("{} ({})", words_of(plan), control.name);
        ASSERT_FALSE(bridge.ended()) << what << ": " << bridge.rest();
        check(round, what);
    }
    EXPECT_GT(failures, 0);
}

} // namespace vantro::faults

#endif
