// vantro-web: a remote control for the players of vantrod, in the browser.
#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <vantro/platform/log.h>
#include <vantro/version.h>

#include "bridges/sockets/listener.h"
#include "bridges/web/server.h"
#include "bridges/web/web_site.h"
#include "common/descriptor_limit.h"

namespace {

using namespace vantro::web;

struct Options {
    std::vector<std::string> binds;
    uint16_t port = 8380;
    std::vector<std::string> hosts;
    std::string state;
    std::string page;
    unsigned clients = 512;
    unsigned clients_of_address = 256;
    bool verbose = false;
};

void complain(const std::string &text) {
    std::fprintf(stderr, "vantro-web: %s\n", text.c_str());
}

// Dropped, since the library logs each mistake of a client; the answer tells the client.
void drop_line(uint32_t, int, const char *, void *) {}

std::string environment(const char *name) {
    const char *const value = std::getenv(name);
    return value ? value : "";
}

// systemd names the folder of a unit's state; otherwise the folder is beside the service's state.
std::string state_folder() {
    if (std::string folder = environment("STATE_DIRECTORY"); !folder.empty()) {
        return folder;
    }
    if (const std::string folder = environment("XDG_STATE_HOME"); !folder.empty()) {
        return folder + "/vantro";
    }
    const std::string home = environment("HOME");
    return home.empty() ? "" : home + "/.local/state/vantro";
}

// Relative to the program's directory, so that the installed tree can be moved.
std::string page_folder() {
    std::error_code error;
    const auto program = std::filesystem::read_symlink("/proc/self/exe", error);
    return program.parent_path().parent_path() / "share/vantro/web";
}

Pairing make_pairing(const std::string &folder) {
    try {
        return Pairing(folder);
    } catch (const std::runtime_error &error) {
        complain(fmt::format("{}; clients on other machines must pair again after each start",
                             error.what()));
        return Pairing("");
    }
}

int run(const Options &options) {
    if (!options.verbose) {
        system_log_set_sink(drop_line, nullptr);
    }
    std::vector<Listener> listeners;
    std::string names;
    for (const std::string &where : options.binds) {
        for (Listener &each : Listener::open(where, options.port)) {
            names += (names.empty() ? "http://" : ", http://") + each.name();
            listeners.push_back(std::move(each));
        }
    }
    vantro::raise_descriptor_limit();
    Players players;
    Pairing pairing = make_pairing(options.state);
    WebSite site(players, pairing, PageFiles(options.page), Guard(options.hosts));
    Server server(std::move(listeners), players, site,
                  {options.clients, options.clients_of_address});
    std::printf("vantro-web: code for other machines: %s %s\n", pairing.code().substr(0, 4).c_str(),
                pairing.code().substr(4).c_str());
    std::printf("vantro-web: ready (%s)\n", names.c_str());
    std::fflush(stdout);
    server.run();
    return 0;
}

void add_options(CLI::App &app, Options &options) {
    constexpr unsigned clients_most = 16384;
    app.set_version_flag("--version", "vantro-web " VANTRO_VERSION);
    app.add_option("--bind", options.binds, "Address to listen on; may be repeated")
        ->type_name("ADDRESS")
        ->expected(1)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)
        ->default_str("127.0.0.1");
    app.add_option("--port", options.port, "Port of all addresses; 0: a free port")
        ->type_name("PORT")
        ->capture_default_str();
    app.add_option("--host", options.hosts,
                   "Further name by which browsers address this machine; may be repeated")
        ->type_name("NAME")
        ->expected(1)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
    app.add_option("--state", options.state, "Folder of the key that makes cookies valid")
        ->type_name("DIR");
    app.add_option("--page", options.page, "Folder of the page's files")->type_name("DIR");
    app.add_option("--clients", options.clients,
                   "Most connections at a time; further ones are refused")
        ->type_name("N")
        ->capture_default_str()
        ->check(CLI::Range(1u, clients_most));
    app.add_option("--clients-of-address", options.clients_of_address,
                   "Most connections at a time from one address")
        ->type_name("N")
        ->capture_default_str()
        ->check(CLI::Range(1u, clients_most));
    app.add_flag("--verbose", options.verbose, "Log the library's messages");
}

int parse_and_run(int argc, char **argv) {
    Options options;
    CLI::App app("A remote control for the players of vantrod, in the browser.", "vantro-web");
    add_options(app, options);
    try {
        app.parse(argc, argv);
    } catch (const CLI::Success &asked) { // For --help or --version.
        return app.exit(asked);
    } catch (const CLI::ParseError &error) {
        complain(fmt::format("{}; see vantro-web --help", error.what()));
        return 2;
    }
    if (options.binds.empty()) {
        options.binds = {"127.0.0.1"};
    }
    if (options.state.empty()) {
        options.state = state_folder();
    }
    if (options.page.empty()) {
        options.page = page_folder();
    }
    return run(options);
}

} // namespace

int main(int argc, char **argv) {
    try {
        return parse_and_run(argc, argv);
    } catch (const std::exception &error) {
        complain(error.what());
        return 1;
    }
}
