// vantro-mpd as a program that uses libmpdclient sees it. Other tests would not notice what that
// library refuses to parse.
#include "tests/bridges/mpd/bridge_process.h"

#ifdef VANTRO_HAVE_LIBMPDCLIENT
#include <mpd/client.h>
#endif

namespace vantro::mpd {
namespace {

#ifndef VANTRO_HAVE_LIBMPDCLIENT
TEST(BridgeLibrary, ServesTheProtocolsOwnLibrary) {
    GTEST_SKIP() << "libmpdclient is not here";
}
#else

class BridgeLibrary : public Bridge {
  protected:
    void SetUp() override {
        Bridge::SetUp();
        player_ = mpd_connection_new("127.0.0.1", port_, 20'000);
        ASSERT_EQ(mpd_connection_get_error(player_), MPD_ERROR_SUCCESS);
    }
    void TearDown() override {
        mpd_connection_free(player_);
        Bridge::TearDown();
    }

    // Whether the last answer was complete, and made sense to the library.
    bool is_good() { return mpd_response_finish(player_); }
    std::string complaint() { return mpd_connection_get_error_message(player_); }

    // The URIs of the songs that come, or the titles.
    std::string songs(bool titles = false) {
        std::string all;
        while (mpd_song *const song = mpd_recv_song(player_)) {
            const char *const title = mpd_song_get_tag(song, MPD_TAG_TITLE, 0);
            all += std::string(titles ? (title ? title : "-") : mpd_song_get_uri(song)) + '\n';
            mpd_song_free(song);
        }
        EXPECT_TRUE(is_good()) << complaint();
        return all;
    }

    std::string values(mpd_tag_type tag) {
        std::string all;
        while (mpd_pair *const pair = mpd_recv_pair_tag(player_, tag)) {
            all += std::string(pair->value) + '\n';
            mpd_return_pair(player_, pair);
        }
        EXPECT_TRUE(is_good()) << complaint();
        return all;
    }

    mpd_connection *player_ = nullptr;
};

constexpr const char *one = "music/Red/Way \"1\"/1.flac";
constexpr const char *two = "music/Red/Way \"1\"/2.ogg";
constexpr const char *loose = "music/loose.flac";

TEST_F(BridgeLibrary, PlaysAQueue) {
    const int first = mpd_run_add_id(player_, one);
    ASSERT_GT(first, 0) << complaint();
    ASSERT_TRUE(mpd_command_list_begin(player_, true) && mpd_send_add(player_, two) &&
                mpd_send_add(player_, loose) && mpd_send_play_pos(player_, 1) &&
                mpd_send_pause(player_, true) && mpd_send_seek_current(player_, 12.5F, false) &&
                mpd_send_set_volume(player_, 40) && mpd_send_repeat(player_, true) &&
                mpd_command_list_end(player_));
    ASSERT_TRUE(is_good()) << complaint();
    mpd_status *const status = mpd_run_status(player_);
    ASSERT_NE(status, nullptr) << complaint();
    EXPECT_EQ(mpd_status_get_state(status), MPD_STATE_PAUSE);
    EXPECT_EQ(mpd_status_get_volume(status), 40);
    EXPECT_TRUE(mpd_status_get_repeat(status));
    EXPECT_EQ(mpd_status_get_queue_length(status), 3u);
    EXPECT_EQ(mpd_status_get_song_pos(status), 1);
    EXPECT_EQ(mpd_status_get_next_song_pos(status), 2);
    EXPECT_EQ(mpd_status_get_elapsed_ms(status), 12'500u);
    EXPECT_EQ(mpd_status_get_total_time(status), 60u);
    EXPECT_STREQ(mpd_status_get_partition(status), "main");
    EXPECT_GT(mpd_status_get_kbit_rate(status), 0u);
    const unsigned version = mpd_status_get_queue_version(status);
    mpd_status_free(status);

    mpd_song *const song = mpd_run_current_song(player_);
    ASSERT_NE(song, nullptr) << complaint();
    EXPECT_STREQ(mpd_song_get_uri(song), two);
    EXPECT_STREQ(mpd_song_get_tag(song, MPD_TAG_COMPOSER, 0), "Bach");
    EXPECT_EQ(mpd_song_get_duration_ms(song), 60'000u);
    EXPECT_GT(mpd_song_get_last_modified(song), 0);
    EXPECT_EQ(mpd_song_get_pos(song), 1u);
    mpd_song_free(song);

    ASSERT_TRUE(mpd_run_move_id(player_, static_cast<unsigned>(first), 2)) << complaint();
    ASSERT_TRUE(mpd_send_queue_changes_brief(player_, version));
    std::string changed;
    unsigned position = 0;
    unsigned id = 0;
    while (mpd_recv_queue_change_brief(player_, &position, &id)) {
        changed += std::to_string(position);
    }
    EXPECT_TRUE(is_good()) << complaint();
    EXPECT_EQ(changed, "012");
    ASSERT_TRUE(mpd_send_list_queue_range_meta(player_, 1, 3));
    EXPECT_EQ(songs(), std::string(loose) + '\n' + one + '\n');
    EXPECT_TRUE(mpd_run_save(player_, "mine")) << complaint();
    EXPECT_TRUE(mpd_run_clear(player_)) << complaint();
    EXPECT_TRUE(mpd_run_load(player_, "mine")) << complaint();
    ASSERT_TRUE(mpd_send_list_playlist_meta(player_, "mine"));
    EXPECT_EQ(songs(), std::string(two) + '\n' + loose + '\n' + one + '\n');
    EXPECT_TRUE(mpd_run_rm(player_, "mine")) << complaint();
    EXPECT_FALSE(mpd_run_play_pos(player_, 7));
    EXPECT_EQ(mpd_connection_get_server_error(player_), MPD_SERVER_ERROR_ARG);
    EXPECT_TRUE(mpd_connection_clear_error(player_));
}

TEST_F(BridgeLibrary, ShowsTheCatalogue) {
    std::string all;
    ASSERT_TRUE(mpd_send_list_all_meta(player_, nullptr));
    while (mpd_entity *const entity = mpd_recv_entity(player_)) {
        if (mpd_entity_get_type(entity) == MPD_ENTITY_TYPE_DIRECTORY) {
            all += std::string(mpd_directory_get_path(mpd_entity_get_directory(entity))) + '\n';
        } else if (mpd_entity_get_type(entity) == MPD_ENTITY_TYPE_SONG) {
            all += std::string(mpd_song_get_uri(mpd_entity_get_song(entity))) + '\n';
        }
        mpd_entity_free(entity);
    }
    EXPECT_TRUE(is_good()) << complaint();
    EXPECT_EQ(all, std::string("music\nmusic/Red\nmusic/Red/Way \"1\"\n") + one + '\n' + two +
                       '\n' + loose + '\n');

    ASSERT_TRUE(
        mpd_search_db_songs(player_, true) &&
        mpd_search_add_tag_constraint(player_, MPD_OPERATOR_DEFAULT, MPD_TAG_ARTIST, "Red") &&
        mpd_search_add_sort_name(player_, "Title", true) && mpd_search_add_window(player_, 0, 10) &&
        mpd_search_commit(player_));
    EXPECT_EQ(songs(true), "Zw\xC3\x96lf\nOne\n");
    ASSERT_TRUE(
        mpd_search_db_songs(player_, true) &&
        mpd_search_add_expression(player_, "((base 'music/Red') AND (!(title == 'One')))") &&
        mpd_search_commit(player_));
    EXPECT_EQ(songs(), std::string(two) + '\n');
    ASSERT_TRUE(mpd_search_db_tags(player_, MPD_TAG_ALBUM) &&
                mpd_search_add_group_tag(player_, MPD_TAG_ARTIST) && mpd_search_commit(player_));
    EXPECT_EQ(values(MPD_TAG_ALBUM), "\nThe Way\n");
    ASSERT_TRUE(
        mpd_search_add_db_songs(player_, true) &&
        mpd_search_add_tag_constraint(player_, MPD_OPERATOR_DEFAULT, MPD_TAG_TITLE, "Loose") &&
        mpd_search_commit(player_) && is_good());
    ASSERT_TRUE(mpd_send_list_queue_meta(player_));
    EXPECT_EQ(songs(), std::string(loose) + '\n');
    mpd_stats *const stats = mpd_run_stats(player_);
    ASSERT_NE(stats, nullptr) << complaint();
    EXPECT_EQ(mpd_stats_get_number_of_songs(stats), 3u);
    mpd_stats_free(stats);
    std::string cover;
    char piece[64];
    int size = 0;
    ASSERT_TRUE(mpd_run_binarylimit(player_, sizeof piece)) << complaint();
    while ((size = mpd_run_albumart(player_, loose, static_cast<unsigned>(cover.size()), piece,
                                    sizeof piece)) > 0) {
        cover.append(piece, static_cast<size_t>(size));
    }
    EXPECT_EQ(size, 0) << complaint();
    EXPECT_EQ(cover, cover_);
}

TEST_F(BridgeLibrary, TellsWhoWaits) {
    mpd_connection *const other = mpd_connection_new("127.0.0.1", port_, 20'000);
    ASSERT_TRUE(
        mpd_send_idle_mask(player_, static_cast<mpd_idle>(MPD_IDLE_MIXER | MPD_IDLE_OPTIONS)));
    EXPECT_TRUE(mpd_run_set_volume(other, 20));
    EXPECT_EQ(mpd_recv_idle(player_, false), MPD_IDLE_MIXER);
    ASSERT_TRUE(is_good()) << complaint();
    ASSERT_TRUE(mpd_send_idle(player_));
    EXPECT_EQ(mpd_run_noidle(player_), 0);
    ASSERT_TRUE(mpd_send_outputs(player_));
    mpd_output *const output = mpd_recv_output(player_);
    ASSERT_NE(output, nullptr);
    EXPECT_TRUE(mpd_output_get_enabled(output));
    mpd_output_free(output);
    EXPECT_TRUE(is_good());
    EXPECT_TRUE(mpd_run_switch_partition(player_, "kitchen")) << complaint();
    EXPECT_EQ(mpd_run_get_volume(player_), 100);
    mpd_connection_free(other);
}

#endif

} // namespace
} // namespace vantro::mpd
