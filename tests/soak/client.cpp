#include "tests/soak/client.h"

#include <poll.h>
#include <sys/prctl.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <random>

#include <fmt/format.h>

#include <vantro/catalogue.h>
#include <vantro/events.h>
#include <vantro/extras.h>
#include <vantro/platform/log.h>
#include <vantro/player.h>

namespace vantro::soak {

Shared *shared;

long descriptors_of(const std::string &process) {
    long count = 0;
    for (const auto &each : std::filesystem::directory_iterator("/proc/" + process + "/fd")) {
        std::error_code gone;
        const std::string file = std::filesystem::read_symlink(each, gone).string();
        count += file.find("catalogue.db") == file.npos;
    }
    return count;
}

std::string title(int song) {
    return fmt::format("song {:02}", song);
}

namespace {

constexpr int wrong_exit = 3;

volatile std::sig_atomic_t interruptions = 0;
std::string last_logged; // by the library: why a call fails

[[noreturn]] void wrong(const std::string &what) {
    fmt::print(stderr, "soak: wrong: {} (errno {}); logged last: {}\n", what, errno, last_logged);
    _exit(wrong_exit);
}

// One client, from its connection to its end.
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
        // The library keeps one descriptor from the first wait on.
        if (descriptors_of("self") > std::max(before, most_) + 1) {
            wrong(fmt::format("{} descriptors after a life, {} before", descriptors_of("self"),
                              before));
        }
    }
    void keep(long descriptors) { most_ = descriptors; }

  private:
    // Whether the service that this client is connected to has ended, or may have: one that
    // connects during a restart may have got the service that is about to end.
    bool is_gone() const { return generation_ % 2 != 0 || shared->generation != generation_; }
    bool one_in(unsigned count) { return random_() % count == 0; }
    int any(int count) { return static_cast<int>(random_() % static_cast<unsigned>(count)); }

    // A call and what its success must have brought. A failure needs a reason: a signal meanwhile,
    // or another service than the one connected to.
    template <typename Call, typename Right>
    bool ask(const char *what, Call call, Right right) {
        const int before = interruptions;
        ++shared->calls;
        const bool succeeded = call() == 0;
        const bool gone = is_gone();
        shared->interrupted += interruptions != before;
        if (succeeded) {
            ++shared->answers;
            if (!right()) {
                wrong(std::string(what) + ": another answer");
            }
        } else if (interruptions == before && !gone) {
            // The end of a service is noted before it, and a start after it, so look once more.
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
            poll(nullptr, 0, any(400)); // as people do; signals end it early
            if (one_in(400)) {
                raise(SIGKILL); // without notice
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
        return !is_gone();
    }

    std::minstd_rand random_;
    VantroHandle *handle_ = nullptr;
    int generation_ = 0;
    long most_ = 0;
};

void interrupt(int) {
    interruptions = interruptions + 1;
}

} // namespace

void run_client(unsigned seed) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != shared->parent) {
        _exit(0); // it ended before that
    }
    struct sigaction action = {};
    action.sa_handler = interrupt;
    sigaction(SIGALRM, &action, nullptr);
    system_log_set_sink(
        [](uint32_t, int severity, const char *text, void *) {
            if (severity <= LOG_SEVERITY_NOTICE) {
                last_logged = text;
            }
        },
        nullptr);
    Client client(seed);
    client.live();
    client.keep(descriptors_of("self")); // what the libraries keep from their first use on
    while (!shared->stop) {
        client.live();
    }
    _exit(0);
}

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

} // namespace vantro::soak
