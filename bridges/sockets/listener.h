// Sockets on which clients connect.
#ifndef VANTRO_BRIDGES_SOCKETS_LISTENER_H
#define VANTRO_BRIDGES_SOCKETS_LISTENER_H

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include "bridges/sockets/descriptor.h"

namespace vantro::sockets {

// The pause after which a bridge that had no free descriptor for a new client tries again. Another
// process may release descriptors, which causes no event here.
inline constexpr std::chrono::milliseconds shortage_pause{500};

class Listener {
  public:
    // Listens on an address, or on each address of a host's name. @param port 0: any free port.
    // @throws std::runtime_error, like the next one.
    static std::vector<Listener> open(const std::string &where, uint16_t port);
    // Listens on a Unix socket with that absolute path.
    static Listener open_path(const std::string &path);

    Listener(Listener &&) noexcept = default;
    Listener &operator=(Listener &&) = delete;
    ~Listener(); // Removes the socket's path.

    int descriptor() const { return socket_.get(); }

    // "ADDRESS:PORT" or the path.
    const std::string &name() const { return name_; }

  private:
    Listener(Descriptor socket, std::string name)
        : socket_(std::move(socket)), name_(std::move(name)) {}

    Descriptor socket_;
    std::string name_;
};

} // namespace vantro::sockets

#endif
