// Raw packets, with descriptors of every kind, at a live server's sockets. An input is a list of
// steps: a byte for the socket (control or lane), a byte for the descriptor, two bytes of length,
// and that many bytes, sent as one packet. On a lane a correct frame may be put in front, and the
// step may wait for the answer, so that the next step is another message. After each input an
// honest client is still served, and no descriptor is left.
#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <thread>

#include <vantro/messaging.h>

#include "fuzz/support.h"
#include "platform/linux/base/unique_fd.h"
#include "platform/linux/messages/wire.h"

namespace {

using vantro::fuzz::require;
using vantro::platform::Frame;
using vantro::platform::UniqueFd;

constexpr size_t steps_max = 32;
constexpr long kept_descriptors = 8; // descriptors that the library may keep from its first use

long open_descriptors() {
    const std::filesystem::directory_iterator all("/proc/self/fd");
    return std::distance(begin(all), end(all));
}

int32_t answer(MsgOsb *open, MsgContext *context, MsgService *) {
    const TransportHeader header = *context->header;
    const int32_t receive_id = context->receive_id;
    // Reads exactly the bytes that the header announces.
    const std::string payload(static_cast<const char *>(context->payload), header.send_length);
    std::string reply = payload;
    if (header.code & 1) {
        reply.append(header.code, 'x');
    }
    if ((header.code & 2) && header.kind == MSG_KIND_PUT) {
        const iovec parts[] = {{reply.data(), reply.size()}, {reply.data(), 1}};
        return callout_reply2(open, receive_id, header.tag, 0, parts, reply.empty() ? 1 : 2);
    }
    if (header.code & 4) {
        msgserver_growmsg(open->server, static_cast<int32_t>(header.code));
    }
    const int32_t result =
        callout_reply(open, context, 0, reply.data(), static_cast<int32_t>(reply.size()));
    return result == ENOMEM ? ipc_error(receive_id, ENOMEM) : result;
}

int32_t accept(MsgOsb *, MsgContext *context, MsgService *) {
    return context->header->code & 0x8000 ? EDOM : 0;
}

int32_t closed(MsgOsb *, MsgContext *, MsgService *) {
    return 0;
}

// The server and the honest client, for the life of the program.
struct World {
    const vantro::fuzz::RuntimeDirectory runtime;
    MsgClient *bystander = nullptr;
    long descriptors = 0;

    World() {
        MsgServer *server = msgserver_create(32768, 4, MSGSERVER_FLAG_NOCHECK);
        require(server &&
                msgserver_add(server, "wire", nullptr, nullptr, 1024, answer, accept, closed) == 0);
        for (int i = 0; i < 2; i++) {
            std::thread(msgserver_thread_loop, server).detach();
        }
        bystander = msgclient_open("wire", nullptr, 0);
        expect_service();
        descriptors = open_descriptors();
    }

    void expect_service() const {
        char reply[4] = {};
        int result = -1;
        do { // the fuzzing engine's timer interrupts
            result = msgclient_putget(bystander, "good", 4, reply, 4, nullptr, 0);
        } while (result != 0 && errno == EINTR);
        require(result == 0);
        require(std::memcmp(reply, "good", 4) == 0);
    }
};

UniqueFd memory_file(size_t length, int seals) {
    UniqueFd file(memfd_create("fuzz", MFD_CLOEXEC | MFD_ALLOW_SEALING));
    require(ftruncate(file.get(), static_cast<off_t>(length)) == 0);
    fcntl(file.get(), F_ADD_SEALS, seals);
    return file;
}

UniqueFd socket_end(int type) {
    int ends[2];
    require(socketpair(AF_UNIX, type | SOCK_CLOEXEC, 0, ends) == 0);
    close(ends[1]);
    return UniqueFd(ends[0]);
}

// The descriptor that goes with a packet; for most kinds none.
UniqueFd companion(unsigned kind, size_t length) {
    constexpr int sealed = F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_WRITE;
    switch (kind % 16) {
    case 1:
        return memory_file(length, sealed);
    case 2:
        return memory_file(length, F_SEAL_SHRINK);
    case 3:
        return memory_file(0, sealed);
    case 4:
        return memory_file(size_t{1} << 20, sealed);
    case 5:
        return socket_end(SOCK_SEQPACKET);
    case 6:
        return socket_end(SOCK_STREAM);
    case 7:
        return UniqueFd(eventfd(0, EFD_CLOEXEC));
    case 8:
        return UniqueFd(open("/dev/zero", O_RDWR | O_CLOEXEC));
    case 9:
        return UniqueFd(open("/", O_PATH | O_CLOEXEC));
    default:
        return UniqueFd();
    }
}

void send_one(int socket, const void *bytes, size_t length, int descriptor) {
    const iovec part = {const_cast<void *>(bytes), length};
    vantro::platform::send_packet(socket, &part, 1, descriptor, MSG_DONTWAIT);
}

// A lane that the server granted, or none if it ended the connection.
UniqueFd granted_lane(int control) {
    pollfd readable = {control, POLLIN, 0};
    vantro::platform::ControlRecord record;
    vantro::platform::Arrival arrival;
    iovec part = {&record, sizeof record};
    int ready = 0;
    do { // the fuzzing engine's timer interrupts
        ready = poll(&readable, 1, 10'000);
    } while (ready < 0 && errno == EINTR);
    require(ready == 1);
    vantro::platform::receive_packet(control, &part, 1, MSG_DONTWAIT, arrival);
    return UniqueFd(arrival.descriptor.release());
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static World world;
    {
        sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        const std::string path = world.runtime.path + "/vantro/name/csm/wire/default";
        path.copy(address.sun_path, sizeof address.sun_path - 1);
        const UniqueFd control(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
        require(connect(control.get(), reinterpret_cast<sockaddr *>(&address), sizeof address) ==
                0);
        const UniqueFd lane = granted_lane(control.get());
        for (size_t step = 0; step < steps_max && size >= 4; step++) {
            const size_t length = std::min<size_t>(data[2] | data[3] << 8, size - 4);
            const UniqueFd along = companion(data[1], length);
            const bool framed = data[0] & 2;
            std::string packet(reinterpret_cast<const char *>(data + 4), length);
            if (framed) {
                const bool apart = along.get() >= 0;
                const Frame frame = {static_cast<uint32_t>(length), 0,
                                     apart ? vantro::platform::frame_memory_file : 0U, 0};
                if (apart) {
                    packet.clear();
                }
                packet.insert(0, reinterpret_cast<const char *>(&frame), sizeof frame);
            }
            const int to = data[0] & 1 ? control.get() : lane.get();
            send_one(to, packet.data(), packet.size(), along.get());
            if (data[0] & 4) {
                pollfd readable = {to, POLLIN, 0};
                poll(&readable, 1, 100);
                recv(to, packet.data(), packet.size(), MSG_DONTWAIT);
            }
            data += 4 + length;
            size -= 4 + length;
        }
    }
    world.expect_service();
    // Waits until the server has seen the end, and has no descriptor of that client any more.
    for (int tries = 0; open_descriptors() > world.descriptors + kept_descriptors; ++tries) {
        require(tries < 1000);
        world.expect_service();
    }
    return 0;
}
