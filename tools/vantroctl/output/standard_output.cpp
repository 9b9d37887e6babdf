#include "tools/vantroctl/output/standard_output.h"

#include <cerrno>
#include <charconv>
#include <csignal>
#include <cstdlib>
#include <cstring>

#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <fmt/format.h>

#include "tools/vantroctl/failure.h"
#include "tools/vantroctl/output/colour.h"
#include "tools/vantroctl/text/display_text.h"

namespace vantro::ctl {
namespace {

int dimension(unsigned short winsize::*member, const char *variable, int otherwise) {
    winsize size = {};
    if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.*member > 0) {
        return size.*member;
    }
    int number = 0;
    if (const char *text = std::getenv(variable)) {
        std::from_chars(text, text + std::strlen(text), number);
    }
    return number > 0 ? number : otherwise;
}

} // namespace

void prepare_output() {
    std::signal(SIGPIPE, SIG_IGN);
    for (int descriptor = 0; descriptor <= 2; ++descriptor) {
        // Read-only, so that writing to a stream that was closed still fails.
        if (fcntl(descriptor, F_GETFD) < 0 && open("/dev/null", O_RDONLY) < 0) {
            std::abort();
        }
    }
}

bool write_output(std::string_view text, int descriptor) {
    while (!text.empty()) {
        const ssize_t written = write(descriptor, text.data(), text.size());
        if (written < 0 && errno != EINTR) {
            return false;
        }
        text.remove_prefix(written > 0 ? static_cast<size_t>(written) : 0);
    }
    return true;
}

void print(std::string_view text) {
    if (!write_output(text)) {
        throw Failure(Outcome::failed,
                      fmt::format("cannot write to standard output: {}", std::strerror(errno)));
    }
}

void complain(std::string_view text) {
    write_output(
        fmt::format("{} {}\n", painted(Ink::wrong, "vantroctl:", STDERR_FILENO), clean_text(text)),
        STDERR_FILENO);
}

bool output_is_terminal() {
    // Cached: used for each line of a list.
    static const bool is_terminal = isatty(STDOUT_FILENO) != 0;
    return is_terminal;
}

int output_columns() {
    return dimension(&winsize::ws_col, "COLUMNS", 80);
}

std::optional<int> terminal_columns() {
    return output_is_terminal() ? std::optional(output_columns()) : std::nullopt;
}

int output_rows() {
    return dimension(&winsize::ws_row, "LINES", 24);
}

} // namespace vantro::ctl
