// Channels: making and destroying them, and waiting for the next message or pulse.
#include <limits.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <optional>
#include <utility>

#include "platform/linux/messages/lane_look.h"
#include "platform/linux/messages/server.h"
#include "platform/linux/paths/path_dispatch.h"
#include "platform/portable/guards.h"

using namespace vantro::platform;
using vantro::MutexLock;

namespace vantro::platform {

void wake_receiver(const Channel &channel) {
    const uint64_t one = 1;
    [[maybe_unused]] const ssize_t written = ::write(channel.wake.get(), &one, sizeof one);
}

// Runs without the lock: it may take long, and a destroyed channel gets no more listeners.
void Channel::withdraw_names() NO_THREAD_SAFETY_ANALYSIS {
    for (auto &listener : listeners) {
        listener->name.withdraw();
    }
}

namespace {

// The message that this thread received last, if it may delay its client's disconnect pulse.
struct Current {
    int receive_id = 0;
    uint32_t incarnation = 0; // of the message's client

    ~Current() { release(); }
    void release() {
        if (receive_id == 0) {
            return;
        }
        const ReceiveId id = ReceiveId::unpack(receive_id);
        receive_id = 0;
        Server &server = Server::instance();
        const MutexLock guard(server_lock);
        Client *client = server.find_client(id.serial);
        if (!client || client->incarnation != incarnation || id.lane >= client->lanes.size() ||
            client->lanes[id.lane].exchange != id.exchange) {
            return;
        }
        server.release_pulse(*client, client->lanes[id.lane]);
        server.erase_if_finished(*client);
    }
};

thread_local Current current;
thread_local LaneLook lane_look;

// Takes the next pulse of the system. @return false if there is none.
bool take_system_pulse(Channel &channel, struct ipc_pulse &pulse) {
    uint64_t count;
    if (::read(channel.wake.get(), &count, sizeof count) != sizeof count) {
        return false; // another thread was faster
    }
    const MutexLock guard(server_lock);
    if (channel.destroyed || channel.first_pulse == 0) {
        return false;
    }
    // The client's pulse was not received yet, so its id cannot have been detached.
    Client &client = *Server::instance().find_client(channel.first_pulse);
    channel.first_pulse = std::exchange(client.next_pulse, 0);
    client.state = ClientState::pulse_received;
    pulse.code = PULSE_CODE_DISCONNECT;
    pulse.conn_id = make_number(NumberKind::client_id, static_cast<int>(client.serial));
    return true;
}

// Takes the next pulse that a program sent. Codes below zero are reserved for the system.
bool take_own_pulse(const Channel &channel, struct ipc_pulse &pulse) {
    int socket;
    {
        const MutexLock guard(server_lock);
        socket = channel.pulse_receive.get(); // made once; exists as long as the channel
    }
    struct iovec part = {&pulse, sizeof pulse};
    Arrival arrival;
    return receive_packet(socket, &part, 1, MSG_DONTWAIT, arrival) == sizeof pulse;
}

// Takes the next pulse that a server sent. An end on which anything else arrives is closed.
bool take_servers_pulse(Channel &channel, uint32_t id, struct ipc_pulse &pulse) {
    const auto find = [&]() REQUIRES(server_lock) {
        return std::find_if(channel.pulse_ends.begin(), channel.pulse_ends.end(),
                            [id](const PulseEnd &end) { return end.id == id; });
    };
    std::shared_ptr<ForeignFd> socket;
    {
        const MutexLock guard(server_lock);
        const auto end = find();
        if (end == channel.pulse_ends.end()) {
            return false;
        }
        socket = end->socket;
    }
    struct iovec part = {&pulse, sizeof pulse};
    Arrival arrival;
    const ssize_t received = receive_packet(socket->get(), &part, 1, MSG_DONTWAIT, arrival);
    if (received == sizeof pulse && pulse.code >= 0) {
        const struct ipc_pulse clean = {.type = 0,
                                        .subtype = 0,
                                        .code = pulse.code,
                                        .zero = {0, 0, 0},
                                        .value = pulse.value,
                                        .conn_id = 0};
        pulse = clean;
        return true;
    }
    if (received >= 0 || (errno != EAGAIN && errno != EINTR)) {
        const MutexLock guard(server_lock);
        if (const auto end = find(); end != channel.pulse_ends.end()) {
            close_pulse_end(channel, static_cast<size_t>(end - channel.pulse_ends.begin()));
        }
    }
    return false;
}

bool destroyed(const Channel &channel) {
    const MutexLock guard(server_lock);
    return channel.destroyed;
}

// The event that a wait takes from the thread's wait set. A thread can be cancelled after the
// kernel has returned an event and before the thread sees it: no other thread would then get that
// edge. The destructor passes the event on.
class TakenEvent {
  public:
    explicit TakenEvent(Channel &channel) : channel_(channel) { ++channel_.wait_sets.waiting(); }
    ~TakenEvent() {
        --channel_.wait_sets.waiting();
        if (kept_ || event.events == 0) {
            return;
        }
        const MutexLock guard(server_lock);
        if (channel_.wait_sets.hands_over()) {
            channel_.wait_sets.report_again(event.data.u64);
        } else {
            Server::instance().report_again(Source::unpack(event.data.u64));
        }
    }
    void keep() { kept_ = true; }

    struct epoll_event event = {};

  private:
    Channel &channel_;
    bool kept_ = false;
};

// Waits for one event, or checks for one. Like act_on_cancellation(), a cancellation point of a
// receive; there are no others.
// @return 1; 0 if there is none; -1 with errno.
int wait_for_event(Channel &channel, const CancelDisabled &cancel, bool only_look,
                   struct epoll_event &event) {
    const int set = my_wait_set(channel);
    TakenEvent taken(channel);
    pthread_setcancelstate(cancel.previous(), nullptr);
    const int ready = ::epoll_wait(set, &taken.event, 1, only_look ? 0 : -1);
    const KeepErrno keep;
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr);
    taken.keep();
    event = taken.event;
    return ready;
}

void act_on_cancellation(const CancelDisabled &cancel) {
    pthread_setcancelstate(cancel.previous(), nullptr);
    pthread_testcancel();
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr);
}

} // namespace

void forget_current(int receive_id) {
    if (current.receive_id == receive_id) {
        current.receive_id = 0;
    }
}

} // namespace vantro::platform

static int make_channel(unsigned flags) {
    Server &server = Server::instance();
    const auto channel = std::make_shared<Channel>();
    if (!channel->wait_sets.make()) {
        return -1;
    }
    channel->wake.reset(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK | EFD_SEMAPHORE));
    if (!channel->wake) {
        return -1;
    }
    const MutexLock guard(server_lock);
    if (!channel->wait_sets.watch(channel->wake.get(), wake_watched)) {
        return -1;
    }
    channel->flags = flags;
    channel->number = make_number(NumberKind::channel, ++server.last_channel);
    server.channels.emplace(channel->number, channel);
    return channel->number;
}

int channel_create(unsigned flags) {
    return or_no_memory([flags] { return make_channel(flags); });
}

int channel_destroy(int number) {
    Server &server = Server::instance();
    std::shared_ptr<Channel> channel;
    {
        const MutexLock guard(server_lock);
        const auto found = server.channels.find(number);
        if (found == server.channels.end()) {
            return fail(EBADF);
        }
        channel = std::move(found->second);
        server.channels.erase(found);
        channel->destroyed = true;
        for (size_t i = 1; channel->client_count > 0 && i < server.clients.size(); ++i) {
            if (Client *client = server.clients[i].get();
                client && client->channel == channel.get()) {
                server.disconnect(*client);
            }
        }
        if (channel->flags & CHANNEL_DISCONNECT) {
            for (auto &client : server.clients) { // gone, and waiting for their pulse
                if (client && client->channel == channel.get()) {
                    client->state = ClientState::detached;
                    server.erase_if_finished(*client);
                }
            }
        }
    }
    channel->withdraw_names();
    wake_lent_threads();
    // Semaphore counts are taken one at a time: enough for every thread that may wait here.
    const uint64_t all_threads = INT_MAX;
    [[maybe_unused]] const ssize_t written =
        ::write(channel->wake.get(), &all_threads, sizeof all_threads);
    if (channel->wait_sets.hands_over()) {
        channel->wait_sets.end();
    }
    return 0;
}

// Receives a message from a lane for the calling thread. @return its receive id, or 0 if there is
// none.
static int take_message(const Source &source, bool hung_up, PartList &parts,
                        struct ipc_info *info) {
    ReceivedMessage message;
    if (!receive_from_lane(source, hung_up, parts, message)) {
        return 0;
    }
    if (info) {
        *info = message.info;
    }
    current.receive_id = message.receive_id;
    current.incarnation = message.client_incarnation;
    lane_look.received(source, message);
    return message.receive_id;
}

// Handles an event of a channel. @return the result of the receive, or nothing if it must continue
// waiting.
static std::optional<int> take_event(Channel &channel, const struct epoll_event &event,
                                     PartList &parts, struct ipc_info *info) {
    const Source source = Source::unpack(event.data.u64);
    const bool hung_up = event.events & (EPOLLHUP | EPOLLRDHUP | EPOLLERR);
    struct ipc_pulse pulse = {};
    bool pulsed = false;
    switch (source.kind) {
    case Source::system_pulse:
        pulsed = take_system_pulse(channel, pulse);
        if (!pulsed && destroyed(channel)) {
            return fail(EBADF);
        }
        break;
    case Source::sent_pulse:
        pulsed = source.incarnation == 0 ? take_own_pulse(channel, pulse)
                                         : take_servers_pulse(channel, source.incarnation, pulse);
        break;
    case Source::new_client:
        accept_client(channel, source.serial);
        break;
    case Source::channel_end:
        return fail(EBADF);
    case Source::client_control:
        serve_control(source);
        break;
    case Source::client_outlet:
        serve_outlet(source, hung_up);
        break;
    case Source::client_lane:
        if (const int id = take_message(source, hung_up, parts, info); id != 0) {
            return id;
        }
        break;
    }
    if (!pulsed) {
        return std::nullopt;
    }
    scatter(parts.callers(), parts.count(), &pulse, sizeof pulse);
    if (info) {
        *info = {};
        info->channel = channel.number;
    }
    return 0;
}

int ipc_receive(int number, const struct iovec *parts, int count, struct ipc_info *info) {
    const bool has_answered = current.receive_id == 0;
    current.release();
    const CancelDisabled cancel;
    const std::shared_ptr<Channel> channel = Server::instance().find_channel(number);
    if (!channel) {
        return fail(EBADF);
    }
    PartList list;
    if (!list.assign(parts, count)) {
        return -1;
    }
    bool looks = lane_look.begin(number, has_answered);
    for (;;) {
        const bool only_look = looks && lane_look.must_check_wait_set(channel->wait_sets);
        if (looks && !only_look) {
            act_on_cancellation(cancel);
            const auto take = [&](const Source &lane) {
                return take_message(lane, false, list, info);
            };
            if (const int id = lane_look.look(take); id != 0) {
                return id;
            }
            looks = false;
        }
        struct epoll_event event;
        const int ready = wait_for_event(*channel, cancel, only_look, event);
        if (ready < 0) {
            return -1;
        }
        if (ready == 0) {
            continue;
        }
        if (const std::optional<int> result = take_event(*channel, event, list, info)) {
            return *result;
        }
    }
}

int ipc_receive_pulse(int number, void *pulse, size_t size, struct ipc_info *info) {
    if (!pulse || size < sizeof(struct ipc_pulse)) {
        return fail(EINVAL);
    }
    for (;;) {
        const struct iovec part = {pulse, sizeof(struct ipc_pulse)};
        const int receive_id = ipc_receive(number, &part, 1, info);
        if (receive_id <= 0) {
            return receive_id;
        }
        ipc_error(receive_id, ENOSYS);
    }
}

namespace vantro::platform {

int listen_on(int number, const std::string &place, int attachment) {
    Server &server = Server::instance();
    const std::shared_ptr<Channel> channel = server.find_channel(number);
    if (!channel) {
        return fail(EBADF);
    }
    auto listener = std::make_unique<Listener>();
    listener->attachment = attachment;
    listener->socket = listener->name.publish(place);
    if (!listener->socket) {
        return -1;
    }
    refuse_descriptors(listener->socket.get());
    const MutexLock guard(server_lock);
    const Source source = {Source::new_client, static_cast<uint16_t>(channel->listeners.size()), 0,
                           0};
    if (channel->destroyed) {
        return fail(EBADF);
    }
    if (attachment != 0) {
        // The resources of a path's opens are freed with their client.
        channel->flags |= CHANNEL_DISCONNECT;
    }
    const int socket = listener->socket.get();
    channel->listeners.push_back(std::move(listener));
    if (!channel->wait_sets.watch(socket, {EPOLLIN, source.pack()})) {
        const KeepErrno keep;
        channel->listeners.pop_back();
        return -1;
    }
    return 0;
}

} // namespace vantro::platform
