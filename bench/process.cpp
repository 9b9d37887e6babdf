#include "bench/process.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>

#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace vantro::bench {

namespace {

volatile sig_atomic_t watched_pid = 0;

extern "C" void pass_on(int signal_number) {
    if (watched_pid > 0) {
        kill(static_cast<pid_t>(watched_pid), signal_number);
    }
}

[[noreturn]] void watch(pid_t measuring, const std::string &directory) {
    watched_pid = measuring;
    struct sigaction action = {};
    action.sa_handler = pass_on;
    for (const int signal_number : {SIGINT, SIGTERM, SIGHUP}) {
        sigaction(signal_number, &action, nullptr);
    }

    int result = 1;
    for (;;) {
        int status = 0;
        const pid_t ended = waitpid(-1, &status, 0);
        if (ended < 0 && errno == EINTR) {
            continue;
        }
        if (ended < 0) {
            break;
        }
        if (ended == measuring) {
            watched_pid = 0;
            result = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
        }
    }
    std::error_code error;
    std::filesystem::remove_all(directory, error);
    std::_Exit(result);
}

} // namespace

void run_anywhere() {
    cpu_set_t all;
    CPU_ZERO(&all);
    for (size_t i = 0; i < CPU_SETSIZE; ++i) {
        CPU_SET(i, &all); // those that this process may not use do not count
    }
    sched_setaffinity(0, sizeof all, &all);
}

Apart::Apart() {
    std::vector<int> processors;
    if (sched_getaffinity(0, sizeof before_, &before_) == 0) {
        for (size_t i = 0; i < CPU_SETSIZE; ++i) {
            if (CPU_ISSET(i, &before_)) {
                processors.push_back(static_cast<int>(i));
            }
        }
    }
    if (processors.size() < 2) {
        return;
    }
    run_on(processors[0]);
    child_processor = processors[1];
}

Apart::~Apart() {
    if (child_processor >= 0) {
        sched_setaffinity(0, sizeof before_, &before_);
    }
    child_processor = -1;
}

Together::Together() {
    sched_getaffinity(0, sizeof before_, &before_);
    run_on(sched_getcpu());
}

Together::~Together() {
    sched_setaffinity(0, sizeof before_, &before_);
}

std::string program_beside(const std::string &name) {
    std::error_code error;
    const std::filesystem::path self = std::filesystem::read_symlink("/proc/self/exe", error);
    if (error) {
        fail("cannot tell where this program lies");
    }
    return name.empty() ? self.string() : (self.parent_path() / name).string();
}

std::string enter_private_runtime() {
    std::string directory = std::filesystem::temp_directory_path() / "vantro-bench.XXXXXX";
    if (!mkdtemp(directory.data())) {
        fail_errno(directory);
    }
    // Servers whose measuring process has ended become children of the watcher, which waits for
    // them too.
    prctl(PR_SET_CHILD_SUBREAPER, 1);
    const pid_t watcher = getpid();
    const pid_t measuring = fork();
    if (measuring < 0) {
        fail_errno("fork");
    }
    if (measuring > 0) {
        watch(measuring, directory);
    }
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != watcher) {
        _exit(1);
    }
    setenv("XDG_RUNTIME_DIR", directory.c_str(), 1);
    return directory;
}

} // namespace vantro::bench
