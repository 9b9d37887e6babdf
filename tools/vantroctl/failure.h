// How a run of the tool ends.
#ifndef VANTRO_TOOLS_VANTROCTL_FAILURE_H
#define VANTRO_TOOLS_VANTROCTL_FAILURE_H

#include <string>
#include <utility>

namespace vantro::ctl {

// Exit codes. Scripts rely on the numbers.
enum class Outcome : int {
    done = 0,
    failed = 1,
    usage = 2,
    absent = 3, // No service, or no such player.
    denied = 4,
    timed_out = 5,
    not_found = 6
};

// Thrown to end the run: one line that says what went wrong and what to do about it.
struct Failure {
    Outcome outcome;
    std::string text;

    Failure(Outcome with, std::string saying) : outcome(with), text(std::move(saying)) {}
};

} // namespace vantro::ctl

#endif
