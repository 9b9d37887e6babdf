// Following a player, against vantrod. Whatever failed, what is told afterwards is the whole truth.
#include <pthread.h>

#include <atomic>
#include <cstdlib>
#include <set>

#include "tests/faults/rows.h"

namespace vantro::faults {

namespace {

// What a follower knows.
struct Picture {
    std::set<std::string> objects;
    int32_t repeat = -1;

    void note(const VantroEvent *event) {
        if (event && event->object_name) {
            objects.insert(event->object_name);
            repeat = event->repeat;
        }
    }
    // Reads all that there is.
    void drain(Scene &scene, VantroHandle *handle) {
        for (;;) {
            const VantroEvent *event = vantro_event_get(handle);
            scene.expect(event != nullptr, "the next get fails");
            if (!event || (event->type == VANTRO_EVENT_NONE && !event->object_name)) {
                return;
            }
            note(event);
        }
    }
};

struct Follower {
    explicit Follower(Scene &scene) : handle(vantro_connect()) {
        scene.expect(handle && vantro_open(handle, "main") == 0, "no player");
    }
    ~Follower() { vantro_disconnect(handle); }
    Follower(const Follower &) = delete;
    Follower &operator=(const Follower &) = delete;

    void get(Scene &scene) {
        const VantroEvent *event = scene.faulted([&] { return vantro_event_get(handle); });
        got = event != nullptr;
        scene.expect(event || errno != 0, "no errno");
        picture.note(event);
    }

    VantroHandle *handle;
    Picture picture;
    bool got = false;
};

bool first_get(Scene &scene) {
    Follower follower(scene);
    follower.get(scene);
    follower.picture.drain(scene, follower.handle);
    for (const char *object : {"state", "trksession", "track", "status"}) {
        scene.expect(follower.picture.objects.count(object) > 0,
                     std::string("never told of: ") + object);
    }
    return follower.got;
}

bool get_change(Scene &scene) {
    static int32_t mode = 0;
    mode = !mode;
    Follower follower(scene);
    follower.picture.drain(scene, follower.handle);
    follower.picture.objects.clear();
    scene.expect(vantro_repeat(follower.handle, mode) == 0, "no change");
    scene.expect(vantro_jump(follower.handle, mode) == 0, "no change");
    follower.get(scene);
    follower.picture.drain(scene, follower.handle);
    scene.expect(follower.picture.repeat == mode, "another state");
    scene.expect(follower.picture.objects.count("track") > 0, "not told of the track");
    return follower.got;
}

bool data_set(Scene &scene) {
    Follower follower(scene);
    vantro_event_get(follower.handle);
    const int result =
        scene.faulted([&] { return vantro_event_data_set(follower.handle, &scene); });
    scene.expect(result == 0, "fails");
    follower.picture.drain(scene, follower.handle);
    return result == 0;
}

bool destroy_queue(Scene &scene) {
    return scene.faulted([] {
        vantro_internal_destroy_evq(nullptr);
        return true;
    });
}

// Changes the player until it is told to stop.
void *disturb(void *stop) {
    VantroHandle *handle = vantro_connect();
    if (!handle || vantro_open(handle, "main") != 0) {
        std::abort();
    }
    for (int32_t mode = 0; !static_cast<std::atomic<bool> *>(stop)->load(); mode = !mode) {
        vantro_shuffle(handle, mode);
    }
    vantro_shuffle(handle, 0);
    vantro_disconnect(handle);
    return nullptr;
}

bool wait_change(Scene &scene) {
    Follower follower(scene);
    follower.picture.drain(scene, follower.handle);
    std::atomic<bool> stop = false;
    pthread_t other;
    scene.expect(pthread_create(&other, nullptr, disturb, &stop) == 0, "no thread");
    const int result = scene.faulted([&] { return vantro_event_wait(follower.handle); });
    scene.expect(result == 0 || (result == -1 && errno != 0), "no errno");
    scene.expect(result == 0 || vantro_event_wait(follower.handle) == 0, "the next wait fails");
    stop = true;
    pthread_join(other, nullptr);
    follower.picture.drain(scene, follower.handle);
    return result == 0;
}

} // namespace

Rows event_rows() {
    return {{"vantro_event_get", first_get, Way::may_abort},
            {"vantro_event_get change", get_change, Way::may_abort},
            {"vantro_event_wait", wait_change, Way::may_abort},
            {"vantro_event_data_set", data_set, Way::may_abort},
            {"vantro_internal_destroy_evq", destroy_queue}};
}

} // namespace vantro::faults
