// The rows of the table of the library's calls, and the scene in which a row runs.
#ifndef VANTRO_TESTS_FAULTS_ROWS_H
#define VANTRO_TESTS_FAULTS_ROWS_H

#include <cerrno>
#include <functional>
#include <string>
#include <vector>

#include <vantro/extras.h>
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

    // Makes the call that the row tests. Failures happen only during this call.
    template <typename Call>
    auto faulted(Call call) {
        vantro_jump(nullptr, 0); // replaces the reason of an earlier call
        arm(control(), plan_);
        counting() = true;
        errno = 0;
        const auto result = call();
        counting() = false;
        note_more();
        if (error_ == 0) {
            reason_ = vantro_last_failure(nullptr);
            error_ = control().error;
        }
        disarm(control());
        return result;
    }
    // Whether vantro_last_failure() reports the error that made the call fail.
    bool tells_why() const {
        return error_ == ENOMEM  ? reason_ == VANTRO_FAILURE_NO_MEMORY
               : error_ == EINTR ? reason_ == VANTRO_FAILURE_INTERRUPTED
                                 : reason_ != VANTRO_FAILURE_INVALID;
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
    int32_t error_ = 0;  // the error of the first failed call
    int32_t reason_ = 0; // VANTRO_FAILURE_* of the call in which it failed
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
    bool tells_why = false; // a failure by vantro_last_failure()
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

// Runs the service for client_rows() in this process and never returns.
int serve_echo();

constexpr int songs_count = 20;

} // namespace vantro::faults

#endif
