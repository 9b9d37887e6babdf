// The conversation with scripts/compare: it writes "ROW COUNT" to standard input, and the program
// answers with a line of COUNT times in nanoseconds. In this way the script lets all programs take
// turns.
#ifndef VANTRO_BENCH_PEERS_TURNS_H
#define VANTRO_BENCH_PEERS_TURNS_H

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include <sys/types.h>

namespace vantro::bench::peers {

using Times = std::vector<int64_t>;
using Rows = std::map<std::string, std::function<Times(size_t count)>>;

inline int64_t now_ns() {
    return std::chrono::duration_cast<std::chrono::nanoseconds>(
               std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

// Times each call of `action`.
template <typename Action>
Times time_each(size_t count, Action action) {
    Times times;
    times.reserve(count);
    for (size_t i = 0; i < count; ++i) {
        const int64_t begin = now_ns();
        action();
        times.push_back(now_ns() - begin);
    }
    return times;
}

// Prints "ready" and measures what is asked for until standard input ends.
// @return the program's exit status.
int take_turns(const Rows &rows);

// The memory of a process, shared pages divided among those that share them.
int64_t pss_bytes(pid_t process);

} // namespace vantro::bench::peers

#endif
