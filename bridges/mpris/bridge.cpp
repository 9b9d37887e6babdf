#include "bridges/mpris/bridge.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <utility>

#include <fmt/format.h>
#include <sys/epoll.h>
#include <systemd/sd-daemon.h>

namespace vantro::mpris {

namespace {

// The pause between two attempts to reach the service; doubled after each failure.
constexpr std::chrono::milliseconds delay_min{250};
constexpr std::chrono::milliseconds delay_max{8000};

// The players of the service. If a service does not list them, it has at least the default player.
Result<std::vector<std::string>> player_names() {
    Result<Player> service = Player::connect(PlayerLink::answer_limit);
    if (!service) {
        return service.failure();
    }
    const Result<Names> names = service->players();
    if (names) {
        return std::vector<std::string>(names->begin(), names->end());
    }
    if (names.failure().why() == Reason::refused) {
        return std::vector<std::string>{"main"};
    }
    return names.failure();
}

Failure gone(const char *text) {
    Failure failure = Failure::of_errno(ESTALE);
    fmt::format_to_n(failure.text, sizeof failure.text - 1, "{}", text).out[0] = '\0';
    return failure;
}

Failure failure_of(int negative_error) {
    return Failure::of_errno(-negative_error);
}

} // namespace

int Bridge::run() {
    const int result = start();
    if (result < 0) {
        fmt::print(stderr, "vantro-mpris: cannot reach the session bus: {}\n",
                   std::strerror(-result));
        return EXIT_FAILURE;
    }
    attempt();
    sd_notify(0, "READY=1");
    const int code = sd_event_loop(loop_.get());
    sd_notify(0, "STOPPING=1");
    return code < 0 ? EXIT_FAILURE : code;
}

int Bridge::start() {
    sd_event *loop = nullptr;
    sd_event_source *timer = nullptr;
    sd_bus *bus = nullptr;
    int result = sd_event_new(&loop);
    if (result < 0) {
        return result;
    }
    loop_.reset(loop);
    for (const int number : {SIGTERM, SIGINT}) {
        result = sd_event_add_signal(loop, nullptr, number, nullptr, nullptr);
        if (result < 0) {
            return result;
        }
    }
    // Runs before sd-bus closes the connections, which it does at the end of the loop.
    sd_event_source *at_exit = nullptr;
    result = sd_event_add_exit(loop, &at_exit, on_exit, this);
    if (result < 0) {
        return result;
    }
    at_exit_.reset(at_exit);
    sd_event_source_set_priority(at_exit, SD_EVENT_PRIORITY_IMPORTANT);
    result = sd_event_add_time(loop, &timer, CLOCK_MONOTONIC, 0, 0, on_timer, this);
    if (result < 0) {
        return result;
    }
    timer_.reset(timer);
    sd_event_source_set_enabled(timer, SD_EVENT_OFF);
    result = sd_bus_open_user(&bus);
    if (result < 0) {
        return result;
    }
    bus_.reset(bus);
    sd_bus_set_exit_on_disconnect(bus, 1);
    return sd_bus_attach_event(bus, loop, SD_EVENT_PRIORITY_NORMAL);
}

// Tries to show the players that are missing on the bus.
void Bridge::attempt() {
    std::vector<std::string> names = wanted_;
    if (names.empty()) {
        Result<std::vector<std::string>> all = player_names();
        if (!all) {
            complain("the service", all.failure().text);
        } else {
            complaints_.erase("the service");
            names = *std::move(all);
        }
    }
    bool all_shown = !names.empty();
    for (const std::string &name : names) {
        if (shown_.contains(name)) {
            continue;
        }
        if (const Result<void> done = show(name); !done) {
            complain(name, done.failure().text);
            all_shown = false;
        } else {
            complaints_.erase(name);
        }
    }
    if (all_shown) {
        delay_ = delay_min;
    } else {
        delay_ = std::clamp(2 * delay_, delay_min, delay_max);
        attempt_in(delay_);
    }
}

Result<void> Bridge::show(const std::string &name) {
    Result<PlayerLink> link = PlayerLink::open(name);
    if (!link) {
        return link.failure();
    }
    auto player = std::make_unique<BusPlayer>(name, *std::move(link));
    int result = player->open(loop_.get());
    if (result == -EEXIST) {
        fail(
            fmt::format("{} has another owner: does another vantro-mpris run?", bus_name_of(name)));
    }
    if (result < 0) {
        return failure_of(result);
    }
    Shown &shown = shown_[name];
    shown.bridge = this;
    shown.player = std::move(player);
    sd_event_source *source = nullptr;
    result = sd_event_add_io(loop_.get(), &source, shown.player->link().descriptor(), EPOLLIN,
                             on_events, &shown);
    if (result < 0) {
        shown_.erase(name);
        return failure_of(result);
    }
    shown.events.reset(source);
    // Events are handled before calls from the bus, so that an answer includes what happened before
    // the call.
    sd_event_source_set_priority(source, SD_EVENT_PRIORITY_IMPORTANT);
    return {};
}

void Bridge::lose(const std::string &name, const Failure &why) {
    const Failure reason = why.why() == Reason::gone ? gone("the service has ended") : why;
    complain(name, reason.text);
    shown_.at(name).player->retire(reason);
    shown_.erase(name);
    delay_ = delay_min;
    attempt_in(delay_);
}

void Bridge::attempt_in(std::chrono::milliseconds delay) {
    uint64_t now = 0;
    sd_event_now(loop_.get(), CLOCK_MONOTONIC, &now);
    const std::chrono::microseconds time = delay;
    sd_event_source_set_time(timer_.get(), now + static_cast<uint64_t>(time.count()));
    sd_event_source_set_enabled(timer_.get(), SD_EVENT_ONESHOT);
}

// Logs a reason once: attempts continue while it lasts.
void Bridge::complain(const std::string &about, const std::string &why) {
    if (!failed_ && std::exchange(complaints_[about], why) != why) {
        fmt::print(stderr, "vantro-mpris: {}: {}\n", about, why);
    }
}

void Bridge::fail(const std::string &why) {
    fmt::print(stderr, "vantro-mpris: {}\n", why);
    failed_ = true;
    sd_event_exit(loop_.get(), EXIT_FAILURE);
}

int Bridge::on_events(sd_event_source *, int, uint32_t, void *data) {
    auto &shown = *static_cast<Shown *>(data);
    Bridge &bridge = *shown.bridge;
    try {
        if (const Result<void> followed = shown.player->follow(); !followed) {
            const std::string name = shown.player->name();
            bridge.lose(name, followed.failure()); // this destroys `shown`
        }
    } catch (const std::exception &error) {
        bridge.fail(error.what());
    }
    return 0;
}

int Bridge::on_exit(sd_event_source *, void *data) {
    for (const auto &[name, shown] : static_cast<Bridge *>(data)->shown_) {
        shown.player->retire(gone("vantro-mpris has ended"));
    }
    return 0;
}

int Bridge::on_timer(sd_event_source *, uint64_t, void *data) {
    auto &bridge = *static_cast<Bridge *>(data);
    try {
        bridge.attempt();
    } catch (const std::exception &error) {
        bridge.fail(error.what());
    }
    return 0;
}

} // namespace vantro::mpris
