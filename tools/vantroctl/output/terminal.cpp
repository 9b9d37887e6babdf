#include "tools/vantroctl/output/terminal.h"

#include <csignal>
#include <cstdlib>
#include <cstring>

#include <poll.h>
#include <termios.h>
#include <unistd.h>

#include "tools/vantroctl/output/standard_output.h"

namespace vantro::ctl {
namespace {

constexpr char other_screen[] = "\x1B[?1049h";
constexpr char clear[] = "\x1B[?25l\x1B[H\x1B[2J";
constexpr char give_back_sequence[] = "\x1B[?25h\x1B[?1049l";

// How long restore() waits for room in the terminal's output.
constexpr int room_wait_ms = 100;

// Plain data, because a signal handler may have to restore the terminal.
volatile std::sig_atomic_t is_taken = 0;
bool keys_known = false;
termios keys_before;

// Safe in a signal handler: makes system calls only.
void restore() {
    if (!is_taken) {
        return;
    }
    is_taken = 0;
    // Skipped if the terminal takes no output: write() would then block for ever.
    pollfd room = {STDOUT_FILENO, POLLOUT, 0};
    if (poll(&room, 1, room_wait_ms) == 1) {
        [[maybe_unused]] const ssize_t written =
            write(STDOUT_FILENO, give_back_sequence, sizeof give_back_sequence - 1);
    }
    if (keys_known) {
        tcsetattr(STDIN_FILENO, TCSANOW, &keys_before);
    }
}

void restore_and_abort(int number) {
    restore();
    raise(number); // The default action: SA_RESETHAND has removed the handler.
}

} // namespace

Terminal::Terminal() {
    keys_known = tcgetattr(STDIN_FILENO, &keys_before) == 0;
    std::atexit(restore);
    struct sigaction action = {};
    action.sa_handler = restore_and_abort;
    action.sa_flags = SA_RESETHAND;
    sigaction(SIGABRT, &action, nullptr);
}

void Terminal::take() {
    if (keys_known) {
        termios keys = keys_before;
        keys.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO);
        keys.c_cc[VMIN] = 1;
        keys.c_cc[VTIME] = 0;
        tcsetattr(STDIN_FILENO, TCSANOW, &keys);
    }
    if (!is_taken) {
        is_taken = 1;
        write_output(other_screen);
    }
    write_output(clear);
}

void Terminal::give_back() {
    restore();
}

bool Terminal::has_keys() const {
    return keys_known;
}

} // namespace vantro::ctl
