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

// Between two attempts to reach the service; doubled after each that failed.
constexpr std::chrono::milliseconds delay_min{250};
constexpr std::chrono::milliseconds delay_max{8000};

// The players that the service has. A service that does not tell has at least the one that every
// client expects.
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

// Takes lost players off the bus, and brings those there that are missing.
void Bridge::attempt() {
    std::erase_if(shown_, [](const auto &entry) { return entry.second.lost; });
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
    Shown &shown = shown_[name];
    if (result >= 0) {
        sd_event_source *source = nullptr;
        shown.bridge = this;
        result = sd_event_add_io(loop_.get(), &source, player->link().descriptor(), EPOLLIN,
                                 on_events, &shown);
        shown.events.reset(source);
        // What a client asks about is answered by what has happened before.
        sd_event_source_set_priority(source, SD_EVENT_PRIORITY_IMPORTANT);
    }
    if (result < 0) {
        shown_.erase(name);
        return failure_of(result);
    }
    shown.player = std::move(player);
    return {};
}

void Bridge::lose(Shown &shown, const Failure &why) {
    shown.lost = true;
    shown.events.reset(); // It stays readable.
    complain(shown.player->name(), why.why() == Reason::gone ? "the service has ended" : why.text);
    delay_ = std::chrono::milliseconds(0);
    attempt_in(delay_);
}

void Bridge::attempt_in(std::chrono::milliseconds delay) {
    uint64_t now = 0;
    sd_event_now(loop_.get(), CLOCK_MONOTONIC, &now);
    const std::chrono::microseconds time = delay;
    sd_event_source_set_time(timer_.get(), now + static_cast<uint64_t>(time.count()));
    sd_event_source_set_enabled(timer_.get(), SD_EVENT_ONESHOT);
}

// Once for each reason: attempts go on for as long as it takes.
void Bridge::complain(const std::string &about, const std::string &why) {
    if (std::exchange(complaints_[about], why) != why) {
        fmt::print(stderr, "vantro-mpris: {}: {}\n", about, why);
    }
}

void Bridge::fail(const std::string &why) {
    fmt::print(stderr, "vantro-mpris: {}\n", why);
    sd_event_exit(loop_.get(), EXIT_FAILURE);
}

int Bridge::on_events(sd_event_source *, int, uint32_t, void *data) {
    auto &shown = *static_cast<Shown *>(data);
    try {
        if (const Result<void> followed = shown.player->follow(); !followed) {
            shown.bridge->lose(shown, followed.failure());
        }
    } catch (const std::exception &error) {
        shown.bridge->fail(error.what());
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
