// What the table of the library's calls is made of: rows, and the scene that a row plays in.
#ifndef VANTRO_TESTS_FAULTS_ROWS_H
#define VANTRO_TESTS_FAULTS_ROWS_H

#include <cerrno>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include <vantro/messaging.h>
#include <vantro/player.h>

#include "tests/faults/inject.h"

namespace vantro::faults {

// Which allocation or system call of a row fails, and how often.
struct Plan {
    Kind kind = Kind::none;
    int64_t nth = 0;
    int variant = 0;
    int64_t times = 1;
};

// Descriptors of this process that are open.
long open_descriptors();

class Scene {
  public:
    explicit Scene(const Plan &plan) : plan_(plan) {}
    ~Scene();
    Scene(const Scene &) = delete;
    Scene &operator=(const Scene &) = delete;

    // The call that the row is about: in it, and nowhere else, something fails.
    template <typename Call>
    auto faulted(Call call) {
        arm(control(), plan_.kind, plan_.nth, plan_.variant, plan_.times);
        counting() = true;
        errno = 0;
        const auto result = call();
        counting() = false;
        if (plan_.kind != Kind::none) {
            more_ = control().seen > plan_.nth;
        }
        disarm(control());
        return result;
    }
    // For calls that other threads arm and disarm.
    void note_more() { more_ = control().seen > plan_.nth; }

    void expect(bool holds, std::string_view what) {
        if (!holds) {
            problems_.emplace_back(what);
        }
    }
    void end_faults() { plan_ = {}; }

    const Plan &plan() const { return plan_; }
    bool more() const { return more_; } // whether there was still something to fail
    const std::vector<std::string> &problems() const { return problems_; }

    VantroHandle *player(); // with "main" open, which has a session and is paused
    VantroHandle *spare();  // with "spare" open, which has no session
    MsgClient *client();    // of the service that echoes

  private:
    Plan plan_;
    bool more_ = false;
    std::vector<std::string> problems_;
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
    // The function's name; more may follow a blank.
    const char *name;
    // Has the call fail in scene.faulted(), and says what is not as documented. @return whether the
    // call succeeded.
    std::function<bool(Scene &)> run;
    Way way = Way::plain;
};

using Rows = std::vector<Row>;

Rows record_rows();
Rows client_rows();
Rows server_rows();
Rows player_rows();
Rows event_rows();

// The service behind client_rows(), in this process, for ever.
int serve_echo();

// The source of the music that player_rows() asks for; songs_count songs with long names.
constexpr int songs_count = 20;
extern int32_t music_source;
extern uint64_t music_session; // what "main" plays
extern std::string music_song; // the first

} // namespace vantro::faults

#endif
