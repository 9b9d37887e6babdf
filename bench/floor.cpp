#include "bench/floor.h"

#include <sys/socket.h>
#include <unistd.h>

#include <fmt/format.h>

namespace vantro::bench {

namespace {

// The sizes of a small request and its answer on the wire: 28 + 16 and 28 + 4 bytes.
constexpr size_t request_bytes = 44;
constexpr size_t answer_bytes = 32;

} // namespace

Floor::Floor() {
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) < 0) {
        fail_errno("socketpair");
    }
    socket_ = ends[0];
    peer_ = std::make_unique<Child>(
        std::vector<std::string>{program_beside(""), "--serve", fmt::format("floor:{}", ends[1])},
        ends[1]);
    close(ends[1]);
}

Floor::~Floor() {
    close(socket_);
}

Batch Floor::batch() {
    return each([this] { exchange(); });
}

void Floor::exchange() {
    char request[request_bytes] = {};
    char answer[answer_bytes];
    if (send(socket_, request, sizeof request, MSG_NOSIGNAL) !=
            static_cast<ssize_t>(sizeof request) ||
        recv(socket_, answer, sizeof answer, 0) != static_cast<ssize_t>(sizeof answer)) {
        fail("the floor's exchange failed");
    }
}

int serve_floor(int socket) {
    char request[request_bytes];
    const char answer[answer_bytes] = {};
    while (recv(socket, request, sizeof request, 0) > 0) {
        if (send(socket, answer, sizeof answer, MSG_NOSIGNAL) < 0) {
            return 1;
        }
    }
    return 0;
}

} // namespace vantro::bench
