#include "service/requests/command_table.h"

#include <algorithm>
#include <iterator>

#include <vantro/protocol.h>

namespace vantro::service::requests {

namespace {

using Own = playback::Player;
constexpr auto needed = Player::needed;
constexpr auto optional = Player::optional;
constexpr auto moments = Takes::moments;
constexpr auto long_time = Takes::long_time;

} // namespace

const Answers::Command Answers::Command::all[] =
    {
        {VANTRO_COMMAND_OPEN, forms::player_name, optional, moments, run<&Answers::open_player>},
        {VANTRO_COMMAND_CLOSE, forms::player_name, optional, moments, run<&Answers::close_player>},
        {VANTRO_COMMAND_GET_MEDIA_SOURCES, forms::nothing, needed, moments,
         [](Answers &self, const Call &call) {
             return append_sources(call.answer, self.catalogue_.sources());
         }},
        {VANTRO_COMMAND_GET_CURRENT_STATE, forms::nothing, needed, moments,
         run<&Answers::append_state>},
        {VANTRO_COMMAND_GET_CURRENT_TRKSESSION_INFO, forms::nothing, needed, moments,
         run<&Answers::append_session>},
        {VANTRO_COMMAND_GET_CURRENT_TRACK_INFO, forms::nothing, needed, moments,
         run<&Answers::append_track>},
        {VANTRO_COMMAND_GET_CURRENT_TRACK_POSITION, forms::nothing, needed, moments,
         run<&Answers::append_position>},
        {VANTRO_COMMAND_BROWSE, forms::browse, needed, long_time, run<&Answers::append_listing>},
        {VANTRO_COMMAND_SEARCH, forms::search, needed, long_time, run<&Answers::append_search>},
        {VANTRO_COMMAND_GET_TRKSESSION_TRACKS, forms::session_tracks, optional, long_time,
         run<&Answers::append_session_tracks>},
        {VANTRO_COMMAND_GET_METADATA, forms::node, needed, moments,
         run<&Answers::append_metadata_of>},
        {VANTRO_COMMAND_GET_EXTENDED_METADATA, forms::node_and_keys, optional, long_time,
         run<&Answers::append_extended_metadata>},
        {VANTRO_COMMAND_CREATE_TRKSESSION, forms::new_session, needed, long_time,
         run<&Answers::create_session>},
        {VANTRO_COMMAND_DESTROY_TRKSESSION, forms::session, needed, moments,
         [](Answers &, const Call &call) { return call.player->destroy(call.request.tsid); }},
        {VANTRO_COMMAND_PLAY, forms::nothing, needed, Takes::unless_session, control<&Own::play>},
        {VANTRO_COMMAND_STOP, forms::nothing, needed, moments, control<&Own::stop>},
        {VANTRO_COMMAND_PAUSE, forms::nothing, needed, moments, control<&Own::pause>},
        {VANTRO_COMMAND_NEXT, forms::nothing, needed, moments, control<&Own::next>},
        {VANTRO_COMMAND_PREVIOUS, forms::nothing, needed, moments, control<&Own::previous>},
        {VANTRO_COMMAND_JUMP, forms::value, needed, moments, control_to<&Own::jump>},
        {VANTRO_COMMAND_SEEK, forms::value, needed, moments, control_to<&Own::seek>},
        {VANTRO_COMMAND_SET_PLAYBACK_RATE, forms::rate, needed, moments,
         [](Answers &, const Call &call) { return call.player->set_rate(call.request.rate); }},
        {VANTRO_COMMAND_SHUFFLE, forms::value, needed, moments, control_to<&Own::set_shuffle>},
        {VANTRO_COMMAND_REPEAT, forms::value, needed, moments, control_to<&Own::set_repeat>},
        {VANTRO_COMMAND_GET_VOLUME, forms::nothing, needed, moments,
         [](Answers &, const Call &call) {
             append(call.answer, call.player->snapshot().volume);
             return 0;
         }},
        {VANTRO_COMMAND_SET_VOLUME, forms::value, needed, moments, control_to<&Own::set_volume>},
        {VANTRO_COMMAND_SET_MUTED, forms::value, needed, moments, control_to<&Own::set_muted>},
        {VANTRO_COMMAND_RESCAN, forms::nothing, needed, moments,
         [](Answers &answers, const Call &) {
             answers.catalogue_.rescan();
             return 0;
         }},
        {VANTRO_COMMAND_RESCAN_NODE, forms::node, needed, long_time,
         [](Answers &answers, const Call &call) {
             return answers.catalogue_.rescan_node(call.request.source, call.request.node);
         }},
        {VANTRO_COMMAND_LIST_PLAYERS, forms::nothing, optional, moments,
         run<&Answers::append_players>},
        {VANTRO_COMMAND_BROWSE_METADATA, forms::browse, needed, long_time,
         run<&Answers::append_described_listing>},
        {VANTRO_COMMAND_SEARCH_METADATA, forms::search, needed, long_time,
         run<&Answers::append_described_search>},
        {VANTRO_COMMAND_GET_TRKSESSION_TRACKS_METADATA, forms::session_tracks, optional, long_time,
         run<&Answers::append_described_tracks>},
        {VANTRO_COMMAND_SAVE_PLAYLIST, forms::flags_and_playlist, needed, long_time,
         run<&Answers::save_playlist>},
        {VANTRO_COMMAND_DELETE_PLAYLIST, forms::playlist, needed, long_time,
         [](Answers &answers, const Call &call) {
             return answers.catalogue_.delete_playlist(call.request.name);
         }},
        {VANTRO_COMMAND_GET_IDENTITY, forms::nothing, optional, moments,
         run<&Answers::append_identity>},
        {VANTRO_COMMAND_GET_STATUS, forms::nothing, needed, moments, run<&Answers::append_status>},
};

const Answers::Command *Answers::find_command(uint16_t number) {
    const auto found =
        std::find_if(std::begin(Command::all), std::end(Command::all),
                     [number](const Command &each) { return each.number == number; });
    return found == std::end(Command::all) ? nullptr : found;
}

} // namespace vantro::service::requests
