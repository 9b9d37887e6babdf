// Reading the music again.
#include <string_view>

#include "bridges/mpd/catalogue.h"
#include "bridges/mpd/commands/handlers.h"
#include "bridges/mpd/partition.h"
#include "bridges/mpd/service_call.h"

namespace vantro::mpd {

namespace {

// What a path names, or else the directory above it: a new file or directory is not known yet.
Catalogue::Place closest(Context &context, std::string_view path) {
    while (path.ends_with('/')) {
        path.remove_suffix(1);
    }
    try {
        return context.catalogue.find(context.partition.player(), path);
    } catch (const Ack &ack) {
        const size_t slash = path.rfind('/');
        if (ack.code() != AckCode::no_exist || slash == std::string_view::npos || slash == 0) {
            throw;
        }
        return closest(context, path.substr(0, slash));
    }
}

} // namespace

TaskPtr run_update(Context &context, Arguments arguments) {
    Catalogue::Place place;
    if (!arguments.empty()) {
        place = closest(context, arguments[0]);
    }
    Player &player = context.partition.player();
    checked(place.kind == Catalogue::Place::Kind::root
                ? player.rescan()
                : player.rescan(place.key.source, place.key.id));
    context.reply.number("updating_db", 1);
    return nullptr;
}

} // namespace vantro::mpd
