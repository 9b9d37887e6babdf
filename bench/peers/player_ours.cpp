// vantrod with the output "clock", and libvantroclient.
#include <cstdlib>

#include <vantro/events.h>
#include <vantro/extras.h>
#include <vantro/player.h>

#include "bench/peers/peer.h"
#include "bench/peers/player.h"

namespace vantro::bench::peers {

namespace {

constexpr const char *all_songs = "songs";

VantroHandle *open_player() {
    VantroHandle *const handle = vantro_connect();
    check(handle && vantro_open(handle, "main") == 0, "the player cannot be opened");
    return handle;
}

class OurPlayer : public Player {
  public:
    OurPlayer(const std::string &music, const std::string &state)
        : service_({std::getenv("VANTROD"), "--music", music, "--state", state, "--audio", "clock"},
                   -1, Child::Errors::passed_on) {
        service_.wait_for_line("vantrod: ready");
        handle_ = open_player();
        MediaSource *sources = nullptr;
        int count = 0;
        check(vantro_get_media_sources(handle_, &sources, &count) == 0 && count == 1, "no source");
        source_ = sources[0].id;
        vantro_free_media_sources(sources, count);
    }
    ~OurPlayer() override { vantro_disconnect(handle_); }

    void wait_until_scanned(int) override { service_.wait_for_line("vantrod: scanned"); }

    void play_all() override {
        check(vantro_create_trksession(handle_, source_, all_songs, nullptr, 0, &session_) == 0 &&
                  vantro_jump(handle_, 0) == 0 && vantro_play(handle_) == 0,
              "play");
    }

    void repeat(bool on) override {
        check(vantro_repeat(handle_, on ? VANTRO_REPEAT_ALL : VANTRO_REPEAT_OFF) == 0, "repeat");
    }

    void pause(bool on) override {
        check((on ? vantro_pause(handle_) : vantro_play(handle_)) == 0, "pause");
    }

    void state() override {
        VantroStateInfo *info = nullptr;
        check(vantro_get_current_state(handle_, &info) == 0, "state");
        std::free(info);
    }

    void status() override {
        VantroStatus *status = nullptr;
        check(vantro_get_status(handle_, &status) == 0, "status");
        vantro_free_status(status);
    }

    int listing() override {
        MediaNode *nodes = nullptr;
        int count = 1000000;
        check(vantro_browse(handle_, source_, all_songs, 0, &count, &nodes) == 0, "listing");
        vantro_free_media_nodes(nodes, count);
        return count;
    }

    void page(int offset) override {
        const int found = described([&](int *count, MediaNode **nodes, Metadata **metadata) {
            return vantro_browse_metadata(handle_, source_, all_songs, offset, count, nodes,
                                          metadata);
        });
        check(found == page_songs, "a short page");
    }

    void queue_page(int offset) override {
        const int found = described([&](int *count, MediaNode **nodes, Metadata **metadata) {
            return vantro_get_trksession_tracks_metadata(handle_, session_, offset, count, nodes,
                                                         metadata);
        });
        check(found == page_songs, "a short page of the queue");
    }

    int search(const std::string &term) override {
        return described([&](int *count, MediaNode **nodes, Metadata **metadata) {
            return vantro_search_metadata(handle_, source_, nullptr, term.c_str(), 0, count, nodes,
                                          metadata);
        });
    }

    void follow(Told &told) override {
        VantroHandle *const follower = open_player();
        for (;;) {
            const VantroEvent *event = vantro_event_get(follower);
            if (!event) {
                return;
            }
            if (!event->object_name) {
                vantro_event_wait(follower);
            } else if (event->type == VANTRO_EVENT_STATE &&
                       event->repeat != event->details.state.repeat) {
                told.now();
            }
        }
    }

    int64_t pss_bytes() const override { return peers::pss_bytes(service_.pid()); }

  private:
    template <typename Query>
    static int described(Query query) {
        MediaNode *nodes = nullptr;
        Metadata *metadata = nullptr;
        int count = page_songs;
        check(query(&count, &nodes, &metadata) == 0, "vantrod refused a query");
        vantro_free_media_nodes(nodes, count);
        vantro_free_metadata(metadata, count);
        return count;
    }

    Child service_;
    VantroHandle *handle_ = nullptr;
    int32_t source_ = 0;
    uint64_t session_ = 0;
};

} // namespace

std::unique_ptr<Player> start(const std::string &music, const std::string &state) {
    return std::make_unique<OurPlayer>(music, state);
}

} // namespace vantro::bench::peers
