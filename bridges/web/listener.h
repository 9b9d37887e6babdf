// Where clients connect.
#ifndef VANTRO_BRIDGES_WEB_LISTENER_H
#define VANTRO_BRIDGES_WEB_LISTENER_H

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "bridges/web/descriptor.h"

namespace vantro::web {

class Listener {
  public:
    // An address, or a host's name, of which each address is taken. @param port 0: one that is
    // free. @throws std::runtime_error.
    static std::vector<Listener> open(const std::string &where, uint16_t port);

    int descriptor() const { return socket_.get(); }

    // "ADDRESS:PORT".
    const std::string &name() const { return name_; }

  private:
    Listener(Descriptor socket, std::string name)
        : socket_(std::move(socket)), name_(std::move(name)) {}

    Descriptor socket_;
    std::string name_;
};

} // namespace vantro::web

#endif
