#include "tools/vantroctl/output/pager.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <utility>

#include <sys/wait.h>
#include <unistd.h>

#include <fmt/format.h>

#include "tools/vantroctl/failure.h"
#include "tools/vantroctl/output/colour.h"
#include "tools/vantroctl/output/standard_output.h"
#include "tools/vantroctl/text/display_text.h"

namespace vantro::ctl {
namespace {

// A shell's exit code for a program that does not exist.
constexpr int exit_no_program = 127;

constexpr const char *default_pager =
    "if command -v less >/dev/null; then exec less; else exec cat; fi";

std::string pager_command() {
    const char *command = std::getenv("PAGER");
    const char *terminal = std::getenv("TERM");
    if (!terminal || std::strcmp(terminal, "dumb") == 0) {
        return {};
    }
    return command ? command : default_pager;
}

int rows_of(std::string_view lines, int columns) {
    int rows = 0;
    while (!lines.empty()) {
        const size_t end = std::min(lines.find('\n'), lines.size());
        const int width = display_width(unpainted(lines.substr(0, end)));
        rows += std::max((width + columns - 1) / columns, 1);
        lines.remove_prefix(std::min(end + 1, lines.size()));
    }
    return rows;
}

} // namespace

Pager::Pager(bool allowed) {
    if (allowed && output_is_terminal()) {
        command_ = pager_command();
        direct_ = command_.empty() || command_ == "cat";
    }
}

Pager::~Pager() {
    if (pipe_) {
        stop();
    } else {
        write_output(held_); // These lines came before the failure.
    }
}

void Pager::start() {
    // Unless the user's environment says otherwise, less leaves its text on the screen, in UTF-8.
    setenv("LESS", "FRX", 0);
    setenv("LESSCHARSET", "utf-8", 0);
    std::signal(SIGPIPE, SIG_DFL); // A pager may be a pipe itself, and inherits this.
    pipe_ = popen(command_.c_str(), "we");
    std::signal(SIGPIPE, SIG_IGN);
    if (pipe_) {
        // An interrupt is for the pager. When the user leaves the pager this program ends too.
        std::signal(SIGINT, SIG_IGN);
    } else {
        direct_ = true;
    }
}

int Pager::stop() {
    const int status = pclose(pipe_);
    pipe_ = nullptr;
    std::signal(SIGINT, SIG_DFL);
    return status;
}

bool Pager::send(std::string_view text) {
    if (wanted_ && !write_output(text, pipe_ ? fileno(pipe_) : STDOUT_FILENO)) {
        if (errno != EPIPE) {
            throw Failure(Outcome::failed,
                          fmt::format("cannot write to standard output: {}", std::strerror(errno)));
        }
        wanted_ = false;
    }
    return wanted_;
}

bool Pager::write(std::string_view lines) {
    if (direct_ || pipe_) {
        return send(lines);
    }
    held_ += lines;
    rows_ += rows_of(lines, output_columns());
    if (rows_ < output_rows()) { // The prompt takes a row.
        return true;
    }
    start();
    return send(std::exchange(held_, {}));
}

void Pager::finish() {
    if (!pipe_) {
        send(std::exchange(held_, {}));
        return;
    }
    const int status = stop();
    if (WIFEXITED(status) && WEXITSTATUS(status) == exit_no_program) {
        throw Failure(Outcome::failed,
                      fmt::format("no pager {}: set PAGER, or add --no-pager", command_));
    }
}

} // namespace vantro::ctl
