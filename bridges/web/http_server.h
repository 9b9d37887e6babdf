// HTTP: takes connections, reads requests, and sends answers and event streams.
#ifndef VANTRO_BRIDGES_WEB_HTTP_SERVER_H
#define VANTRO_BRIDGES_WEB_HTTP_SERVER_H

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>

#include <microhttpd.h>
#include <sys/socket.h>

#include "bridges/web/api_error.h"
#include "bridges/web/event_stream.h"
#include "bridges/web/http.h"

namespace vantro::web {

// The handler of requests.
class Site {
  public:
    virtual ~Site() = default;
    // Checks a request before its body is read. @throws ApiError.
    virtual void admit(const Request &request) = 0;
    // Carries out a request. Never fails: an error is in the answer.
    virtual Response answer(const Request &request) = 0;
    virtual Response refuse(const ApiError &error) = 0;
    virtual PlayerLink &followed(const std::string &player) = 0;
};

// The server starts no thread: call run() when descriptor() is readable, and after timeout().
class HttpServer {
  public:
    using Clock = std::chrono::steady_clock;

    struct Limits {
        unsigned connections;
        unsigned connections_of_address;
    };

    // @throws std::runtime_error if the system lacks resources.
    HttpServer(Site &site, const Limits &limits);
    ~HttpServer();
    HttpServer(const HttpServer &) = delete;
    HttpServer &operator=(const HttpServer &) = delete;

    // Takes a connection over, or closes it if there are too many.
    void add(int descriptor, const sockaddr *address, socklen_t length);

    int descriptor() const;
    void run();
    // Milliseconds; -1: no limit.
    int64_t timeout() const;

    std::map<uint64_t, EventStream *> &streams() { return streams_; }
    // Grows with each connection that has ended.
    uint64_t closed() const { return closed_; }

    // Called with each new stream, so that its owner can watch for the client's end.
    std::function<void(EventStream &)> on_stream;

  private:
    struct Exchange; // A request that is being read, with its connection.
    struct Callbacks;

    MHD_Result receive(Exchange &exchange, const char *data, size_t *size);
    MHD_Result send(Exchange &exchange, Response response);
    struct DestroyResponse {
        void operator()(MHD_Response *response) const { MHD_destroy_response(response); }
    };
    using OwnedResponse = std::unique_ptr<MHD_Response, DestroyResponse>;
    OwnedResponse make_stream(Exchange &exchange, const std::string &player);
    void close_overdue();

    Site &site_;
    MHD_Daemon *daemon_ = nullptr;
    std::map<uint64_t, EventStream *> streams_;
    uint64_t next_stream_ = 1;
    uint64_t closed_ = 0;
    // The time by which a connection's next request must be complete.
    std::map<MHD_Connection *, Clock::time_point> deadlines_;
};

} // namespace vantro::web

#endif
