// Searches every media source, plays the first song that is found, and prints where it is:
//   search_and_play WORD...
#include <cstdio>
#include <optional>
#include <string>

#include <vantro/vantro.hpp>

namespace {

struct Found {
    int32_t ms_id;
    std::string id;
};

std::optional<Found> find_song(vantro::Player &player, const std::string &words) {
    const auto sources = player.sources();
    for (const MediaSource &source : sources.or_throw()) {
        auto nodes = player.search(source.id, words);
        for (const MediaNode &node : nodes) {
            if (node.type == VANTRO_NODE_SONG && node.id) {
                std::printf("%s, from %s\n", node.name ? node.name : node.id,
                            source.view_name ? source.view_name : "a source");
                return Found{source.id, node.id};
            }
        }
        nodes.done().or_throw();
    }
    return std::nullopt;
}

void play(const std::string &words) {
    vantro::Player player = vantro::Player::connect("main").or_throw();
    const std::optional<Found> song = find_song(player, words);
    if (!song) {
        std::printf("nothing is called \"%s\"\n", words.c_str());
        return;
    }
    player.create_session(song->ms_id, song->id, 0, vantro::Start::playing).or_throw();
    auto events = player.follow();
    for (const vantro::Event &event : events) {
        if (const auto *status = event.as<vantro::PositionEvent>()) {
            std::printf("%lld s\n", static_cast<long long>(status->position.count() / 1000));
        }
        if (event.as<vantro::StateEvent>() && event.now().state == VANTRO_STATE_STOPPED) {
            return;
        }
    }
    events.done().or_throw();
}

} // namespace

int main(int count, char **words) {
    std::string all;
    for (int i = 1; i < count; ++i) {
        all += (i > 1 ? " " : "") + std::string(words[i]);
    }
    try {
        play(all);
        return 0;
    } catch (const vantro::Error &error) {
        std::fprintf(stderr, "search_and_play: %s\n", error.what());
        return 1;
    }
}
