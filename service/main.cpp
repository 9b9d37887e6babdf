// vantrod: hosts named players, and answers their clients.
#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <exception>
#include <filesystem>
#include <pthread.h>
#include <string>
#include <sys/resource.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <vantro/platform/log.h>

#include "service/catalogue/scanner.h"
#include "service/options.h"
#include "service/requests/answers.h"
#include "service/requests/handlers.h"
#include "service/server.h"

namespace {

using namespace vantro;

// Names this program in the system's log.
constexpr uint32_t log_code = 0x06D02710;

int fail(const std::string &why) {
    fmt::print(stderr, "vantrod: {}\n", why);
    return EXIT_FAILURE;
}

void log_line(int severity, const std::string &line) {
    system_log(log_code, severity, "%s", line.c_str());
}

std::chrono::nanoseconds monotonic_now() {
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return std::chrono::seconds(now.tv_sec) + std::chrono::nanoseconds(now.tv_nsec);
}

// Every client costs descriptors, so the service takes as many as it is allowed.
void raise_descriptor_limit() {
    rlimit limit = {};
    if (getrlimit(RLIMIT_NOFILE, &limit) == 0 && limit.rlim_cur < limit.rlim_max) {
        limit.rlim_cur = limit.rlim_max;
        setrlimit(RLIMIT_NOFILE, &limit);
    }
}

// Returns "" or what is wrong with a music directory.
std::string check_music(const std::vector<std::string> &directories) {
    for (const std::string &directory : directories) {
        std::error_code error;
        const std::filesystem::directory_iterator entries(directory, error);
        if (error)
            return fmt::format("--music: cannot read '{}': {}", directory, error.message());
    }
    return "";
}

// Waits for SIGTERM or SIGINT, then stops the scan and the server. Both signals are blocked in
// every thread, so that they arrive here and nowhere else.
class Ending {
  public:
    explicit Ending(Server &server) {
        sigemptyset(&signals_);
        sigaddset(&signals_, SIGTERM);
        sigaddset(&signals_, SIGINT);
        pthread_sigmask(SIG_BLOCK, &signals_, nullptr);
        thread_ = std::thread([this, &server] {
            int signal = 0;
            sigwait(&signals_, &signal);
            asked = true;
            server.stop();
        });
    }
    ~Ending() {
        if (!asked)
            kill(getpid(), SIGTERM);
        thread_.join();
    }
    Ending(const Ending &) = delete;
    Ending &operator=(const Ending &) = delete;

    std::atomic<bool> asked = false;

  private:
    sigset_t signals_;
    std::thread thread_;
};

int serve(const Options &options) {
    if (const std::string wrong = check_music(options.music); !wrong.empty())
        return fail(wrong);
    Server server;
    // The name first: a second service is told so at once, not after it read all the music.
    if (const std::string wrong = server.attach(options); !wrong.empty())
        return fail(wrong);

    Ending ending(server);
    std::vector<Track> tracks;
    Scanner scanner([](const std::string &line) { log_line(LOG_SEVERITY_WARNING, line); },
                    ending.asked);
    for (std::size_t i = 0; i < options.music.size(); ++i)
        scanner.read(options.music[i], static_cast<int32_t>(i + 1), tracks);
    if (ending.asked)
        return EXIT_SUCCESS;

    Answers answers(tracks, options.players, monotonic_now);
    set_answers(&answers);
    const std::string wrong = server.run(options.threads, [&] {
        const std::string line = fmt::format("vantrod: ready ({} tracks, players: {})\n",
                                             tracks.size(), fmt::join(options.players, ", "));
        // Whether anybody reads it is no concern of the players.
        std::fputs(line.c_str(), stdout);
        std::fflush(stdout);
        log_line(LOG_SEVERITY_INFO, fmt::format("ready, {} tracks", tracks.size()));
    });
    return wrong.empty() ? EXIT_SUCCESS : fail(wrong);
}

} // namespace

int main(int argc, char **argv) {
    try {
        Options options;
        int exit_code = EXIT_SUCCESS;
        if (!parse_options(argc, argv, options, exit_code))
            return exit_code;
        // Who started the service may have stopped listening to it.
        std::signal(SIGPIPE, SIG_IGN);
        raise_descriptor_limit();
        return serve(options);
    } catch (const std::exception &error) {
        return fail(error.what());
    }
}
