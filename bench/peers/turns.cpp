#include "bench/peers/turns.h"

#include <cstdio>
#include <fstream>
#include <iostream>
#include <sstream>

#include "bench/child.h"

namespace vantro::bench::peers {

int take_turns(const Rows &rows) {
    std::puts("ready");
    std::fflush(stdout);
    for (std::string line; std::getline(std::cin, line);) {
        std::istringstream words(line);
        std::string row;
        size_t count = 0;
        words >> row >> count;
        const auto found = rows.find(row);
        if (found == rows.end()) {
            fail("no row is called " + row);
        }
        std::string answer;
        for (const int64_t time : found->second(count)) {
            answer += std::to_string(time) + ' ';
        }
        std::puts(answer.c_str());
        std::fflush(stdout);
    }
    return 0;
}

int64_t pss_bytes(pid_t process) {
    std::ifstream file("/proc/" + std::to_string(process) + "/smaps_rollup");
    for (std::string word; file >> word;) {
        int64_t kib = 0;
        if (word == "Pss:" && file >> kib) {
            return kib * 1024;
        }
    }
    fail("no Pss of process " + std::to_string(process));
}

} // namespace vantro::bench::peers
