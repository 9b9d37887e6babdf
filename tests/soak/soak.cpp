// 200 clients that connect, command, list, wait, are interrupted and die, while vantrod is
// ended and started again in the middle of every minute, by turns as an administrator does it and
// by SIGKILL. Every answer is compared with the music. At the end of
// the minute all clients end, and the service's descriptors and memory are compared with what they
// were.
//   soak VANTROD [MINUTES]
#include <poll.h>
#include <sys/mman.h>
#include <sys/time.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstring>
#include <fstream>
#include <map>
#include <memory>
#include <random>
#include <thread>

#include <vantro/catalogue.h>
#include <vantro/events.h>
#include <vantro/extras.h>
#include <vantro/platform/log.h>
#include <vantro/player.h>

#include "tests/support/music.h"
#include "tests/support/process.h"

namespace {

constexpr int clients = 200;
constexpr int players = 4;
constexpr int songs = 40;
constexpr int wrong_exit = 3;
constexpr auto period = std::chrono::seconds(60);
constexpr long memory_growth_max_kib = 48 * 1024; // beyond what the first minute's clients left

// What all processes share.
struct Shared {
    std::atomic<int> generation; // of the service; odd while there is none
    std::atomic<bool> stop;
    std::atomic<long> lives, calls, answers, interrupted;
    int32_t source;
    char ids[songs][64];
};
Shared *shared;

volatile std::sig_atomic_t interruptions = 0;

// Those of the catalogue's file aside: a service keeps as many of them as it once needed at a time.
long descriptors_of(const std::string &process) {
    long count = 0;
    for (const auto &each : std::filesystem::directory_iterator("/proc/" + process + "/fd")) {
        std::error_code gone;
        const std::string file = std::filesystem::read_symlink(each, gone).string();
        count += file.find("catalogue.db") == file.npos;
    }
    return count;
}

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

std::string title(int song) {
    return fmt::format("song {:02}", song);
}

[[noreturn]] void wrong(const std::string &what) {
    fmt::print(stderr, "soak: wrong: {} (errno {})\n", what, errno);
    _exit(wrong_exit);
}

// One client: a life from its connection to its end.
class Client {
  public:
    explicit Client(unsigned seed) : random_(seed) {}

    void live() {
        // Periodic, so that no wait lasts; without SA_RESTART, so that every call is interrupted.
        const suseconds_t us = one_in(2) ? 200'000 : 2'000 + static_cast<int>(random_() % 20'000);
        const itimerval every{{0, us}, {0, us}};
        setitimer(ITIMER_REAL, &every, nullptr);
        const long before = descriptors_of("self");
        generation_ = shared->generation;
        handle_ = vantro_connect();
        if (handle_) {
            ++shared->lives;
            act();
            vantro_disconnect(handle_);
        } else {
            poll(nullptr, 0, 10); // the service is being restarted
        }
        // The library keeps one, from the first wait on.
        if (descriptors_of("self") > std::max(before, most_) + 1) {
            wrong(fmt::format("{} descriptors after a life, {} before", descriptors_of("self"),
                              before));
        }
    }
    void keep(long descriptors) { most_ = descriptors; }

  private:
    bool one_in(unsigned count) { return random_() % count == 0; }
    int any(int count) { return static_cast<int>(random_() % static_cast<unsigned>(count)); }

    // A call and what its success must have brought. A failure needs a reason: a signal meanwhile,
    // or another service than the one connected to.
    template <typename Call, typename Right>
    bool ask(const char *what, Call call, Right right) {
        const int before = interruptions;
        ++shared->calls;
        const bool succeeded = call() == 0;
        const bool gone = shared->generation != generation_;
        shared->interrupted += interruptions != before;
        if (succeeded) {
            ++shared->answers;
            if (!right()) {
                wrong(std::string(what) + ": another answer");
            }
        } else if (interruptions == before && !gone) {
            // What goes is noted before it goes; what has come, after it: look once more.
            wrong(std::string(what) + " fails");
        }
        return !gone;
    }

    void act() {
        const std::string player = fmt::format("p{}", any(players));
        bool open = false;
        while (!open) {
            const auto opens = [&] { return vantro_open(handle_, player.c_str()); };
            if (!ask("open", opens, [&] { return open = true; })) {
                return;
            }
        }
        for (int left = any(60); left > 0 && !shared->stop && act_once(); --left) {
            poll(nullptr, 0, any(400)); // as people do; signals cut it short
            if (one_in(400)) {
                raise(SIGKILL); // without a word
            }
        }
    }

    bool act_once() {
        switch (any(7)) {
        case 0:
            return command();
        case 1:
            return list(any(songs), 1 + any(songs), false);
        case 2:
            return list(0, 0, true);
        case 3:
            return metadata(any(songs));
        case 4:
            return state();
        case 5:
            return session();
        default:
            return follow();
        }
    }

    // A command may be refused; the handle answers afterwards.
    bool command() {
        static constexpr std::array<int (*)(VantroHandle *), 5> commands = {
            vantro_play, vantro_pause, vantro_next, vantro_previous, vantro_stop};
        commands[random_() % commands.size()](handle_);
        return state();
    }

    bool state() {
        VantroStateInfo *info = nullptr;
        return ask(
            "state", [&] { return vantro_get_current_state(handle_, &info); },
            [&] {
                const std::unique_ptr<VantroStateInfo, decltype(&std::free)> owner(info, std::free);
                return info->state >= VANTRO_STATE_IDLE && info->state <= VANTRO_STATE_STOPPED;
            });
    }

    bool list(int offset, int wanted, bool search) {
        MediaNode *nodes = nullptr;
        int count = wanted;
        const int expected = search ? 1 : std::min(wanted, songs - offset);
        const int first = search ? any(songs) : offset;
        return ask(
            search ? "search" : "browse",
            [&] {
                return search ? vantro_search(handle_, shared->source, "title",
                                              title(first).c_str(), 0, &count, &nodes)
                              : vantro_browse(handle_, shared->source, "songs", offset, &count,
                                              &nodes);
            },
            [&] {
                bool right = count == expected;
                for (int i = 0; right && i < count; ++i) {
                    right = nodes[i].name == title(first + i) &&
                            std::strcmp(nodes[i].id, shared->ids[first + i]) == 0;
                }
                vantro_free_media_nodes(nodes, count);
                return right;
            });
    }

    bool metadata(int song) {
        Metadata *metadata = nullptr;
        return ask(
            "metadata",
            [&] {
                return vantro_get_metadata(handle_, shared->source, shared->ids[song], &metadata);
            },
            [&] {
                const bool right = metadata && metadata->title == title(song);
                vantro_free_metadata(metadata, 1);
                return right;
            });
    }

    // Makes a track session, looks at it, and destroys it or leaves it to the service.
    bool session() {
        uint64_t tsid = 0;
        int count = 0;
        MediaNode *nodes = nullptr;
        const auto lists = [&] {
            return vantro_get_trksession_tracks(handle_, tsid, 0, &count, &nodes);
        };
        if (vantro_create_trksession(handle_, shared->source, "songs", nullptr,
                                     VANTRO_TRKSESSION_LOAD, &tsid) != 0) {
            return state(); // refused, or interrupted
        }
        if (lists() == 0) { // another client may have destroyed it
            if (count != songs || nodes[0].name != title(0)) {
                wrong("tracks of a session: another answer");
            }
            vantro_free_media_nodes(nodes, count);
        }
        if (!one_in(4)) {
            vantro_destroy_trksession(handle_, tsid);
        }
        return state();
    }

    bool follow() {
        for (int events = 0; events < 20; ++events) {
            const VantroEvent *event = vantro_event_get(handle_);
            if (event && event->type == VANTRO_EVENT_TRACK && event->details.track.media_node) {
                const std::string id = event->details.track.media_node->id;
                if (std::none_of(shared->ids, shared->ids + songs,
                                 [&](const char *each) { return id == each; })) {
                    wrong("a track that is none of ours");
                }
            }
            if (!event || event->type == VANTRO_EVENT_NONE) {
                vantro_event_wait(handle_); // until something happens or the timer comes
                break;
            }
        }
        return shared->generation == generation_;
    }

    std::minstd_rand random_;
    VantroHandle *handle_ = nullptr;
    int generation_ = 0;
    long most_ = 0;
};

void interrupt(int) {
    interruptions = interruptions + 1;
}

[[noreturn]] void run_client(unsigned seed) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    struct sigaction action = {};
    action.sa_handler = interrupt;
    sigaction(SIGALRM, &action, nullptr);
    system_log_set_sink([](uint32_t, int, const char *, void *) {},
                        nullptr); // refusals are ordinary
    Client client(seed);
    client.live();
    client.keep(descriptors_of("self")); // what the libraries keep from their first use on
    while (!shared->stop) {
        client.live();
    }
    _exit(0);
}

// Notes the songs as the first service tells them, in a process that ends before there are clients.
int note_songs() {
    VantroHandle *handle = vantro_connect();
    MediaSource *sources = nullptr;
    MediaNode *nodes = nullptr;
    int count = 0;
    if (!handle || vantro_open(handle, "p0") != 0 ||
        vantro_get_media_sources(handle, &sources, &count) != 0 || count < 1) {
        return 1;
    }
    shared->source = sources[0].id;
    count = 0;
    if (vantro_browse(handle, shared->source, "songs", 0, &count, &nodes) != 0 || count != songs) {
        return 1;
    }
    for (int i = 0; i < songs; ++i) {
        std::strncpy(shared->ids[i], nodes[i].id, sizeof shared->ids[i] - 1);
    }
    return vantro_disconnect(handle);
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
        const std::string last = process_->rest();
        const int status = process_->wait();
        start();
        ++shared->generation;
        if (asked && status != 0) {
            fmt::print(stderr, "soak: vantrod ended with {}: {}\n", status, last);
        }
        return !asked || status == 0;
    }

  private:
    void start() {
        process_ = std::make_unique<vantro::test::Process>(words_);
        std::string line;
        while ((line = process_->line()).find("scanned") == line.npos) {
            if (line.empty()) {
                fmt::print(stderr, "soak: vantrod does not start\n");
                std::exit(1);
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

    // Whoever died is followed by another.
    void reap() {
        int status = 0;
        for (pid_t child; (child = waitpid(-1, &status, WNOHANG)) > 0;) {
            if (alive_.erase(child) == 0) {
                fmt::print(stderr, "soak: vantrod is gone\n");
                std::exit(1);
            }
            const bool killed = WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL;
            deaths_ += killed;
            if (!killed && status != 0) {
                fmt::print(stderr, "soak: a client ended with status {}\n", status);
                right_ = false;
            }
            if (!shared->stop) {
                start_client();
            }
        }
    }

    // All clients end; what the service has then is what it had before them.
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
