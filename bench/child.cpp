#include "bench/child.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <fcntl.h>
#include <sched.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace vantro::bench {

int child_processor = -1;

void run_on(int processor) {
    cpu_set_t set;
    CPU_ZERO(&set);
    CPU_SET(static_cast<size_t>(processor), &set);
    sched_setaffinity(0, sizeof set, &set);
}

void fail(const std::string &what) {
    std::fprintf(stderr, "%s: %s\n", program_invocation_short_name, what.c_str());
    std::fflush(nullptr);
    std::_Exit(1);
}

void fail_errno(const std::string &what) {
    fail(what + ": " + std::strerror(errno));
}

Child::Child(std::vector<std::string> arguments, int inherited, Errors errors)
    : name_(arguments.at(0)) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) < 0) {
        fail_errno("pipe");
    }
    std::vector<char *> pointers;
    pointers.reserve(arguments.size() + 1);
    for (std::string &argument : arguments) {
        pointers.push_back(argument.data());
    }
    pointers.push_back(nullptr);

    if (errors == Errors::kept) {
        errors_ = memfd_create("errors", MFD_CLOEXEC);
        if (errors_ < 0) {
            fail_errno("memfd_create");
        }
    }

    const pid_t parent = getpid();
    pid_ = fork();
    if (pid_ < 0) {
        fail_errno("fork");
    }
    if (pid_ == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (getppid() != parent) {
            _exit(1);
        }
        if (child_processor >= 0) {
            run_on(child_processor);
        }
        dup2(ends[1], STDOUT_FILENO);
        if (errors_ >= 0) {
            dup2(errors_, STDERR_FILENO);
        }
        if (inherited >= 0) {
            fcntl(inherited, F_SETFD, 0);
        }
        execvp(pointers[0], pointers.data());
        _exit(127);
    }
    close(ends[1]);
    output_ = ends[0];
}

Child::~Child() {
    kill(pid_, SIGTERM);
    while (waitpid(pid_, nullptr, 0) < 0 && errno == EINTR) {
    }
    close(output_);
    if (errors_ >= 0) {
        close(errors_);
    }
}

void Child::wait_for_line(const std::string &text) {
    std::string line;
    char character;
    for (;;) {
        const ssize_t count = read(output_, &character, 1);
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count <= 0) {
            fail(name_ + " ended before it was ready\n" + kept_errors());
        }
        if (character != '\n') {
            line += character;
        } else if (line.find(text) != std::string::npos) {
            return;
        } else {
            line.clear();
        }
    }
}

std::string Child::kept_errors() const {
    if (errors_ < 0) {
        return "";
    }
    std::string text(4096, '\0');
    const ssize_t count = pread(errors_, text.data(), text.size(), 0);
    text.resize(count < 0 ? 0 : static_cast<size_t>(count));
    return text;
}

} // namespace vantro::bench
