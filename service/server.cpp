#include "service/server.h"

#include <cerrno>
#include <latch>
#include <memory>
#include <pthread.h>
#include <thread>
#include <vector>

#include <fmt/format.h>

#include <vantro/platform/message.h>
#include <vantro/platform/names.h>
#include <vantro/protocol.h>

#include "service/requests/handlers.h"

namespace vantro::service {

namespace {

// A service under permission bits and one under capabilities are published in different places.
// Both take this name, so that only one of them can run.
constexpr const char *only_one = "vantrod/" VANTRO_SERVICE_NAME "/" VANTRO_SERVICE_INSTANCE;

// A message server cannot be freed, so it belongs to the process.
MsgServer *the_server;

Error cannot(const char *what) {
    return Error::failed(Error::Origin::system, errno, what);
}

Error cannot_attach() {
    constexpr const char *what = "cannot attach the service \"" VANTRO_SERVICE_NAME
                                 "\", instance \"" VANTRO_SERVICE_INSTANCE "\"";
    return errno == EADDRINUSE ? Error(Error::Origin::system, EADDRINUSE,
                                       fmt::format("{}: another vantrod is running", what))
                               : cannot(what);
}

// A descriptor from a client may block one of these threads, but must not block the end of the
// service. The other thread continues. Wait until both run: before that, serving threads would
// close descriptors.
void start_closing() {
    constexpr int count = 2;
    const auto running = std::make_shared<std::latch>(count);
    for (int i = 0; i < count; ++i) {
        std::thread([running, channel = the_server->channel] {
            pthread_setname_np(pthread_self(), "closing");
            running->count_down();
            ipc_lend_closing_thread(channel);
        }).detach();
    }
    running->wait();
}

} // namespace

Server::~Server() {
    // Removes its names while the process still holds their locks.
    if (the_server) {
        channel_destroy(the_server->channel);
    }
    if (wake_ >= 0) {
        connect_detach(wake_);
    }
    if (ask_ >= 0) {
        global_name_close(ask_);
    }
}

std::optional<Error> Server::attach(const Options &options) {
    const bool by_name = !options.capabilities.empty();
    the_server = msgserver_create(
        request_max, queue_max, MSGSERVER_FLAG_LOG_REFUSALS | (by_name ? 0 : MSGSERVER_FLAG_PATH));
    if (!the_server && by_name && errno == EPERM) {
        return Error(Error::Origin::system, EPERM,
                     "cannot check capabilities (--require): the grantor device \"/dev/grantor\" "
                     "cannot be opened");
    }
    if (!the_server) {
        return cannot("cannot make a message server");
    }

    // If this fails, messages only take longer: threads wait where they are.
    channel_hand_over(the_server->channel);
    if (!global_name_attach(the_server->dispatch, only_one, 0)) {
        return cannot_attach();
    }
    const std::string &service_options = by_name ? options.capabilities : options.permissions;
    if (msgserver_add(the_server, VANTRO_SERVICE_NAME, VANTRO_SERVICE_INSTANCE,
                      service_options.c_str(), 0, requests::handle_request, requests::handle_open,
                      requests::handle_close) < 0) {
        return cannot_attach();
    }
    wake_ = connect_attach(0, 0, the_server->channel, 0, 0);
    if (wake_ < 0) {
        return cannot("cannot make a pulse connection");
    }
    return std::nullopt;
}

std::optional<Error> Server::run(int threads, const std::function<void()> &ready) {
    std::vector<std::thread> running;
    std::optional<Error> failure;
    try {
        start_closing();
        running.reserve(static_cast<size_t>(threads) + 1);
        for (int i = 0; i <= threads; ++i) {
            running.emplace_back([] {
                pthread_setname_np(pthread_self(), "serving");
                msgserver_thread_loop(the_server);
            });
        }
        ready();
    } catch (const std::exception &thrown) {
        const Error error = error_of(thrown);
        failure = Error(error.origin(), error.code(),
                        fmt::format("cannot start {} threads: {}", threads, error.text()));
        stop();
    }
    for (std::thread &each : running) {
        each.join();
    }
    return failure;
}

bool Server::answers(std::chrono::milliseconds time) {
    const int time_ms = static_cast<int>(time.count());
    if (ask_ < 0) {
        const int before = ipc_set_open_timeout(time_ms);
        ask_ = global_name_open(only_one, 0);
        ipc_set_open_timeout(before);
    }
    // This is not a valid request: one of the receiving threads refuses it, under the server lock.
    const char message = 0;
    return ask_ >= 0 && ipc_send_simple(ask_, &message, sizeof message, nullptr, 0) < 0 &&
           errno == ENOSYS;
}

void Server::stop() {
    requests::stop_waiting(); // first, while no thread has ended
    __atomic_store_n(&the_server->stop, 1, __ATOMIC_RELEASE);
    // A waiting thread checks `stop` only after its next message or pulse. Pulses that no thread
    // receives are freed with the channel.
    for (int i = 0; i <= threads_max; ++i) {
        pulse_send(wake_, 0, 0, 0);
    }
}

} // namespace vantro::service
