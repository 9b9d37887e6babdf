// Where clients connect.
#ifndef VANTRO_BRIDGES_SOCKETS_LISTENER_H
#define VANTRO_BRIDGES_SOCKETS_LISTENER_H

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include "bridges/sockets/descriptor.h"

namespace vantro::sockets {

// Who had no descriptor for a client that came looks again after so long. It may be others in the
// system who give one back, so that nothing here tells of it.
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
