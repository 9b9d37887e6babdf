// 200 clients that connect, command, list, wait, are interrupted and die, while vantrod is
// ended and started again in the middle of every minute, in turn by SIGTERM and by SIGKILL. Every
// answer is compared with the music. At the end of the minute all clients end, and the service's
// descriptors and memory are compared with what they were.
//   soak VANTROD [MINUTES]
#include <sys/mman.h>

#include <algorithm>
#include <chrono>
#include <fstream>
#include <map>
#include <memory>
#include <thread>

#include <fmt/format.h>

#include "tests/soak/client.h"
#include "tests/support/music.h"
#include "tests/support/process.h"

namespace vantro::soak {

namespace {

constexpr int clients = 200;
constexpr auto period = std::chrono::seconds(60);
constexpr int longest_step_ms = 60'000;           // of the service's start, and its end
constexpr long memory_growth_max_kib = 48 * 1024; // beyond what the first minute's clients left

void name_descriptors(const std::string &process) {
    for (const auto &each : std::filesystem::directory_iterator("/proc/" + process + "/fd")) {
        std::error_code gone;
        fmt::print(stderr, "  {} {}\n", each.path().filename().string(),
                   std::filesystem::read_symlink(each, gone).string());
    }
}

long resident_kib(const std::string &process) {
    std::ifstream status("/proc/" + process + "/status");
    for (std::string word; status >> word;) {
        if (word == "VmRSS:") {
            long kib = 0;
            status >> kib;
            return kib;
        }
    }
    return 0;
}

class Service {
  public:
    Service(const std::string &program, const std::string &directory) {
        words_ = {program, "--music", directory + "/music"};
        for (int i = 0; i < players; ++i) {
            words_.insert(words_.end(), {"--player", fmt::format("p{}", i)});
        }
        start();
    }
    std::string id() const { return std::to_string(process_->id()); }

    // @return whether it ended as it should.
    bool restart() {
        const bool asked = ++restarts_ % 2 != 0;
        ++shared->generation;
        process_->kill(asked ? SIGTERM : SIGKILL);
        const auto given_up =
            std::chrono::steady_clock::now() + std::chrono::milliseconds(longest_step_ms);
        while (!process_->ended() && std::chrono::steady_clock::now() < given_up) {
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
        if (!process_->ended()) {
            fmt::print(stderr, "soak: vantrod hangs at its end\n");
            process_->kill(SIGABRT); // may leave a core dump
        }
        const std::string last = process_->rest();
        const int status = process_->wait();
        start();
        ++shared->generation;
        if (asked && status != 0) {
            fmt::print(stderr, "soak: vantrod ended with {}: {}\n", status, last);
        }
        return !asked || status == 0;
    }

    // Whether it has ended by itself; says how.
    bool is_gone() {
        if (!process_->ended()) {
            return false;
        }
        const std::string last = process_->rest();
        fmt::print(stderr, "soak: vantrod ended by itself with {}: {}\n", process_->wait(), last);
        return true;
    }

  private:
    void start() {
        process_ = std::make_unique<vantro::test::Process>(words_);
        std::string line;
        while (line.find("scanned") == line.npos) {
            if (!process_->readable(longest_step_ms) || (line = process_->line()).empty()) {
                fmt::print(stderr, "soak: vantrod does not start\n");
                std::_Exit(1); // the clients end with this process
            }
        }
    }
    std::vector<std::string> words_;
    std::unique_ptr<vantro::test::Process> process_;
    int restarts_ = 0;
};

class Soak {
  public:
    Soak(const std::string &program, const std::string &directory) : service_(program, directory) {}
    ~Soak() {
        for (const auto &[child, unused] : alive_) {
            kill(child, SIGKILL);
            waitpid(child, nullptr, 0);
        }
    }
    Soak(const Soak &) = delete;
    Soak &operator=(const Soak &) = delete;

    bool run(std::chrono::minutes length) {
        const auto begin = std::chrono::steady_clock::now();
        auto next = begin + period;
        bool restarted = false;
        // Each thread that is confined to a processor has one more, once it receives.
        idle_descriptors_ = descriptors_of(service_.id()) + sysconf(_SC_NPROCESSORS_ONLN);
        for (int i = 0; i < clients; ++i) {
            start_client();
        }
        while (next <= begin + length) {
            if (service_.is_gone()) {
                return false;
            }
            reap();
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
            if (!restarted && std::chrono::steady_clock::now() >= next - period / 2) {
                right_ = service_.restart() && right_;
                restarted = true;
            }
            if (std::chrono::steady_clock::now() >= next) {
                restarted = false;
                const bool last = next + period > begin + length;
                end_of_minute(last);
                next += period;
            }
        }
        return right_;
    }

  private:
    void start_client() {
        const pid_t child = fork();
        if (child == 0) {
            run_client(++seed_);
        }
        ++seed_;
        alive_.insert({child, true});
    }

    // Starts a new client for each that died.
    void reap() {
        std::map<pid_t, bool> left;
        left.swap(alive_);
        for (const auto &[child, unused] : left) {
            int status = 0;
            if (waitpid(child, &status, WNOHANG) != child) {
                alive_.insert({child, true});
                continue;
            }
            const bool killed = WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL;
            deaths_ += killed;
            if (!killed && status != 0) {
                fmt::print(stderr, "soak: client {} ended with status {}\n", child, status);
                right_ = false;
            }
            if (!shared->stop) {
                start_client();
            }
        }
    }

    // Ends all clients, and compares the service's descriptors and memory with those before them.
    void end_of_minute(bool last) {
        shared->stop = true;
        const auto given_up = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        while (!alive_.empty() && std::chrono::steady_clock::now() < given_up) {
            reap();
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
        for (const auto &[child, unused] : alive_) {
            fmt::print(stderr, "soak: client {} hangs\n", child);
            kill(child, SIGKILL);
            right_ = false;
        }
        long descriptors = 0;
        while ((descriptors = descriptors_of(service_.id())) > idle_descriptors_ &&
               std::chrono::steady_clock::now() < given_up) {
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
        const long memory = resident_kib(service_.id());
        first_memory_ = first_memory_ ? first_memory_ : memory;
        const bool held =
            descriptors <= idle_descriptors_ && memory <= first_memory_ + memory_growth_max_kib;
        right_ = right_ && held;
        fmt::print(
            "soak: {} lives, {} died, {} calls, {} interrupted, {} answers right; vantrod: {} "
            "descriptors (idle {}), {} KiB{}\n",
            shared->lives.load(), deaths_, shared->calls.load(), shared->interrupted.load(),
            shared->answers.load(), descriptors, idle_descriptors_, memory, held ? "" : ": WRONG");
        if (descriptors > idle_descriptors_) {
            name_descriptors(service_.id());
        }
        std::fflush(stdout);
        shared->stop = false;
        for (int i = 0; !last && i < clients; ++i) {
            start_client();
        }
    }

    Service service_;
    std::map<pid_t, bool> alive_;
    unsigned seed_ = 1;
    long deaths_ = 0;
    long idle_descriptors_ = 0;
    long first_memory_ = 0;
    bool right_ = true;
};

} // namespace

} // namespace vantro::soak

using namespace vantro::soak;

int main(int argc, char **argv) {
    const std::chrono::minutes length(argc > 2 ? std::max(1, std::atoi(argv[2])) : 3);
    std::string directory = "/tmp/vantro-soak-XXXXXX";
    if (argc < 2 || !mkdtemp(directory.data())) {
        return 2;
    }
    setenv("XDG_RUNTIME_DIR", directory.c_str(), 1);
    setenv("XDG_STATE_HOME", (directory + "/state").c_str(), 1);
    void *memory =
        mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    shared = new (memory) Shared{};
    shared->parent = getpid();
    for (int i = 0; i < songs; ++i) {
        vantro::test::make_music(directory + fmt::format("/music/{}.flac", i), 3000,
                                 {"TITLE=" + title(i)});
    }
    bool right = false;
    {
        Soak soak(argv[1], directory);
        vantro::test::Process noting(note_songs);
        if (noting.wait() == 0) {
            right = soak.run(length);
        }
    }
    std::filesystem::remove_all(directory);
    fmt::print("soak: {}\n", right ? "passed" : "FAILED");
    return right ? 0 : 1;
}
