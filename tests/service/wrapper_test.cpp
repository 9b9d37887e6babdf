// The C++ headers against a service that runs.
#include <csignal>
#include <ranges>
#include <set>
#include <string>
#include <vector>

#include "tests/service/vantrod.h"

#include <vantro/vantro.hpp>
#include <vantro/version.h>

namespace vantro::service {

namespace {

class Wrapper : public Vantrod {
  protected:
    static constexpr int songs = 230;

    void run() {
        start({"--music", path_ + "/music"});
        while (told().rfind("vantrod: scanned", 0) != 0) {
            ASSERT_FALSE(service->ended());
        }
    }

    void SetUp() override {
        Vantrod::SetUp();
        const std::filesystem::path music = path_ + "/music";
        test::make_music(music / "000.flac", 20'000, {"TITLE=One", "ARTIST=Anna"});
        for (int i = 1; i < songs; ++i) {
            std::string number = std::to_string(i);
            number.insert(0, 3 - number.size(), '0');
            std::filesystem::copy_file(music / "000.flac", music / (number + ".flac"));
        }
        run();
    }

    // The ids of all nodes of a list, which must be complete.
    template <typename Nodes>
    static std::vector<std::string> names(Nodes &&nodes) {
        std::vector<std::string> all;
        for (const MediaNode &node : nodes) {
            all.emplace_back(text(node.id));
        }
        EXPECT_TRUE(nodes.done());
        return all;
    }

    // The same for a list with metadata.
    template <typename Nodes>
    static std::vector<std::string> described(Nodes &&nodes) {
        std::vector<std::string> ids;
        for (const DescribedNode entry : nodes) {
            ids.emplace_back(text(entry.node->id));
            EXPECT_EQ(text(entry.metadata->artist), "Anna");
            EXPECT_EQ(entry.metadata->duration, 20'000);
        }
        EXPECT_TRUE(nodes.done());
        return ids;
    }

    static constexpr int32_t source = 1; // the only one
};

static_assert(std::ranges::contiguous_range<List<MediaNode>>);
static_assert(std::ranges::input_range<Pages<MediaNode>>);
static_assert(std::ranges::input_range<Pages<DescribedNode>>);
static_assert(std::ranges::input_range<Following>);

TEST_F(Wrapper, ListsByPages) {
    Player player = Player::connect("main").or_throw();
    const List<MediaSource> sources = player.sources().or_throw();
    ASSERT_EQ(sources.size(), 1u);
    ASSERT_EQ(sources[0].id, source);
    const std::vector<std::string> all = names(player.browse(source, "folders"));
    ASSERT_EQ(all.size(), size_t{songs});
    EXPECT_EQ(std::set<std::string>(all.begin(), all.end()).size(), all.size());
    EXPECT_EQ(names(player.browse(source, "folders", 200)),
              std::vector<std::string>(all.begin() + 200, all.end()));
    EXPECT_EQ(names(player.search(source, "one", VANTRO_FILTER_TITLE)).size(), all.size());
    EXPECT_EQ(names(player.search(source, "")).size(), 0u);
    EXPECT_EQ(described(player.browse_metadata(source, "folders")), all);
    EXPECT_EQ(described(player.search_metadata(source, "one")).size(), all.size());
    ASSERT_TRUE(player.rescan());
    EXPECT_TRUE(player.rescan(source, "folders"));
    EXPECT_EQ(player.rescan(source, "nothing").failure().number, ENOENT);
    const Names players = player.players().or_throw();
    ASSERT_EQ(players.size(), 1u);
    EXPECT_STREQ(players[0], "main");
    EXPECT_EQ(player.identity().or_throw().pid, getpid());
}

TEST_F(Wrapper, TellsWhyAListEnded) {
    Player player = Player::connect("main").or_throw();
    auto unknown = player.browse(source, std::string(100, 'x'));
    EXPECT_EQ(unknown.begin(), unknown.end());
    ASSERT_FALSE(unknown.done());
    EXPECT_EQ(unknown.done().failure().why(), Reason::refused);
    EXPECT_EQ(unknown.done().failure().number, ENOENT);
    EXPECT_THROW(unknown.done().or_throw(), Error);

    const std::string first(text(player.browse(source, "folders").begin()->id));
    auto changing = player.browse_metadata(source, "folders");
    auto at = changing.begin();
    test::make_music(path_ + "/music/new.flac", 20'000, {"TITLE=A new one", "ARTIST=Anna"});
    while (text(player.browse(source, "folders").begin()->id) == first) {
        ASSERT_FALSE(service->ended());
    }
    while (at != changing.end()) {
        ++at;
    }
    EXPECT_EQ(changing.done().failure().why(), Reason::changed);
}

TEST_F(Wrapper, MakesSessionsAndTellsWhatPlays) {
    Player player = Player::connect("main").or_throw();
    const std::vector<std::string> all = names(player.browse(source, "folders"));
    const uint64_t tsid = player.create_session(source, "folders", 229).or_throw();
    EXPECT_EQ(names(player.tracks(tsid)), all);
    EXPECT_EQ(described(player.tracks_metadata(tsid, 5)).size(), all.size() - 5);
    const Track track = player.track().or_throw();
    const Status status = player.status().or_throw();
    EXPECT_EQ(status->index, 229);
    EXPECT_EQ(status->trksession.tsid, tsid);
    EXPECT_EQ(text(status->metadata->artist), "Anna");
    EXPECT_EQ(track->index, 229);
    EXPECT_EQ(text(track->metadata->artist), "Anna");
    EXPECT_EQ(text(player.metadata(source, all[3].c_str()).or_throw()->title), "One");
    const auto values =
        player.values(source, all[3].c_str(), {VANTRO_KEY_DURATION, "none"}).or_throw();
    EXPECT_STREQ(values[0].get(), "20000");
    EXPECT_EQ(values[1], nullptr);
    EXPECT_EQ(player.session()->length, songs);
    EXPECT_TRUE(player.destroy_session(tsid));
    EXPECT_FALSE(player.destroy_session(tsid));
    EXPECT_EQ(player.state()->state, VANTRO_STATE_IDLE);
    ASSERT_TRUE(player.set_volume(30));
    EXPECT_EQ(player.set_volume(101).failure().number, ERANGE);
    EXPECT_EQ(player.volume()->level, 30);
    const Status idle = player.status().or_throw();
    EXPECT_EQ(idle->trksession.type, VANTRO_TRKSESSION_NONE);
    EXPECT_EQ(idle->index, -1);
    EXPECT_EQ(idle->volume.level, 30);
    EXPECT_FALSE(idle->media_node || idle->metadata);
    std::string many;
    for (int i = 0; i < 100'000; ++i) {
        many += "1:" + all[static_cast<size_t>(i) % all.size()] + '\n';
    }
    const uint64_t long_one =
        player.create_session(0, many.c_str(), 99'999, Start::held).or_throw();
    EXPECT_EQ(player.session()->length, 100'000);
    EXPECT_EQ(player.track().or_throw()->index, 99'999);
    EXPECT_TRUE(player.destroy_session(long_one));
    EXPECT_EQ(version(), VANTRO_VERSION);
}

TEST_F(Wrapper, FollowsUntilTheServiceDies) {
    Player player = Player::connect("main", std::chrono::seconds(10)).or_throw();
    ASSERT_TRUE(player.create_session(1, "folders", 1, Start::playing));
    ASSERT_TRUE(player.pause());
    ASSERT_TRUE(player.seek(std::chrono::milliseconds(7000)));
    auto events = player.follow();
    std::string seen;
    for (const Event &event : events) {
        if (event.as<StateEvent>()) {
            seen += "state" + std::to_string(event.now().state);
            EXPECT_EQ(event.attribute("status"), "paused");
        } else if (const auto *track = event.as<TrackEvent>()) {
            seen += " track" + std::to_string(track->index) + std::string(text(track->node->name));
        } else if (const auto *status = event.as<PositionEvent>()) {
            EXPECT_EQ(status->position.count(), 7000);
            service->kill(SIGKILL);
        }
    }
    EXPECT_EQ(seen, "state3 track1One");
    ASSERT_FALSE(events.done());
    EXPECT_EQ(events.done().failure().why(), Reason::gone);
    EXPECT_EQ(player.play().failure().why(), Reason::gone);
    EXPECT_EQ(Player::connect().failure().why(), Reason::gone);
    EXPECT_EQ(player.set_timeout(std::chrono::milliseconds(0)).failure().why(), Reason::invalid);
}

TEST_F(Wrapper, FollowsTheNextServiceIfAskedTo) {
    Player player = Player::connect("main", std::chrono::seconds(20)).or_throw();
    ASSERT_TRUE(player.set_reconnect(true));
    std::string seen;
    for (const Event &event : player.follow()) {
        if (event.object() == "state" && seen.empty()) {
            seen = "state";
            service->kill(SIGKILL);
            service->wait();
            run();
        } else if (event.object() == VANTRO_OBJECT_RECONNECTED) {
            seen += " reconnected";
        } else if (event.object() == "state") {
            seen += " state";
            break;
        }
    }
    EXPECT_EQ(seen, "state reconnected state");
    EXPECT_TRUE(player.pause());
}

} // namespace

} // namespace vantro::service
