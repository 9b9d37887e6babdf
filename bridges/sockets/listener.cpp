#include "bridges/sockets/listener.h"

#include <cerrno>
#include <cstring>
#include <memory>
#include <stdexcept>

#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <fmt/format.h>

namespace vantro::sockets {
namespace {

// Clients that may wait while the loop serves another one.
constexpr int backlog = 256;

[[noreturn]] void fail(const std::string &where, int error) {
    throw std::runtime_error(fmt::format("cannot listen on {}: {}", where, std::strerror(error)));
}

std::string name_of(int socket) {
    sockaddr_storage address{};
    socklen_t length = sizeof address;
    char host[NI_MAXHOST];
    char port[NI_MAXSERV];
    auto *const plain = reinterpret_cast<sockaddr *>(&address);
    if (getsockname(socket, plain, &length) != 0 ||
        getnameinfo(plain, length, host, sizeof host, port, sizeof port,
                    NI_NUMERICHOST | NI_NUMERICSERV) != 0) {
        return "?";
    }
    return address.ss_family == AF_INET6 ? fmt::format("[{}]:{}", host, port)
                                         : fmt::format("{}:{}", host, port);
}

Descriptor listen_on(const addrinfo &address) {
    Descriptor made(
        ::socket(address.ai_family, address.ai_socktype | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    const int on = 1;
    if (!made) {
        return made;
    }
    setsockopt(made.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    if (address.ai_family == AF_INET6) {
        setsockopt(made.get(), IPPROTO_IPV6, IPV6_V6ONLY, &on, sizeof on);
    }
    if (::bind(made.get(), address.ai_addr, address.ai_addrlen) != 0 ||
        ::listen(made.get(), backlog) != 0) {
        const int error = errno;
        made.reset();
        errno = error;
    }
    return made;
}

} // namespace

Listener Listener::open_path(const std::string &path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path) {
        fail(path, ENAMETOOLONG);
    }
    path.copy(address.sun_path, path.size());
    const auto *const plain = reinterpret_cast<const sockaddr *>(&address);
    Descriptor made(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!made) {
        fail(path, errno);
    }
    // If no process listens on the socket, a killed run has left it. Connecting to a file of
    // another kind fails in the same way.
    struct stat there {};
    const bool taken = ::lstat(path.c_str(), &there) == 0;
    if (taken && !S_ISSOCK(there.st_mode)) {
        fail(path, EEXIST);
    }
    const Descriptor probe(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (taken && ::connect(probe.get(), plain, sizeof address) != 0 && errno == ECONNREFUSED) {
        ::unlink(path.c_str());
    }
    if (::bind(made.get(), plain, sizeof address) != 0 || ::listen(made.get(), backlog) != 0) {
        fail(path, errno);
    }
    return {std::move(made), path};
}

std::vector<Listener> Listener::open(const std::string &where, uint16_t port) {
    std::vector<Listener> all;
    addrinfo hints{};
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_flags = AI_PASSIVE | AI_NUMERICSERV;
    addrinfo *found = nullptr;
    const int error = getaddrinfo(where.c_str(), std::to_string(port).c_str(), &hints, &found);
    if (error != 0) {
        throw std::runtime_error(
            fmt::format("cannot listen on {}: {}", where, gai_strerror(error)));
    }
    const std::unique_ptr<addrinfo, decltype(&freeaddrinfo)> owned(found, freeaddrinfo);
    for (const addrinfo *each = found; each; each = each->ai_next) {
        Descriptor made = listen_on(*each);
        if (!made) {
            fail(where, errno);
        }
        std::string name = name_of(made.get());
        all.push_back(Listener(std::move(made), std::move(name)));
    }
    return all;
}

Listener::~Listener() {
    if (socket_ && name_.starts_with('/')) {
        ::unlink(name_.c_str());
    }
}

} // namespace vantro::sockets
