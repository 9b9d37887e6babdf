#include "bench/plain_copy.h"

#include <cerrno>

#include <sys/socket.h>
#include <unistd.h>

#include <fmt/format.h>

namespace vantro::bench {

namespace {

constexpr size_t request_bytes = 44;

} // namespace

bool send_all(int socket, const void *from, size_t count) {
    const char *bytes = static_cast<const char *>(from);
    while (count > 0) {
        const ssize_t sent = send(socket, bytes, count, MSG_NOSIGNAL);
        if (sent < 0 && errno == EINTR) {
            continue;
        }
        if (sent <= 0) {
            return false;
        }
        bytes += sent;
        count -= static_cast<size_t>(sent);
    }
    return true;
}

bool receive_all(int socket, void *to, size_t count) {
    char *bytes = static_cast<char *>(to);
    while (count > 0) {
        const ssize_t received = recv(socket, bytes, count, 0);
        if (received < 0 && errno == EINTR) {
            continue;
        }
        if (received <= 0) {
            return false;
        }
        bytes += received;
        count -= static_cast<size_t>(received);
    }
    return true;
}

PlainCopy::PlainCopy(size_t bytes) : bytes_(bytes) {
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) < 0) {
        fail_errno("socketpair");
    }
    socket_ = ends[0];
    peer_ =
        std::make_unique<Child>(std::vector<std::string>{program_beside(""), "--serve",
                                                         fmt::format("copy:{}:{}", ends[1], bytes)},
                                ends[1]);
    close(ends[1]);
}

PlainCopy::~PlainCopy() {
    close(socket_);
}

Batch PlainCopy::batch() {
    return each([this] { exchange(); });
}

void PlainCopy::exchange() {
    const char request[request_bytes] = {};
    if (!send_all(socket_, request, sizeof request) ||
        !receive_all(socket_, bytes_.data(), bytes_.size())) {
        fail("the bare copy failed");
    }
}

int serve_copy(int socket, size_t bytes) {
    const std::vector<char> answer(bytes, 'x');
    char request[request_bytes];
    while (receive_all(socket, request, sizeof request)) {
        if (!send_all(socket, answer.data(), answer.size())) {
            return 1;
        }
    }
    return 0;
}

} // namespace vantro::bench
