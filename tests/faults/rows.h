// The rows of the table of the library's calls, and the scene in which a row runs.
#ifndef VANTRO_TESTS_FAULTS_ROWS_H
#define VANTRO_TESTS_FAULTS_ROWS_H

#include <cerrno>
#include <functional>
#include <string>
#include <vector>

#include <vantro/messaging.h>
#include <vantro/player.h>

#include "tests/faults/inject.h"

namespace vantro::faults {

// Descriptors of this process that are open.
long open_descriptors();

class Scene {
  public:
    explicit Scene(const Plan &plan) : plan_(plan) {}
    ~Scene();
    Scene(const Scene &) = delete;
    Scene &operator=(const Scene &) = delete;

    // The call that the row tests: only in it something fails.
    template <typename Call>
    auto faulted(Call call) {
        arm(control(), plan_);
        counting() = true;
        errno = 0;
        const auto result = call();
        counting() = false;
        note_more();
        disarm(control());
        return result;
    }
    // For calls that other threads arm and disarm.
    void note_more() {
        if (plan_.kind != Kind::none) {
            more_ = more_ || control().seen > plan_.nth;
        }
    }
    void end_faults() { plan_ = {}; }
    const Plan &plan() const { return plan_; }
    bool more() const { return more_; } // whether there was still something to fail

    VantroHandle *player(); // with "main" open, which has a session and is paused
    VantroHandle *spare();  // with "spare" open, which has no session
    MsgClient *client();    // of the service that echoes

  private:
    Plan plan_;
    bool more_ = false;
    VantroHandle *player_ = nullptr;
    VantroHandle *spare_ = nullptr;
    MsgClient *client_ = nullptr;
};

// How a row may end, and where it runs.
enum class Way {
    plain,
    may_abort, // documented: without memory the process ends with abort()
    serves, // in a process of its own; a server is never freed, so the row looks for leaks itself
    serves_first // the same, and a thread's first call may end the process as the C library does
};

struct Row {
    // The functions' names; further words may follow.
    const char *name;
    // Has the calls fail in scene.faulted(). @return what their caller sees: the same at each call
    // that succeeds, and "failed" for a failure as it is documented.
    std::function<std::string(Scene &)> run;
    Way way = Way::plain;
};

using Rows = std::vector<Row>;

Rows record_rows();
Rows client_rows();
Rows server_rows();
Rows player_rows();
Rows event_rows();

// How often both halves allocate for that many small exchanges and a new client; -1 if one fails.
// Leaves a server behind.
int64_t allocations_of_small_exchanges(int count);

// The service behind client_rows(), in this process, for ever.
int serve_echo();

constexpr int songs_count = 20;

} // namespace vantro::faults

#endif
