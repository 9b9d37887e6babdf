// vantro-grantor: answers which user or group holds which capability, by a policy file.
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <exception>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <pthread.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <vantro/platform/message.h>
#include <vantro/version.h>

#include "tools/grantor/device.h"
#include "tools/grantor/policy.h"

namespace {

using namespace vantro::grantor;

struct Options {
    std::string policy;
    std::string perms = "0600";
    std::optional<uint32_t> uid;
    std::optional<uint32_t> gid;
};

void complain(const std::string &text) {
    std::fprintf(stderr, "vantro-grantor: %s\n", text.c_str());
}

void announce(const char *what, const Policy &policy) {
    std::printf("vantro-grantor: %s (%zu rules)\n", what, policy.rule_count());
    std::fflush(stdout);
}

std::optional<Policy> load(const std::string &path) {
    std::vector<Policy::Problem> problems;
    auto policy = Policy::load(path, problems);
    for (const Policy::Problem &problem : problems) {
        complain(problem.line ? fmt::format("{}:{}: {}", path, problem.line, problem.what)
                              : fmt::format("{}: {}", path, problem.what));
    }
    return policy;
}

// Turns signals into pulses on the device's channel, in a separate thread. Without that thread, a
// signal between the check and the receive would wait until the next client writes.
class Signals {
  public:
    // Must be made before any other thread starts, so that all threads have the signals blocked.
    Signals() {
        sigemptyset(&set_);
        for (const int number : {SIGHUP, SIGTERM, SIGINT}) {
            sigaddset(&set_, number);
        }
        pthread_sigmask(SIG_BLOCK, &set_, nullptr);
    }

    // Ends with the first signal that asks the process to stop.
    void watch(int channel) {
        const int connection = connect_attach(0, 0, channel, 0, 0);
        if (connection < 0) {
            throw std::runtime_error(fmt::format("connect_attach: {}", std::strerror(errno)));
        }
        thread_ = std::thread([this, connection] {
            while (!stop_) {
                int number = 0;
                sigwait(&set_, &number);
                (number == SIGHUP ? reload_ : stop_) = true;
                // If the queue is full, it holds such a pulse already, and one is enough.
                pulse_send(connection, 0, GRANTOR_PULSE_SIGNAL, 0);
            }
        });
    }

    bool take_reload() { return reload_.exchange(false); }
    bool stop() const { return stop_; }

    ~Signals() {
        if (thread_.joinable()) {
            kill(getpid(), SIGTERM); // Every thread blocks it, so sigwait() takes it.
            thread_.join();
        }
    }

  private:
    sigset_t set_;
    std::atomic<bool> reload_ = false;
    std::atomic<bool> stop_ = false;
    std::thread thread_;
};

int run(const Options &options) {
    auto policy = load(options.policy);
    if (!policy) {
        return 1;
    }
    Signals signals;
    Device device(std::move(*policy));
    const DeviceAccess access{static_cast<uint32_t>(std::stoul(options.perms, nullptr, 8)),
                              options.uid, options.gid};
    if (!device.attach(access)) {
        complain(
            fmt::format("cannot attach {}: {}", grantor_path,
                        errno == EADDRINUSE ? "another grantor serves it" : std::strerror(errno)));
        return 1;
    }
    signals.watch(device.channel());
    announce("ready", device.policy());
    while (!signals.stop()) {
        if (!device.serve()) {
            complain(fmt::format("cannot receive: {}", std::strerror(errno)));
            return 1;
        }
        if (!signals.take_reload()) {
            continue;
        }
        if (auto reloaded = load(options.policy)) {
            device.set_policy(std::move(*reloaded));
            announce("policy reloaded", device.policy());
        } else {
            complain(fmt::format("the previous policy stays in force ({} rules)",
                                 device.policy().rule_count()));
        }
    }
    return 0;
}

int parse_and_run(int argc, char **argv) {
    Options options;
    CLI::App app(
        "Serves " + std::string(grantor_path) +
            ": answers which capabilities a user or group holds.\n"
            "SIGHUP reads the policy again; if it is invalid, the previous one stays in force.",
        "vantro-grantor");
    app.set_version_flag("--version", "vantro-grantor " VANTRO_VERSION);
    app.add_option("--policy", options.policy, "File of rules, such as \"uid:1000 audio net\"")
        ->type_name("FILE")
        ->required();
    app.add_option("--perms", options.perms, "Permission bits of the device, octal")
        ->type_name("OCTAL")
        ->capture_default_str()
        ->check([](const std::string &text) {
            const bool octal = !text.empty() && text.size() <= 4 &&
                               text.find_first_not_of("01234567") == std::string::npos;
            return octal && std::stoul(text, nullptr, 8) <= 0777 ? ""
                                                                 : "permission bits are 0 to 0777";
        });
    app.add_option("--uid", options.uid, "Owner of the device; default: the effective user");
    app.add_option("--gid", options.gid, "Group of the device; default: the effective group");
    try {
        app.parse(argc, argv);
    } catch (const CLI::Success &asked) { // For --help or --version.
        return app.exit(asked);
    } catch (const CLI::ParseError &error) {
        complain(fmt::format("{}; see vantro-grantor --help", error.what()));
        return 2;
    }
    return run(options);
}

} // namespace

int main(int argc, char **argv) {
    try {
        return parse_and_run(argc, argv);
    } catch (const std::exception &error) {
        complain(error.what());
        return 1;
    }
}
