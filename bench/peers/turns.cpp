#include "bench/peers/turns.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <sstream>

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "bench/peers/peer.h"

namespace vantro::bench::peers {

void fail(const std::string &what) {
    std::cerr << program_invocation_short_name << ": " << what << '\n';
    std::fflush(nullptr);
    std::_Exit(1);
}

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

Program::Program(std::vector<std::string> arguments) : name_(arguments.at(0)) {
    int ends[2];
    check(pipe2(ends, O_CLOEXEC) == 0, "pipe");
    std::vector<char *> pointers;
    for (std::string &argument : arguments) {
        pointers.push_back(argument.data());
    }
    pointers.push_back(nullptr);
    pid_ = fork();
    check(pid_ >= 0, "fork");
    if (pid_ == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        dup2(ends[1], STDOUT_FILENO);
        execvp(pointers[0], pointers.data());
        _exit(127);
    }
    close(ends[1]);
    output_ = ends[0];
}

Program::~Program() {
    kill(pid_, SIGTERM);
    while (waitpid(pid_, nullptr, 0) < 0 && errno == EINTR) {
    }
    close(output_);
}

void Program::wait_for_line(const std::string &text) {
    std::string line;
    char character = 0;
    while (read(output_, &character, 1) == 1) {
        if (character != '\n') {
            line += character;
        } else if (line.find(text) != std::string::npos) {
            return;
        } else {
            line.clear();
        }
    }
    fail(name_ + " ended before it was ready");
}

int64_t Program::pss_bytes() const {
    std::ifstream file("/proc/" + std::to_string(pid_) + "/smaps_rollup");
    for (std::string word; file >> word;) {
        int64_t kib = 0;
        if (word == "Pss:" && file >> kib) {
            return kib * 1024;
        }
    }
    fail("no Pss of " + name_);
}

} // namespace vantro::bench::peers
