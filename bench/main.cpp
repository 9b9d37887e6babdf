// vantro-bench: measures the messaging layer, events, the service and the records, and compares
// them with the floor.
#include <algorithm>
#include <cstdlib>
#include <exception>
#include <string>
#include <vector>

#include <vantro/platform/message.h>

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include "bench/own_query.h"
#include "bench/own_service.h"
#include "bench/plain_copy.h"
#include "bench/process.h"
#include "bench/publisher.h"
#include "bench/run.h"
#include "common/descriptor_limit.h"

namespace {

using namespace vantro::bench;

const std::vector<std::string> &row_names() {
    static const std::vector<std::string> names = [] {
        std::vector<std::string> all{"floor", "putget_small"};
        for (const char *size : {"1k", "4k", "16k", "64k", "256k", "1m"}) {
            all.push_back(fmt::format("putget_{}", size));
        }
        for (int threads = 1; threads <= 8; ++threads) {
            all.push_back(fmt::format("putget_threads_{}", threads));
        }
        for (const char *name : {"putget_paced_1ms",
                                 "putget_paced_5ms",
                                 "putget_busy",
                                 "putget_busy_nice",
                                 "exchanges_processes_100",
                                 "putget_behind_5ms",
                                 "putget_clients_1",
                                 "putget_clients_10",
                                 "putget_clients_100",
                                 "putget_clients_1000",
                                 "play",
                                 "command_changes_0",
                                 "command_changes_1",
                                 "command_changes_10",
                                 "command_changes_100",
                                 "sound_first",
                                 "sound_loaded",
                                 "sound_paused",
                                 "event_get_idle",
                                 "floor_one_way",
                                 "signal_one_way",
                                 "publish_wakeup",
                                 "publish_readers_0",
                                 "publish_readers_1",
                                 "publish_readers_10",
                                 "publish_readers_100",
                                 "publish_waiting_1",
                                 "publish_waiting_10",
                                 "publish_waiting_100",
                                 "events_read_one",
                                 "events_read_lapped",
                                 "publisher_memory_per_reader",
                                 "idle_wakeups",
                                 "pack_nodes_10k",
                                 "unpack_nodes_10k",
                                 "service_memory_per_client",
                                 "scan_files",
                                 "service_memory_100k",
                                 "list_10k",
                                 "list_10k_copy",
                                 "browse_page_100k",
                                 "page_metadata_100k",
                                 "search_prefix_100k",
                                 "second_start_first_browse"}) {
            all.emplace_back(name);
        }
        return all;
    }();
    return names;
}

// "caller:DESCRIPTOR", "floor:SOCKET", "copy:SOCKET:BYTES", "query:...", "putget:THREADS:INSTANCE",
// "hog:NICE" or "publisher:SOCKET".
int serve(const std::string &what) {
    vantro::raise_descriptor_limit();
    const size_t first = what.find(':');
    const size_t second = what.find(':', first + 1);
    const std::string kind = what.substr(0, first);
    const int number = first == std::string::npos ? 0 : std::atoi(what.c_str() + first + 1);
    if (kind == "floor") {
        return serve_floor(number);
    }
    if (kind == "copy" && second != std::string::npos) {
        return serve_copy(number, std::strtoul(what.c_str() + second + 1, nullptr, 10));
    }
    if (kind == "query" && second != std::string::npos) {
        return serve_query(what.substr(first + 1));
    }
    if (kind == "caller") {
        return call_for_ever(number);
    }
    if (kind == "hog") {
        return keep_busy(number);
    }
    if (kind == "publisher") {
        return serve_publisher(number);
    }
    if (kind == "putget" && number > 0 && second != std::string::npos) {
        return serve_putget(number, what.c_str() + second + 1);
    }
    return 2;
}

int measure(Run &run, const std::string &json) {
    vantro::raise_descriptor_limit();
    run.directory = enter_private_runtime();
    putget_rows(run);
    busy_rows(run);
    crowd_rows(run);
    play_row(run);
    command_rows(run);
    sound_rows(run);
    event_rows(run);
    idle_row(run);
    record_rows(run);
    memory_row(run);
    catalogue_rows(run);
    print_table(run.rows);
    if (!json.empty() && !write_json(run.rows, json)) {
        fail_errno(json);
    }
    return 0;
}

// The options of the command line.
struct Arguments {
    Run run;
    std::string json;
    std::string served;
    size_t traced = 0;
    size_t traced_gets = 0;
    bool block = false;
};

void add_options(CLI::App &app, Arguments &arguments) {
    app.footer(
        fmt::format("Times in us are those of an exchange. floor_ratio divides a row's median "
                    "by that of the floor\nmeasured in turns with it. Each side of an "
                    "exchange has a processor of its own, "
                    "in the floor as in\nthe rows; only putget_threads_N and its floor run "
                    "wherever the scheduler puts them.\n\nRows:\n  {}",
                    fmt::join(row_names(), "\n  ")));
    const CLI::Validator known(
        [](const std::string &name) {
            const std::vector<std::string> &names = row_names();
            return std::find(names.begin(), names.end(), name) != names.end()
                       ? std::string()
                       : fmt::format("no row is called {}", name);
        },
        "", "row");
    app.add_option("--only", arguments.run.only, "Measure this row only (repeatable)")
        ->type_name("NAME")
        ->allow_extra_args(false)
        ->check(known);
    app.add_option("--iterations", arguments.run.iterations, "Exchanges of each row and thread")
        ->type_name("N")
        ->check(CLI::Range(size_t{1}, size_t{100000000}));
    app.add_option("--tracks", arguments.run.tracks,
                   "Songs of the collection that is made for the rows about the catalogue")
        ->type_name("N")
        ->capture_default_str()
        ->check(CLI::Range(1, 1000000));
    app.add_flag("--block", arguments.block,
                 "Have the clients and servers of putget_... sleep at once, and not look before "
                 "that whether "
                 "a message is about to arrive");
    app.add_option("--json", arguments.json, "Write the rows to this file too")->type_name("FILE");
    app.add_option("--serve", arguments.served)->group("");
    app.add_option("--trace-exchanges", arguments.traced)->group("");
    app.add_option("--trace-event-gets", arguments.traced_gets)->group("");
}

} // namespace

int main(int argc, char **argv) try {
    Arguments arguments;
    CLI::App app{"Measures exchanges beside the machine's own floor: a ping-pong of the same size "
                 "between two processes that block. Needs nothing prepared."};
    add_options(app, arguments);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError &error) {
        return app.exit(error) == 0 ? 0 : 2;
    }

    Server::looking_wanted = !arguments.block;
    ipc_allow_looking(Server::looking_wanted);
    if (!arguments.served.empty()) {
        return serve(arguments.served);
    }
    if (arguments.traced > 0) {
        return trace_exchanges(arguments.traced);
    }
    if (arguments.traced_gets > 0) {
        return trace_event_gets(arguments.traced_gets);
    }
    return measure(arguments.run, arguments.json);
} catch (const std::exception &error) {
    vantro::bench::fail(error.what());
}
