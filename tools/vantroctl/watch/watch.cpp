#include "tools/vantroctl/watch/watch.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstring>
#include <iterator>
#include <memory>
#include <optional>

#include <poll.h>
#include <pthread.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <fmt/format.h>

#include "tools/vantroctl/failure.h"
#include "tools/vantroctl/watch/followers.h"
#include "tools/vantroctl/watch/watch_view.h"

namespace vantro::ctl {
namespace {

// Signals, read from a descriptor. They are blocked in this thread.
class Signals {
  public:
    explicit Signals(const std::vector<int> &more) {
        sigemptyset(&set_);
        for (const int number : {SIGINT, SIGTERM, SIGHUP, SIGQUIT}) {
            struct sigaction action = {};
            sigaction(number, nullptr, &action);
            // Ignored signals stay ignored: in the background, or under nohup.
            if (action.sa_handler != SIG_IGN) {
                sigaddset(&set_, number);
            }
        }
        for (const int number : more) {
            sigaddset(&set_, number);
        }
        pthread_sigmask(SIG_BLOCK, &set_, nullptr);
        descriptor_ = signalfd(-1, &set_, SFD_CLOEXEC | SFD_NONBLOCK);
        if (descriptor_ < 0) {
            throw Failure(Outcome::failed, fmt::format("cannot watch: {}", std::strerror(errno)));
        }
    }
    ~Signals() { close(descriptor_); }
    Signals(const Signals &) = delete;
    Signals &operator=(const Signals &) = delete;

    int descriptor() const { return descriptor_; }

    std::optional<int> take() const {
        signalfd_siginfo info;
        if (read(descriptor_, &info, sizeof info) != sizeof info) {
            return std::nullopt;
        }
        return static_cast<int>(info.ssi_signo);
    }

    // Ends the process as the signal would have done, so that a shell sees the cause.
    [[noreturn]] void end_by(int number) const {
        std::signal(number, SIG_DFL);
        raise(number);
        pthread_sigmask(SIG_UNBLOCK, &set_, nullptr);
        _exit(128 + number);
    }

  private:
    sigset_t set_;
    int descriptor_ = -1;
};

class Watch {
  public:
    Watch(WatchView &view, Followers &followers, const Signals &signals)
        : view_(view), followers_(followers), signals_(signals) {}

    // @return the signal that ended it, if one did.
    std::optional<int> run() {
        show_events(); // The complete state.
        for (;;) {
            if (pending_.empty()) {
                pending_ = view_.output();
            }
            const bool writing = !pending_.empty();
            // While output waits to be written, no event is taken, so that events do not pile up
            // here.
            pollfd ready[] = {
                {signals_.descriptor(), POLLIN, 0},
                {STDOUT_FILENO, static_cast<short>(writing ? POLLOUT : 0), 0},
                {writing ? -1 : followers_.descriptor(), POLLIN, 0},
                {keys_open_ && view_.reads_keys() ? STDIN_FILENO : -1, POLLIN, 0},
            };
            const int count = poll(ready, std::size(ready), writing ? -1 : wake_in_ms());
            if (count < 0 && errno != EINTR) {
                throw Failure(Outcome::failed,
                              fmt::format("cannot watch: {}", std::strerror(errno)));
            }
            if (const std::optional<int> number = end_signal()) {
                return number;
            }
            if (ready[1].revents != 0) {
                if (!writing) {
                    return std::nullopt; // Only an error event: the pipe or terminal is gone.
                }
                // A signal may have discarded the pending output.
                if (!pending_.empty() && !write_some()) {
                    return std::nullopt;
                }
            }
            if (!writing && (count == 0 || ready[2].revents != 0)) {
                show_events();
            }
            if (ready[3].revents != 0 && key_ends()) {
                return std::nullopt;
            }
        }
    }

  private:
    void show_events() {
        for (const PlayerEvent &event : followers_.take()) {
            view_.take(event);
        }
    }

    // The earlier of the times of the view and of the followers.
    int wake_in_ms() const {
        const int view = view_.wake_in_ms();
        const int followers = followers_.wake_in_ms();
        return view < 0 || followers < 0 ? std::max(view, followers) : std::min(view, followers);
    }

    // Gives the view its signals. @return a signal that asks for the end.
    std::optional<int> end_signal() {
        const std::vector<int> known = view_.signals();
        while (const std::optional<int> number = signals_.take()) {
            if (std::find(known.begin(), known.end(), *number) == known.end()) {
                finish_line();
                return number;
            }
            pending_.clear(); // Part of a screen, which will be drawn again.
            view_.take_signal(*number);
        }
        return std::nullopt;
    }

    // Writes as much as possible without waiting. @return false if the reader has closed the
    // output.
    bool write_some() {
        const ssize_t written =
            write(STDOUT_FILENO, pending_.data(), std::min<size_t>(pending_.size(), PIPE_BUF));
        if (written >= 0) {
            pending_.erase(0, static_cast<size_t>(written));
            return true;
        }
        if (errno == EPIPE) {
            return false;
        }
        if (errno != EINTR && errno != EAGAIN) {
            throw Failure(Outcome::failed,
                          fmt::format("cannot write to standard output: {}", std::strerror(errno)));
        }
        return true;
    }

    // Completes the current line, as far as the reader accepts it.
    void finish_line() {
        pollfd room = {STDOUT_FILENO, POLLOUT, 0};
        while (!pending_.empty() && poll(&room, 1, 0) == 1 && write_some()) {
        }
    }

    bool key_ends() {
        char keys[16];
        const ssize_t count = read(STDIN_FILENO, keys, sizeof keys);
        keys_open_ = count > 0;
        return count > 0 &&
               std::any_of(keys, keys + count, [this](char key) { return view_.take_key(key); });
    }

    WatchView &view_;
    Followers &followers_;
    const Signals &signals_;
    std::string pending_;
    bool keys_open_ = true;
};

} // namespace

void run_watch(const WatchOptions &options) {
    std::unique_ptr<WatchView> view = options.live   ? make_live_screen(options.players)
                                      : options.json ? make_event_objects()
                                      : options.format
                                          ? make_formatted_events(options.players, *options.format)
                                          : make_event_lines(options.players);
    std::vector<ClientOptions> clients;
    for (const std::string &player : options.players) {
        clients.push_back(options.client);
        clients.back().player = player;
    }
    Followers followers(clients);
    const Signals signals(view->signals());
    view->begin();
    if (const std::optional<int> number = Watch(*view, followers, signals).run()) {
        view.reset(); // Restores the terminal first.
        signals.end_by(*number);
    }
}

} // namespace vantro::ctl
