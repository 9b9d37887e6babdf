// One page that follows a player by server-sent events.
#ifndef VANTRO_BRIDGES_WEB_EVENT_STREAM_H
#define VANTRO_BRIDGES_WEB_EVENT_STREAM_H

#include <cstddef>
#include <cstdint>
#include <string>

#include <microhttpd.h>
#include <sys/types.h>

#include "bridges/web/player_link.h"

namespace vantro::web {

// It buffers at most one event: a client that reads slowly gets the latest state. While there is
// nothing to send, the connection is suspended, and costs nothing.
class EventStream {
  public:
    // @param connection of the request; it outlives this.
    EventStream(PlayerLink &link, MHD_Connection *connection, uint64_t id)
        : link_(link), connection_(connection), id_(id) {}

    PlayerLink &link() const { return link_; }
    uint64_t id() const { return id_; }
    int descriptor() const;

    void notify(const Changes &changes);
    // Ends the stream: the client has gone, or must be disconnected.
    void end();

    // Fills the buffer for the HTTP library. @return bytes, or the library's value for the end.
    ssize_t read(char *buffer, size_t size);

  private:
    void resume();
    void take_next();

    PlayerLink &link_;
    MHD_Connection *const connection_;
    const uint64_t id_;
    Changes pending_{true, false};
    bool begun_ = false;
    bool ended_ = false;
    bool suspended_ = false;
    std::string text_;
    size_t sent_ = 0; // The number of sent bytes.
};

} // namespace vantro::web

#endif
