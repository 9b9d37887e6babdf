#include "bridges/web/web_site.h"

#include <array>
#include <exception>
#include <new>
#include <utility>

#include "bridges/web/api/context.h"
#include "bridges/web/api_error.h"
#include "bridges/web/json_writer.h"
#include "bridges/web/records_json.h"
#include "bridges/web/service_call.h"

namespace vantro::web {
namespace {

// The address exists, for other methods.
class WrongMethod : public ApiError {
  public:
    explicit WrongMethod(std::string allowed)
        : ApiError(405, "wrong_method", "this address does not support that method"),
          allowed_(std::move(allowed)) {}

    const std::string &allowed() const { return allowed_; }

  private:
    std::string allowed_;
};

enum class Access {
    anyone, // Needed before pairing.
    paired
};

// The player that a handler is given.
enum class Which {
    none,
    named, // The one in the path.
    any    // The catalogue is the same for all.
};

struct Route {
    std::string_view method;
    std::string_view path; // Below /api/v1; "*" stands for a player's name.
    Handler run;
    Access access = Access::paired;
    Which player = Which::named;
};

constexpr std::array routes = {
    Route{"GET", "", show_service, Access::anyone, Which::none},
    Route{"GET", "pair", show_pairing, Access::anyone, Which::none},
    Route{"POST", "pair", pair, Access::anyone, Which::none},
    Route{"GET", "players", list_players, Access::paired, Which::none},
    Route{"GET", "sources", list_sources, Access::paired, Which::any},
    Route{"GET", "browse", browse, Access::paired, Which::any},
    Route{"GET", "search", search, Access::paired, Which::any},
    Route{"GET", "cover", show_cover, Access::paired, Which::any},
    Route{"POST", "rescan", rescan, Access::paired, Which::any},
    Route{"GET", "playlists", list_playlists, Access::paired, Which::any},
    Route{"POST", "playlists/delete", delete_playlist, Access::paired, Which::any},
    Route{"GET", "players/*", show_player},
    Route{"GET", "players/*/events", follow_player},
    Route{"POST", "players/*/play", play},
    Route{"POST", "players/*/pause", pause},
    Route{"POST", "players/*/toggle", toggle},
    Route{"POST", "players/*/stop", stop},
    Route{"POST", "players/*/next", next},
    Route{"POST", "players/*/previous", previous},
    Route{"POST", "players/*/jump", jump},
    Route{"POST", "players/*/seek", seek},
    Route{"POST", "players/*/volume", set_volume},
    Route{"POST", "players/*/modes", set_modes},
    Route{"GET", "players/*/queue", list_queue},
    Route{"POST", "players/*/queue/load", load_queue},
    Route{"POST", "players/*/queue/add", add_to_queue},
    Route{"POST", "players/*/queue/insert", insert_into_queue},
    Route{"POST", "players/*/queue/move", move_in_queue},
    Route{"POST", "players/*/queue/remove", remove_from_queue},
    Route{"POST", "players/*/queue/clear", clear_queue},
    Route{"POST", "players/*/queue/save", save_playlist},
};

constexpr size_t prefix_segments = 2; // "api", "v1"

bool matches(const Route &route, const std::vector<std::string> &segments) {
    std::string_view rest = route.path;
    for (size_t at = prefix_segments; at < segments.size(); ++at) {
        const std::string_view part = rest.substr(0, rest.find('/'));
        if (part.empty() || (part != "*" && part != segments[at])) {
            return false;
        }
        rest.remove_prefix(std::min(rest.size(), part.size() + 1));
    }
    return rest.empty();
}

// @throws ApiError if there is none.
const Route &route_of(const Request &request) {
    const bool head = request.head.method == "HEAD";
    const std::string_view method = head ? std::string_view("GET") : request.head.method;
    std::string allowed;
    for (const Route &route : routes) {
        if (matches(route, request.target.segments)) {
            if (route.method == method) {
                return route;
            }
            allowed += (allowed.empty() ? "" : ", ") + std::string(route.method);
        }
    }
    if (!allowed.empty()) {
        throw WrongMethod(std::move(allowed));
    }
    throw ApiError(404, "not_found", "there is no such address");
}

bool is_api(const Target &target) {
    return !target.segments.empty() && target.segments.front() == "api";
}

} // namespace

WebSite::WebSite(Players &players, Pairing &pairing, PageFiles page, Guard guard)
    : players_(players), pairing_(pairing), page_(std::move(page)), guard_(std::move(guard)) {}

void WebSite::admit(const Request &request) {
    guard_.check(request.head, request.target);
}

bool WebSite::is_trusted(const RequestHead &head) const {
    return Guard::is_local(head) || pairing_.knows(head.token);
}

PlayerLink &WebSite::any_player() {
    for (auto &[name, link] : players_.all()) {
        if (link.is_connected()) {
            return link;
        }
    }
    const std::vector<std::string> names = players_.names();
    if (names.empty()) {
        throw ApiError(503, "no_player", "the player service has no player");
    }
    return players_.find(names.front());
}

Response WebSite::answer_page(const Request &request) const {
    const std::vector<std::string> &segments = request.target.segments;
    if (request.head.method != "GET" && request.head.method != "HEAD") {
        throw WrongMethod("GET");
    }
    if (segments.size() > 1) {
        throw ApiError(404, "not_found", "there is no such page");
    }
    return page_.get(segments.empty() ? "index.html" : segments.front(), request.head.known_etag);
}

Response WebSite::answer_api(const Request &request) {
    const std::vector<std::string> &segments = request.target.segments;
    if (segments.size() < prefix_segments || segments[1] != "v1") {
        throw ApiError(404, "not_found", "there is no such address");
    }
    Context context{request, players_, pairing_, nullptr, is_trusted(request.head)};
    const Route &route = route_of(request);
    if (route.access == Access::paired && !context.trusted) {
        throw ApiError(401, "pairing_required",
                       "enter the code that vantro-web printed when it started");
    }
    if (route.player == Which::named) {
        context.link = &players_.find(segments[prefix_segments + 1]);
    } else if (route.player == Which::any) {
        context.link = &any_player();
    }
    try {
        Response response = route.run(context);
        if (route.method == "POST" && context.link) {
            context.link->forget_state();
        }
        return response;
    } catch (const ApiError &error) {
        if (error.status() == 503 && context.link) {
            context.link->leave(is_silence(error));
        }
        throw;
    }
}

Response WebSite::answer(const Request &request) {
    try {
        Response response = is_api(request.target) ? answer_api(request) : answer_page(request);
        if (is_api(request.target) && response.headers.empty()) {
            response.headers.emplace_back("Cache-Control", "no-store");
        }
        return response;
    } catch (const ApiError &error) {
        return refuse(error);
    } catch (const std::bad_alloc &) {
        return refuse({503, "no_memory", "there is no memory left"});
    } catch (const std::exception &error) {
        return refuse({500, "failed", error.what()});
    }
}

Response WebSite::refuse(const ApiError &error) {
    JsonWriter json;
    json.begin_object().key("error");
    write_error(json, error.code(), error.what());
    Response response = Response::json(json.end_object().take());
    response.status = error.status();
    response.headers.emplace_back("Cache-Control", "no-store");
    if (const auto *method = dynamic_cast<const WrongMethod *>(&error)) {
        response.headers.emplace_back("Allow", method->allowed());
    }
    return response;
}

} // namespace vantro::web
