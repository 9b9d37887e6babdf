// vantro-mpris: shows the players of the service as MPRIS media players of the session bus.
#include <clocale>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <utility>

#include <vantro/platform/log.h>

#include "bridges/mpris/bridge.h"
#include "bridges/mpris/options.h"

namespace {

// Dropped, since the library logs each attempt; this program logs a failure once.
void drop_line(uint32_t, int, const char *, void *) {}

} // namespace

int main(int argc, char **argv) {
    try {
        std::setlocale(LC_ALL, ""); // texts of failures, and the order of playlists
        vantro::mpris::Options options;
        int exit_code = EXIT_SUCCESS;
        if (!vantro::mpris::parse_options(argc, argv, options, exit_code)) {
            return exit_code;
        }
        system_log_set_sink(drop_line, nullptr);
        sigset_t ending;
        sigemptyset(&ending);
        sigaddset(&ending, SIGTERM);
        sigaddset(&ending, SIGINT);
        sigprocmask(SIG_BLOCK, &ending, nullptr); // The loop receives these signals.
        return vantro::mpris::Bridge(std::move(options.players)).run();
    } catch (const std::exception &error) {
        std::fprintf(stderr, "vantro-mpris: %s\n", error.what());
        return EXIT_FAILURE;
    }
}
