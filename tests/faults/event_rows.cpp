// Following a player, against vantrod. Whatever failed, the events afterwards give the whole state.
#include <poll.h>
#include <pthread.h>

#include <atomic>
#include <set>
#include <utility>

#include <vantro/extras.h>

#include "tests/faults/rows.h"

namespace vantro::faults {

namespace {

struct Follower {
    Follower() : handle(vantro_connect()) { vantro_open(handle, "main"); }
    ~Follower() { vantro_disconnect(handle); }
    Follower(const Follower &) = delete;
    Follower &operator=(const Follower &) = delete;

    bool get(const VantroEvent *event) {
        if (event && event->object_name) {
            seen.insert(event->object_name);
            repeat = event->repeat;
        }
        return event;
    }
    // Reads all events. @return their objects, without positions, which come at any time.
    std::string drain() {
        const VantroEvent *event;
        do {
            event = vantro_event_get(handle);
            if (!get(event)) {
                return "the next get fails";
            }
        } while (event->type != VANTRO_EVENT_NONE || event->object_name);
        std::string told = std::to_string(repeat);
        for (const std::string &object : std::exchange(seen, {})) {
            told += object == "status" ? "" : " " + object;
        }
        return told;
    }

    VantroHandle *handle;
    std::set<std::string> seen;
    int32_t repeat = -1;
};

// A get that gives the full state, or a change.
std::string get(Scene &scene, bool change) {
    Follower follower;
    if (change) {
        follower.drain();
        vantro_repeat(follower.handle, 1);
        vantro_jump(follower.handle, 1);
        vantro_jump(follower.handle, 0);
    }
    const bool got = follower.get(scene.faulted([&] { return vantro_event_get(follower.handle); }));
    const bool says_why = got || errno != 0;
    const std::string told = follower.drain();
    vantro_repeat(follower.handle, 0);
    return says_why ? told : "failed without errno";
}

std::string set_data(Scene &scene) {
    Follower follower;
    vantro_event_get(follower.handle);
    const int result =
        scene.faulted([&] { return vantro_event_data_set(follower.handle, &scene); });
    return std::to_string(result);
}

std::string destroy_queue(Scene &scene) {
    scene.faulted([] { return vantro_internal_destroy_evq(nullptr), true; });
    return "done";
}

// Changes the player until `stop` is set.
void *disturb(void *stop) {
    const Follower other;
    for (int32_t mode = 0; !static_cast<std::atomic<bool> *>(stop)->load(); mode = !mode) {
        vantro_shuffle(other.handle, mode);
    }
    vantro_shuffle(other.handle, 0);
    return nullptr;
}

std::string wait(Scene &scene, bool for_a_time) {
    Follower follower;
    follower.drain();
    std::atomic<bool> stop = false;
    pthread_t other;
    pthread_create(&other, nullptr, disturb, &stop);
    const auto call = [&] {
        return for_a_time ? vantro_event_wait_for(follower.handle, 10'000) - 1
                          : vantro_event_wait(follower.handle);
    };
    const int result = scene.faulted(call);
    const bool says_why = result == 0 || errno != 0;
    const bool good = result == 0 || call() == 0;
    stop = true;
    pthread_join(other, nullptr);
    follower.drain();
    return !good || !says_why ? "the next wait fails, or no errno"
           : result == 0      ? "woken"
                              : "failed";
}

// The descriptor of a follower without unread events becomes readable when it is woken.
std::string wake(Scene &scene, bool by_descriptor) {
    Follower follower;
    follower.drain();
    const auto ready = [&] { return vantro_event_fd(follower.handle); };
    const int got = by_descriptor ? scene.faulted(ready) : 0;
    const bool says_why = got >= 0 || errno != 0;
    pollfd descriptor = {ready(), POLLIN, 0};
    follower.drain();
    const int woken = by_descriptor
                          ? vantro_event_wake(follower.handle)
                          : scene.faulted([&] { return vantro_event_wake(follower.handle); });
    const bool good = woken == 0 && poll(&descriptor, 1, 10'000) == 1;
    follower.drain();
    return !good || !says_why ? "not woken, or no errno" : got >= 0 ? "woken" : "failed";
}

} // namespace

Rows event_rows() {
    return {{"vantro_event_get", [](Scene &s) { return get(s, false); }, Way::may_abort},
            {"vantro_event_get change", [](Scene &s) { return get(s, true); }, Way::may_abort},
            {"vantro_event_wait", [](Scene &s) { return wait(s, false); }, Way::may_abort},
            {"vantro_event_wait_for", [](Scene &s) { return wait(s, true); }, Way::may_abort},
            {"vantro_event_fd", [](Scene &s) { return wake(s, true); }, Way::may_abort},
            {"vantro_event_wake", [](Scene &s) { return wake(s, false); }, Way::may_abort},
            {"vantro_event_data_set", set_data, Way::may_abort},
            {"vantro_internal_destroy_evq", destroy_queue}};
}

} // namespace vantro::faults
