#include "bridges/web/http_server.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <new>
#include <stdexcept>
#include <string_view>
#include <utility>

#include <fmt/format.h>
#include <netinet/in.h>
#include <sys/epoll.h>

#include "bridges/web/api_error.h"
#include "bridges/web/request_body.h"

namespace vantro::web {
namespace {

// Room for the first line and the fields of a request, and for pieces of a body.
constexpr size_t connection_bytes = 32768;
constexpr unsigned idle_seconds = 30;
// A request that comes byte by byte is never idle.
constexpr std::chrono::seconds request_time_max(60);
constexpr size_t stream_piece = 4096;

// The page loads only from here, and no other page may embed it.
constexpr std::array<std::pair<const char *, const char *>, 5> safety_headers = {{
    {"Content-Security-Policy",
     "default-src 'none'; script-src 'self'; style-src 'self'; img-src 'self'; connect-src 'self'; "
     "manifest-src 'self'; base-uri 'none'; form-action 'none'; frame-ancestors 'none'"},
    {"X-Content-Type-Options", "nosniff"},
    {"Referrer-Policy", "no-referrer"},
    {"Cross-Origin-Opener-Policy", "same-origin"},
    {"Cross-Origin-Resource-Policy", "same-origin"},
}};

std::string field(MHD_Connection *connection, MHD_ValueKind kind, const char *name) {
    const char *const value = MHD_lookup_connection_value(connection, kind, name);
    return value ? value : "";
}

bool is_from_loopback(MHD_Connection *connection) {
    const MHD_ConnectionInfo *const info =
        MHD_get_connection_info(connection, MHD_CONNECTION_INFO_CLIENT_ADDRESS);
    if (!info || !info->client_addr) {
        return false;
    }
    if (info->client_addr->sa_family == AF_INET) {
        const auto *const address = reinterpret_cast<const sockaddr_in *>(info->client_addr);
        return ntohl(address->sin_addr.s_addr) >> 24 == 127;
    }
    const auto *const address = reinterpret_cast<const sockaddr_in6 *>(info->client_addr);
    return IN6_IS_ADDR_LOOPBACK(&address->sin6_addr);
}

RequestHead head_of(MHD_Connection *connection, const char *method) {
    const auto header = [connection](const char *name) {
        return field(connection, MHD_HEADER_KIND, name);
    };
    RequestHead head;
    head.method = method;
    head.host = header("Host");
    head.origin = header("Origin");
    head.fetch_site = header("Sec-Fetch-Site");
    head.content_type = header("Content-Type");
    head.known_etag = header("If-None-Match");
    head.token = field(connection, MHD_COOKIE_KIND, "vantro-web");
    head.from_loopback = is_from_loopback(connection);
    for (const char *const name : {"Forwarded", "X-Forwarded-For", "X-Real-IP", "Via"}) {
        head.forwarded = head.forwarded || !header(name).empty();
    }
    head.secure = header("X-Forwarded-Proto") == "https";
    return head;
}

// A body is bounded before it is read.
void check_length(MHD_Connection *connection) {
    if (!field(connection, MHD_HEADER_KIND, "Transfer-Encoding").empty()) {
        throw ApiError(411, "length_required", "a body needs a Content-Length");
    }
    const std::string length = field(connection, MHD_HEADER_KIND, "Content-Length");
    if (std::strtoull(length.c_str(), nullptr, 10) > body_bytes_max) {
        throw ApiError(413, "body_too_long",
                       fmt::format("a body has at most {} bytes", body_bytes_max));
    }
}

} // namespace

struct HttpServer::Exchange {
    MHD_Connection *connection;
    std::string raw_target;
    Request request;
    bool begun = false;
};

// The functions that the HTTP library calls. No exception may reach it: a failure closes the
// connection.
struct HttpServer::Callbacks {
    static void *begin(void *, const char *uri, MHD_Connection *connection) {
        try {
            return new Exchange{connection, uri, {}};
        } catch (const std::bad_alloc &) {
            return nullptr;
        }
    }

    static MHD_Result receive(void *self, MHD_Connection *, const char *, const char *method,
                              const char *, const char *data, size_t *size, void **context) {
        auto *const exchange = static_cast<Exchange *>(*context);
        if (!exchange) {
            return MHD_NO;
        }
        try {
            if (!exchange->begun) {
                exchange->request.head = head_of(exchange->connection, method);
            }
            return static_cast<HttpServer *>(self)->receive(*exchange, data, size);
        } catch (const std::exception &) {
            return MHD_NO;
        }
    }

    static void complete(void *self, MHD_Connection *connection, void **context,
                         MHD_RequestTerminationCode) {
        delete static_cast<Exchange *>(std::exchange(*context, nullptr));
        expect(self, connection);
    }

    static void change(void *self, MHD_Connection *connection, void **,
                       MHD_ConnectionNotificationCode what) {
        if (what == MHD_CONNECTION_NOTIFY_STARTED) {
            expect(self, connection);
        } else {
            auto &server = *static_cast<HttpServer *>(self);
            server.deadlines_.erase(connection);
            ++server.closed_;
        }
    }

    static ssize_t read(void *context, uint64_t, char *buffer, size_t size) {
        try {
            return static_cast<EventStream *>(context)->read(buffer, size);
        } catch (const std::exception &) {
            return MHD_CONTENT_READER_END_WITH_ERROR;
        }
    }

  private:
    // If there is no memory for its deadline, the idle time still limits a connection.
    static void expect(void *self, MHD_Connection *connection) {
        try {
            static_cast<HttpServer *>(self)->deadlines_[connection] =
                Clock::now() + request_time_max;
        } catch (const std::bad_alloc &) {
        }
    }
};

HttpServer::HttpServer(Site &site, const Limits &limits) : site_(site) {
    daemon_ = MHD_start_daemon(
        MHD_USE_EPOLL | MHD_ALLOW_SUSPEND_RESUME | MHD_USE_NO_LISTEN_SOCKET, 0, nullptr, nullptr,
        &Callbacks::receive, this, MHD_OPTION_CONNECTION_LIMIT, limits.connections,
        MHD_OPTION_PER_IP_CONNECTION_LIMIT, limits.connections_of_address,
        MHD_OPTION_CONNECTION_MEMORY_LIMIT, connection_bytes, MHD_OPTION_CONNECTION_TIMEOUT,
        idle_seconds, MHD_OPTION_STRICT_FOR_CLIENT, 1, MHD_OPTION_URI_LOG_CALLBACK,
        &Callbacks::begin, this, MHD_OPTION_NOTIFY_COMPLETED, &Callbacks::complete, this,
        MHD_OPTION_NOTIFY_CONNECTION, &Callbacks::change, this, MHD_OPTION_END);
    if (!daemon_) {
        throw std::runtime_error("the HTTP server cannot be started");
    }
}

HttpServer::~HttpServer() {
    // The library does not allow suspended connections when it ends.
    for (const auto &[id, stream] : streams_) {
        stream->end();
    }
    MHD_run(daemon_);
    MHD_stop_daemon(daemon_);
}

void HttpServer::add(int descriptor, const sockaddr *address, socklen_t length) {
    MHD_add_connection(daemon_, descriptor, address, length);
}

int HttpServer::descriptor() const {
    return MHD_get_daemon_info(daemon_, MHD_DAEMON_INFO_EPOLL_FD)->epoll_fd;
}

int64_t HttpServer::timeout() const {
    MHD_UNSIGNED_LONG_LONG of_library = 0;
    int64_t least = MHD_get_timeout(daemon_, &of_library) == MHD_YES
                        ? static_cast<int64_t>(of_library)
                        : int64_t{-1};
    for (const auto &[connection, deadline] : deadlines_) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
        const int64_t ms = std::max<int64_t>(left.count(), 0);
        least = least < 0 ? ms : std::min(least, ms);
    }
    return least;
}

void HttpServer::run() {
    close_overdue();
    MHD_run(daemon_);
}

void HttpServer::close_overdue() {
    for (auto at = deadlines_.begin(); at != deadlines_.end();) {
        if (at->second > Clock::now()) {
            ++at;
            continue;
        }
        const MHD_ConnectionInfo *const info =
            MHD_get_connection_info(at->first, MHD_CONNECTION_INFO_CONNECTION_FD);
        ::shutdown(info->connect_fd, SHUT_RDWR); // the library then treats the client as gone
        at = deadlines_.erase(at);
    }
}

MHD_Result HttpServer::receive(Exchange &exchange, const char *data, size_t *size) {
    Request &request = exchange.request;
    try {
        if (!std::exchange(exchange.begun, true)) {
            request.target = Target::parse(exchange.raw_target);
            check_length(exchange.connection);
            site_.admit(request);
            return MHD_YES;
        }
        if (*size > 0) {
            if (request.body.size() + *size > body_bytes_max) {
                return MHD_NO; // more bytes than announced
            }
            request.body.append(data, std::exchange(*size, size_t{0}));
            return MHD_YES;
        }
    } catch (const ApiError &error) {
        return send(exchange, site_.refuse(error));
    }
    return send(exchange, site_.answer(request));
}

// What fails after the response was made destroys it, and with it the stream.
HttpServer::OwnedResponse HttpServer::make_stream(Exchange &exchange, const std::string &player) {
    auto stream =
        std::make_unique<EventStream>(site_.followed(player), exchange.connection, next_stream_++);
    struct Owned {
        std::unique_ptr<EventStream> stream;
        HttpServer *server;
    };
    EventStream &kept = *stream;
    auto owned = std::make_unique<Owned>(Owned{std::move(stream), this});
    OwnedResponse made(MHD_create_response_from_callback(
        MHD_SIZE_UNKNOWN, stream_piece,
        [](void *context, uint64_t at, char *buffer, size_t size) {
            return Callbacks::read(static_cast<Owned *>(context)->stream.get(), at, buffer, size);
        },
        owned.get(),
        [](void *context) {
            auto *const ended = static_cast<Owned *>(context);
            ended->server->streams_.erase(ended->stream->id());
            delete ended;
        }));
    if (made) {
        (void)owned.release();
        streams_[kept.id()] = &kept;
        on_stream(kept);
    }
    return made;
}

MHD_Result HttpServer::send(Exchange &exchange, Response response) {
    deadlines_.erase(exchange.connection);
    OwnedResponse made;
    if (!response.followed_player.empty() && exchange.request.head.method == "GET") {
        made = make_stream(exchange, response.followed_player);
    } else if (response.file) {
        const int descriptor = response.file.release();
        made.reset(MHD_create_response_from_fd64(response.file_size, descriptor));
        if (!made) {
            ::close(descriptor);
        }
    } else {
        static const std::string empty;
        const std::string &body = response.body ? *response.body : empty;
        made.reset(MHD_create_response_from_buffer(body.size(), const_cast<char *>(body.data()),
                                                   MHD_RESPMEM_MUST_COPY));
    }
    if (!made) {
        return MHD_NO;
    }
    if (response.status != 204 && response.status != 304) {
        MHD_add_response_header(made.get(), "Content-Type", response.type);
    }
    for (const auto &[name, value] : safety_headers) {
        MHD_add_response_header(made.get(), name, value);
    }
    for (const auto &[name, value] : response.headers) {
        MHD_add_response_header(made.get(), name, value.c_str());
    }
    return MHD_queue_response(exchange.connection, static_cast<unsigned>(response.status),
                              made.get());
}

} // namespace vantro::web
