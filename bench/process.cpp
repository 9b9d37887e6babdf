#include "bench/process.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fmt/format.h>

namespace vantro::bench {

namespace {

// Where children run; -1: anywhere.
int child_processor = -1;

void run_on(int processor) {
    cpu_set_t set;
    CPU_ZERO(&set);
    CPU_SET(static_cast<size_t>(processor), &set);
    sched_setaffinity(0, sizeof set, &set);
}

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

void fail(const std::string &what) {
    fmt::print(stderr, "vantro-bench: {}\n", what);
    std::fflush(nullptr);
    std::_Exit(1);
}

void fail_errno(const std::string &what) {
    fail(fmt::format("{}: {}", what, std::strerror(errno)));
}

Child::Child(std::vector<std::string> arguments, int inherited) : name_(arguments.at(0)) {
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

    errors_ = memfd_create("errors", MFD_CLOEXEC);
    if (errors_ < 0) {
        fail_errno("memfd_create");
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
        dup2(errors_, STDERR_FILENO);
        if (inherited >= 0) {
            fcntl(inherited, F_SETFD, 0);
        }
        execv(pointers[0], pointers.data());
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
    close(errors_);
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
            fail(fmt::format("{} ended before it was ready\n{}", name_, errors()));
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

std::string Child::errors() const {
    std::string text(4096, '\0');
    const ssize_t count = pread(errors_, text.data(), text.size(), 0);
    text.resize(count < 0 ? 0 : static_cast<size_t>(count));
    return text;
}

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

void raise_descriptor_limit() {
    struct rlimit limit;
    if (getrlimit(RLIMIT_NOFILE, &limit) < 0) {
        return;
    }
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_NOFILE, &limit);
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
