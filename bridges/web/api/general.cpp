// The service, pairing, the players, and following one.
#include <fmt/format.h>

#include <vantro/version.h>

#include "bridges/web/api/context.h"
#include "bridges/web/json_writer.h"
#include "bridges/web/request_body.h"

namespace vantro::web {

Response show_service(Context &) {
    JsonWriter json;
    json.begin_object();
    json.key("name").text("vantro-web");
    json.key("version").text(VANTRO_VERSION);
    return Response::json(json.end_object().take());
}

Response show_pairing(Context &context) {
    JsonWriter json;
    json.begin_object().key("paired").boolean(context.trusted);
    return Response::json(json.end_object().take());
}

Response pair(Context &context) {
    const RequestBody body(context.request.body, {"code"});
    constexpr int year_seconds = 365 * 24 * 3600;
    Response response = Response::nothing();
    // Scripts cannot read the cookie, and browsers do not send it for another page.
    response.headers.emplace_back(
        "Set-Cookie", fmt::format("vantro-web={}; Path=/; Max-Age={}; HttpOnly; SameSite=Strict{}",
                                  context.pairing.pair(body.text("code")), year_seconds,
                                  context.request.head.secure ? "; Secure" : ""));
    return response;
}

Response list_players(Context &context) {
    JsonWriter json;
    json.begin_object().key("players").begin_array();
    for (const std::string &name : context.players.names()) {
        json.text(name);
    }
    return Response::json(json.end_array().end_object().take());
}

Response show_player(Context &context) {
    context.player();
    context.link->forget_state();
    Response response;
    response.body = context.link->state_json();
    context.player(); // fails if the service does not run
    return response;
}

Response follow_player(Context &context) {
    context.link->forget_state();
    Response response;
    response.type = "text/event-stream";
    response.followed_player = context.link->name();
    return response;
}

} // namespace vantro::web
