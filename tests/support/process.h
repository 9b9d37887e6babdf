// Programs under test as real processes, in a runtime directory of their own.
#ifndef VANTRO_TESTS_SUPPORT_PROCESS_H
#define VANTRO_TESTS_SUPPORT_PROCESS_H

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

namespace vantro::test {

// A user other than 0, for tests of what user 0 may always do.
inline uid_t plain_user() {
    return geteuid() == 0 ? 65534 : geteuid();
}

inline void become_plain_user() {
    if (geteuid() == 0 && (setgid(65534) != 0 || setuid(65534) != 0)) {
        _exit(98);
    }
}

// The runtime directory of every process that the test starts; what else they keep lies below it.
class RuntimeDirectory : public testing::Test {
  protected:
    void SetUp() override {
        ASSERT_NE(mkdtemp(path_.data()), nullptr);
        setenv("XDG_RUNTIME_DIR", path_.c_str(), 1);
        setenv("XDG_STATE_HOME", (path_ + "/state").c_str(), 1);
        setenv("XDG_CONFIG_HOME", (path_ + "/config").c_str(), 1);
    }
    void TearDown() override {
        std::error_code ignored; // a process that has not quite ended may write into it
        std::filesystem::remove_all(path_, ignored);
    }

    // Makes the plain user the owner of the directory, so that no other user trusts it.
    void give_to_plain_user() { ASSERT_EQ(chown(path_.c_str(), plain_user(), -1), 0); }

    std::string path_ = (std::filesystem::temp_directory_path() / "tools-XXXXXX").string();
};

// A child process; its standard output and error arrive in one pipe. Killed with its owner.
class Process {
  public:
    explicit Process(const std::function<int()> &body) {
        int ends[2];
        EXPECT_EQ(pipe2(ends, O_CLOEXEC), 0);
        const pid_t parent = getpid();
        pid_ = fork();
        if (pid_ == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            dup2(ends[1], STDOUT_FILENO);
            dup2(ends[1], STDERR_FILENO);
            _exit(getppid() == parent ? body() : 97);
        }
        close(ends[1]);
        output_ = fdopen(ends[0], "r");
        setvbuf(output_, nullptr, _IONBF, 0); // so that output is only in the pipe, for readable()
    }

    // @param prepare runs in the child, before the program.
    explicit Process(
        std::vector<std::string> words, const std::function<void()> &prepare = [] {})
        : Process([&] {
              std::vector<char *> arguments;
              arguments.reserve(words.size() + 1);
              for (std::string &word : words) {
                  arguments.push_back(word.data());
              }
              arguments.push_back(nullptr);
              prepare();
              execv(arguments[0], arguments.data());
              return 96;
          }) {}

    Process(const Process &) = delete;
    Process &operator=(const Process &) = delete;

    ~Process() {
        if (pid_ > 0) {
            kill(SIGKILL);
            wait();
        }
        std::fclose(output_);
    }

    pid_t id() const { return pid_; }
    void kill(int number) { ::kill(pid_, number); }

    // A process may answer until its last thread has stopped.
    void stop() {
        kill(SIGSTOP);
        siginfo_t info;
        waitid(P_PID, static_cast<id_t>(pid_), &info, WSTOPPED);
    }

    // Whether there is output, or its end, within the time.
    bool readable(int ms) const {
        pollfd output = {fileno(output_), POLLIN, 0};
        return poll(&output, 1, ms) == 1;
    }

    // The next line without its end; blocks for it. Empty at the end of the output.
    std::string line() {
        std::string text;
        for (int c = 0; (c = std::fgetc(output_)) != EOF && c != '\n';) {
            text += static_cast<char>(c);
        }
        return text;
    }

    // All that follows, until the process closes its output.
    std::string rest() {
        std::string text;
        for (int c = 0; (c = std::fgetc(output_)) != EOF;) {
            text += static_cast<char>(c);
        }
        return text;
    }

    // Whether it has ended, and may be waited for.
    bool ended() const {
        siginfo_t info = {};
        return waitid(P_PID, static_cast<id_t>(pid_), &info, WEXITED | WNOHANG | WNOWAIT) == 0 &&
               info.si_pid == pid_;
    }

    // The exit code, or the signal that ended it, negated.
    int wait() {
        int status = 0;
        waitpid(pid_, &status, 0);
        pid_ = 0;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
    }

  private:
    pid_t pid_ = 0;
    std::FILE *output_ = nullptr;
};

} // namespace vantro::test

#endif
