#include "tools/vantroctl/verbs/players.h"

#include <cerrno>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include <vantro/extras.h>

#include "tools/vantroctl/failure.h"
#include "tools/vantroctl/output/fields.h"
#include "tools/vantroctl/output/json_output.h"
#include "tools/vantroctl/output/standard_output.h"
#include "tools/vantroctl/output/status_view.h"
#include "tools/vantroctl/output/table.h"
#include "tools/vantroctl/service/refusal.h"
#include "tools/vantroctl/text/display_text.h"

namespace vantro::ctl {
std::vector<std::string> player_names(Client &client) {
    char **names = nullptr;
    int count = 0;
    const int32_t reason = client.ask("players", [&](VantroHandle *handle) {
        count = vantro_list_players(handle, &names);
        return count < 0 ? -1 : 0;
    });
    const std::unique_ptr<char *, decltype(&std::free)> owned(names, std::free);
    if (reason != 0) {
        throw refusal("players", reason);
    }
    return {names, names + count};
}

void run_players(const ClientOptions &options, const ListOptions &list) {
    ClientOptions one = options;
    one.player.clear();
    Client all(one);
    std::vector<PlayerStatus> players;
    for (const std::string &name : player_names(all)) {
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
