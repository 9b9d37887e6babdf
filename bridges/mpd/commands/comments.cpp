// The catalogue's metadata of a song, under the names of Vorbis comments.
#include <array>
#include <string>
#include <utility>

#include <vantro/catalogue.h>

#include "bridges/mpd/ack.h"
#include "bridges/mpd/catalogue.h"
#include "bridges/mpd/commands/handlers.h"
#include "bridges/mpd/partition.h"
#include "bridges/mpd/service_call.h"

namespace vantro::mpd {
namespace {

struct Comment {
    std::string_view name;
    const char *key;
};

constexpr std::array comments = {
    Comment{"TITLE", VANTRO_KEY_TITLE},
    Comment{"ARTIST", VANTRO_KEY_ARTIST},
    Comment{"ALBUM", VANTRO_KEY_ALBUM},
    Comment{"ALBUMARTIST", VANTRO_KEY_ALBUM_ARTIST},
    Comment{"COMPOSER", VANTRO_KEY_COMPOSER},
    Comment{"CONDUCTOR", VANTRO_KEY_CONDUCTOR},
    Comment{"GENRE", VANTRO_KEY_GENRE},
    Comment{"DATE", VANTRO_KEY_YEAR},
    Comment{"DISCNUMBER", VANTRO_KEY_DISC},
    Comment{"DISCTOTAL", VANTRO_KEY_DISC_TOTAL},
    Comment{"TRACKNUMBER", VANTRO_KEY_TRACK},
    Comment{"TRACKTOTAL", VANTRO_KEY_TRACK_TOTAL},
    Comment{"COMMENT", VANTRO_KEY_COMMENT},
    Comment{"LYRICS", VANTRO_KEY_LYRICS},
    Comment{"COPYRIGHT", VANTRO_KEY_COPYRIGHT},
    Comment{"BPM", VANTRO_KEY_BPM},
    Comment{"COMPILATION", VANTRO_KEY_COMPILATION},
    Comment{"REPLAYGAIN_TRACK_GAIN", VANTRO_KEY_REPLAYGAIN_TRACK_GAIN},
    Comment{"REPLAYGAIN_TRACK_PEAK", VANTRO_KEY_REPLAYGAIN_TRACK_PEAK},
    Comment{"REPLAYGAIN_ALBUM_GAIN", VANTRO_KEY_REPLAYGAIN_ALBUM_GAIN},
    Comment{"REPLAYGAIN_ALBUM_PEAK", VANTRO_KEY_REPLAYGAIN_ALBUM_PEAK},
};

} // namespace

TaskPtr run_readcomments(Context &context, Arguments arguments) {
    Player &player = context.partition.player();
    const Catalogue::Place place = context.catalogue.find(player, arguments[0]);
    if (place.kind != Catalogue::Place::Kind::song) {
        throw Ack(AckCode::no_exist, "no such song");
    }
    const char *keys[comments.size()] = {};
    for (size_t i = 0; i < comments.size(); ++i) {
        keys[i] = comments[i].key;
    }
    const auto values = checked(player.values(place.key.source, place.key.id.c_str(), keys));
    for (size_t i = 0; i < comments.size(); ++i) {
        if (const std::string_view value = text(values[i].get()); !value.empty()) {
            context.reply.pair(comments[i].name, value);
        }
    }
    return nullptr;
}

} // namespace vantro::mpd
