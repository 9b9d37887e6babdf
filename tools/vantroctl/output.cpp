#include "tools/vantroctl/output.h"

#include <cerrno>
#include <charconv>
#include <csignal>
#include <cstdlib>
#include <cstring>

#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

namespace vantro {

void prepare_output() {
    std::signal(SIGPIPE, SIG_IGN);
    for (int descriptor = 0; descriptor <= 2; ++descriptor) {
        // Read-only, so that writing to a stream that was closed still fails.
        if (fcntl(descriptor, F_GETFD) < 0 && open("/dev/null", O_RDONLY) < 0) {
            std::abort();
        }
    }
}

bool write_output(std::string_view text) {
    while (!text.empty()) {
        const ssize_t written = write(STDOUT_FILENO, text.data(), text.size());
        if (written < 0 && errno != EINTR) {
            return false;
        }
        text.remove_prefix(written > 0 ? static_cast<size_t>(written) : 0);
    }
    return true;
}

bool output_is_terminal() {
    return isatty(STDOUT_FILENO) != 0;
}

int output_columns() {
    winsize size = {};
    if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0) {
        return size.ws_col;
    }
    int columns = 0;
    if (const char *text = std::getenv("COLUMNS")) {
        std::from_chars(text, text + std::strlen(text), columns);
    }
    return columns > 0 ? columns : 80;
}

} // namespace vantro
