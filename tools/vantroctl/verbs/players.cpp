#include "tools/vantroctl/verbs/players.h"

#include <string>
#include <vector>

#include "tools/vantroctl/failure.h"
#include "tools/vantroctl/output/fields.h"
#include "tools/vantroctl/output/json_output.h"
#include "tools/vantroctl/output/standard_output.h"
#include "tools/vantroctl/output/status_view.h"
#include "tools/vantroctl/output/table.h"
#include "tools/vantroctl/text/display_text.h"

namespace vantro::ctl {

void run_players(const ClientOptions &options, const ListOptions &list) {
    ClientOptions one = options;
    one.player.clear();
    Client all(one);
    std::vector<PlayerStatus> players;
    for (const std::string &name : all.player_names()) {
        one.player = name;
        players.push_back(Client(one).status());
    }
    if (list.json) {
        print(json_players(players));
        return;
    }
    if (list.format) {
        for (const PlayerStatus &player : players) {
            print(list.format->line(
                [&](std::string_view name) { return status_field(player, name); }));
        }
        return;
    }
    const std::optional<int> width = terminal_columns();
    Table table({{.head = "PLAYER", .pasted = true}, {.head = "STATE"}, {.head = "TRACK"}}, width);
    std::vector<Table::Row> rows;
    std::vector<size_t> playing;
    for (const PlayerStatus &player : players) {
        const std::string track = player.track ? track_words(*player.track, player.session) : "";
        if (ink_of(player) == Ink::playing) {
            playing.push_back(rows.size());
        }
        rows.push_back({clean_text(player.player), state_name(player.state), clean_text(track)});
    }
    print(table.lines(rows, playing));
}

} // namespace vantro::ctl
