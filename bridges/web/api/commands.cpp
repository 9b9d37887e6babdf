// Playing.
#include <chrono>
#include <climits>
#include <cstdint>
#include <string>

#include "bridges/web/api/context.h"
#include "bridges/web/request_body.h"
#include "bridges/web/service_call.h"

namespace vantro::web {
namespace {

Response run(Context &context, Result<void> (Player::*command)()) {
    const RequestBody nothing_wanted(context.request.body, {});
    checked((context.player().*command)());
    return Response::nothing();
}

Repeat repeat_of(const std::string &name) {
    if (name == "off") {
        return Repeat::off;
    }
    if (name == "all") {
        return Repeat::all;
    }
    if (name == "one") {
        return Repeat::one;
    }
    throw bad_request("\"repeat\" is not off, all or one");
}

} // namespace

Response play(Context &context) {
    return run(context, &Player::play);
}

Response pause(Context &context) {
    return run(context, &Player::pause);
}

Response stop(Context &context) {
    return run(context, &Player::stop);
}

Response next(Context &context) {
    return run(context, &Player::next);
}

Response previous(Context &context) {
    return run(context, &Player::previous);
}

Response rescan(Context &context) {
    return run(context, &Player::rescan);
}

Response toggle(Context &context) {
    const bool playing = checked(context.player().status())->state.state == VANTRO_STATE_PLAYING;
    return run(context, playing ? &Player::pause : &Player::play);
}

Response jump(Context &context) {
    const RequestBody body(context.request.body, {"index"});
    checked(context.player().jump(body.number("index", 0, INT32_MAX)));
    return Response::nothing();
}

Response seek(Context &context) {
    const RequestBody body(context.request.body, {"position_ms"});
    checked(
        context.player().seek(std::chrono::milliseconds(body.number("position_ms", 0, INT32_MAX))));
    return Response::nothing();
}

Response set_volume(Context &context) {
    const RequestBody body(context.request.body, {"level", "muted"});
    if (!body.has("level") && !body.has("muted")) {
        throw bad_request("neither \"level\" nor \"muted\" is there");
    }
    // Both values are checked before one is set.
    const int32_t level = body.number_or("level", 0, 100, 0);
    const bool muted = body.boolean_or("muted", false);
    if (body.has("level")) {
        checked(context.player().set_volume(level));
    }
    if (body.has("muted")) {
        checked(context.player().set_muted(muted));
    }
    return Response::nothing();
}

Response set_modes(Context &context) {
    const RequestBody body(context.request.body, {"repeat", "shuffle", "rate"});
    const Repeat repeat = body.has("repeat") ? repeat_of(body.text("repeat")) : Repeat::off;
    const bool shuffle = body.boolean_or("shuffle", false);
    const double rate = body.has("rate") ? body.real("rate") : 1;
    constexpr double rate_max = 16;
    if (!(rate > 0 && rate <= rate_max)) {
        throw bad_request("\"rate\" is not above 0 and up to 16");
    }
    if (body.has("repeat")) {
        checked(context.player().set_repeat(repeat));
    }
    if (body.has("shuffle")) {
        checked(context.player().set_shuffle(shuffle));
    }
    if (body.has("rate")) {
        checked(context.player().set_rate(static_cast<float>(rate)));
    }
    return Response::nothing();
}

} // namespace vantro::web
