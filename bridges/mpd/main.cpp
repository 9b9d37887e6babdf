// vantro-mpd: lets clients of the MPD protocol control the players of vantrod.
#include <clocale>
#include <cstdint>
#include <cstdio>
#include <exception>
#include <string>
#include <utility>
#include <vector>

#include <sys/stat.h>

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <vantro/platform/log.h>
#include <vantro/version.h>

#include "bridges/mpd/permissions.h"
#include "bridges/mpd/server.h"
#include "bridges/sockets/listener.h"
#include "common/descriptor_limit.h"

namespace {

using namespace vantro::mpd;

struct Options {
    std::string player = "main";
    std::vector<std::string> binds;
    uint16_t port = 6600;
    size_t clients = 128;
    std::string password_file;
    bool verbose = false;
};

void complain(const std::string &text) {
    std::fprintf(stderr, "vantro-mpd: %s\n", text.c_str());
}

// Dropped, since the library would log each mistake of a client; the answer tells the client.
void drop_line(uint32_t, int, const char *, void *) {}

std::vector<Listener> listen(const Options &options) {
    std::vector<Listener> all;
    const bool given = !options.binds.empty();
    const std::vector<std::string> loopback = {"127.0.0.1", "::1"};
    for (const std::string &where : given ? options.binds : loopback) {
        if (where.starts_with('/')) {
            all.push_back(Listener::open_path(where));
            continue;
        }
        try {
            for (Listener &each : Listener::open(where, options.port)) {
                all.push_back(std::move(each));
            }
        } catch (const std::exception &error) {
            // Many hosts have only one of the two.
            if (given || where != loopback.back() || all.empty()) {
                throw;
            }
            complain(error.what());
        }
    }
    return all;
}

Passwords read_passwords(const std::string &path) {
    if (path.empty()) {
        return {};
    }
    struct stat status = {};
    if (::stat(path.c_str(), &status) == 0 && (status.st_mode & S_IROTH) != 0) {
        complain(path + " can be read by every user of this machine");
    }
    return Passwords::read(path);
}

int run(const Options &options) {
    if (!options.verbose) {
        system_log_set_sink(drop_line, nullptr);
    }
    Passwords passwords = read_passwords(options.password_file);
    std::vector<Listener> listeners = listen(options);
    std::string names;
    for (const Listener &each : listeners) {
        names += (names.empty() ? "" : ", ") + each.name();
    }
    vantro::raise_descriptor_limit();
    Server server(std::move(listeners), options.player, options.clients, std::move(passwords));
    std::printf("vantro-mpd: ready (%s)\n", names.c_str());
    std::fflush(stdout);
    server.run();
    return 0;
}

int parse_and_run(int argc, char **argv) {
    constexpr size_t name_max = 31;
    constexpr size_t clients_most = 4096;
    Options options;
    CLI::App app("Lets clients of the MPD protocol control the players of vantrod.", "vantro-mpd");
    app.set_version_flag("--version", "vantro-mpd " VANTRO_VERSION);
    app.add_option("--player", options.player, "Player with which clients begin")
        ->type_name("NAME")
        ->capture_default_str()
        ->check([](const std::string &name) {
            return !name.empty() && name.size() <= name_max ? "" : "a name has 1 to 31 bytes";
        });
    app.add_option("--bind", options.binds,
                   "Address, or absolute path of a socket; may be repeated. Default: 127.0.0.1 "
                   "and ::1")
        ->type_name("WHERE")
        ->expected(1)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
    app.add_option("--port", options.port, "Port of all addresses; 0: a free port")
        ->type_name("PORT")
        ->capture_default_str();
    app.add_option("--clients", options.clients, "Most clients at a time; further ones are refused")
        ->type_name("N")
        ->capture_default_str()
        ->check(CLI::Range(size_t{1}, clients_most));
    app.add_option("--password-file", options.password_file,
                   "File with lines of the form PASSWORD@PERMISSIONS")
        ->type_name("FILE");
    app.add_flag("--verbose", options.verbose, "Log the library's messages");
    try {
        app.parse(argc, argv);
    } catch (const CLI::Success &asked) { // For --help or --version.
        return app.exit(asked);
    } catch (const CLI::ParseError &error) {
        complain(fmt::format("{}; see vantro-mpd --help", error.what()));
        return 2;
    }
    return run(options);
}

} // namespace

int main(int argc, char **argv) {
    // Used only for upper and lower case; everything else is independent of the language.
    std::setlocale(LC_CTYPE, "C.UTF-8");
    try {
        return parse_and_run(argc, argv);
    } catch (const std::exception &error) {
        complain(error.what());
        return 1;
    }
}
