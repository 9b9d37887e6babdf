/**
 * @file
 * A connection to the player service, with the player that is open on it.
 */
#ifndef VANTRO_CPP_PLAYER_HPP
#define VANTRO_CPP_PLAYER_HPP

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string_view>
#include <utility>

#include <vantro/catalogue.h>
#include <vantro/cpp/events.hpp>
#include <vantro/cpp/records.hpp>
#include <vantro/cpp/result.hpp>
#include <vantro/extras.h>
#include <vantro/player.h>

namespace vantro {

/** @return the version of the library that the program runs with, "1.2.3". */
inline std::string_view version() {
    return vantro_version();
}

/** The state of a player; VANTRO_STATE_*. */
enum class State : int32_t {
    none = VANTRO_STATE_NONE,
    idle = VANTRO_STATE_IDLE,
    playing = VANTRO_STATE_PLAYING,
    paused = VANTRO_STATE_PAUSED,
    stopped = VANTRO_STATE_STOPPED
};

/** The repeat mode of a player; VANTRO_REPEAT_*. */
enum class Repeat : int32_t {
    off = VANTRO_REPEAT_OFF,
    all = VANTRO_REPEAT_ALL,
    one = VANTRO_REPEAT_ONE
};

/** How a new track session begins; VANTRO_TRKSESSION_*. */
enum class Start : int32_t {
    held = VANTRO_TRKSESSION_LOAD,
    playing = VANTRO_TRKSESSION_PLAY,
    append = VANTRO_TRKSESSION_APPEND,
    insert = VANTRO_TRKSESSION_INSERT,
    keep = VANTRO_TRKSESSION_KEEP
};

/**
 * Owns a handle. Each member makes one call of player.h or extras.h, which document whether the
 * call blocks and why it fails; the result carries the failure. Threads: see player.h.
 */
class Player {
  public:
    using Milliseconds = std::chrono::milliseconds; /**< Positions and limits. */

    /** Connects, without a player yet. @param limit bounds every wait for the service; 0: none.
     *  @return the connection. */
    static Result<Player> connect(Milliseconds limit = Milliseconds(0)) {
        VantroHandle *const handle = limit.count() > 0
                                         ? vantro_connect_timed(static_cast<int>(limit.count()))
                                         : vantro_connect();
        if (!handle) {
            return Failure::last();
        }
        return Player(handle);
    }

    /** Connects and opens a player. @param name the player's. @param limit as above.
     *  @return the connection. */
    static Result<Player> connect(TextArgument name, Milliseconds limit = Milliseconds(0)) {
        Result<Player> player = connect(limit);
        if (player) {
            if (const Result<void> opened = player->open(name); !opened) {
                return opened.failure();
            }
        }
        return player;
    }

    /** @param handle taken over. */
    explicit Player(VantroHandle *handle) : handle_(handle) {}

    /** @return the handle, for the C functions; this object keeps ownership. */
    VantroHandle *handle() const { return handle_.get(); }

    /** @param name of the player to open. @return success. */
    Result<void> open(TextArgument name) { return done(vantro_open(handle(), name.get())); }
    /** @param name of the player that is open. @return success. */
    Result<void> close(TextArgument name) { return done(vantro_close(handle(), name.get())); }

    /** @return the names of the service's players. */
    Result<Names> players() {
        char **names = nullptr;
        const int count = vantro_list_players(handle(), &names);
        return value(count < 0 ? -1 : 0, Names(names, count));
    }

    /** @return how the service identifies this program. */
    Result<VantroIdentity> identity() {
        VantroIdentity identity{};
        const int result = vantro_get_identity(handle(), &identity);
        return value(result, identity);
    }

    /** Makes the service scan all of its music again, in the background. @return success. */
    Result<void> rescan() { return done(vantro_rescan(handle())); }
    /** The same for the folders that have a node's songs. @param ms_id the node's source.
     *  @param node_id the node. @return success. */
    Result<void> rescan(int32_t ms_id, TextArgument node_id) {
        return done(vantro_rescan_node(handle(), ms_id, node_id.get()));
    }

    /** Saves the tracks of the current session. @param name the playlist's. @param replace whether
     *  an existing one is replaced. @return the number of saved tracks. */
    Result<int> save_playlist(TextArgument name, bool replace = false) {
        const int count = vantro_save_playlist(handle(), name.get(),
                                               replace ? int32_t{VANTRO_PLAYLIST_REPLACE} : 0);
        return value(count < 0 ? -1 : 0, int{count});
    }
    /** Deletes a saved playlist. @param name its name. @return success. */
    Result<void> delete_playlist(TextArgument name) {
        return done(vantro_delete_playlist(handle(), name.get()));
    }

    /** Bounds every later wait for the service. @param limit above 0; below 0: none. @return
     * success.
     */
    Result<void> set_timeout(Milliseconds limit) {
        return done(vantro_set_timeout(handle(), static_cast<int>(limit.count())));
    }

    /**
     * Makes the connection outlive the service; see vantro_set_reconnect(). After a reconnect the
     * events begin again with one whose object() is VANTRO_OBJECT_RECONNECTED.
     * @param on whether it does.
     * @return success.
     */
    Result<void> set_reconnect(bool on) {
        return done(
            vantro_set_reconnect(handle(), on ? VANTRO_RECONNECT_ON : VANTRO_RECONNECT_OFF));
    }

    /** Plays, or continues after a pause. @return success. */
    Result<void> play() { return done(vantro_play(handle())); }
    /** Stops. @return success. */
    Result<void> stop() { return done(vantro_stop(handle())); }
    /** Pauses at the present position. @return success. */
    Result<void> pause() { return done(vantro_pause(handle())); }
    /** Goes to the next track. @return success. */
    Result<void> next() { return done(vantro_next(handle())); }
    /** Goes to the previous track. @return success. */
    Result<void> previous() { return done(vantro_previous(handle())); }
    /** @param position new position, from the track's start. @return success. */
    Result<void> seek(Milliseconds position) {
        return done(vantro_seek(handle(), static_cast<int32_t>(position.count())));
    }
    /** @param rate 1.0 is normal speed. @return success. */
    Result<void> set_rate(float rate) { return done(vantro_set_playback_rate(handle(), rate)); }
    /** @param on whether tracks come in random order. @return success. */
    Result<void> set_shuffle(bool on) {
        return done(vantro_shuffle(handle(), on ? VANTRO_SHUFFLE_ON : VANTRO_SHUFFLE_OFF));
    }
    /** @param mode the repeat mode. @return success. */
    Result<void> set_repeat(Repeat mode) {
        return done(vantro_repeat(handle(), static_cast<int32_t>(mode)));
    }

    /** @return the player's volume. */
    Result<VantroVolume> volume() {
        VantroVolume volume{};
        const int result = vantro_get_volume(handle(), &volume);
        return value(result, volume);
    }
    /** @param level 0 to 100. @return success. */
    Result<void> set_volume(int32_t level) { return done(vantro_set_volume(handle(), level)); }
    /** @param muted whether the player is silent. @return success. */
    Result<void> set_muted(bool muted) { return done(vantro_set_muted(handle(), muted ? 1 : 0)); }

    /**
     * Makes a track session and makes it the current one. See catalogue.h.
     * @param ms_id, node_id the source, and one node or several.
     * @param index the song to begin with, from 0.
     * @param start how it begins.
     * @return its id.
     */
    Result<uint64_t> create_session(int32_t ms_id, TextArgument node_id, int32_t index = 0,
                                    Start start = Start::held) {
        uint64_t tsid = 0;
        const int result = vantro_create_trksession(handle(), ms_id, node_id.get(), &index,
                                                    static_cast<int32_t>(start), &tsid);
        return value(result, tsid);
    }
    /** @param tsid the session to destroy. @return success. */
    Result<void> destroy_session(uint64_t tsid) {
        return done(vantro_destroy_trksession(handle(), tsid));
    }
    /** @param index the track of the current session to go to, from 0. @return success. */
    Result<void> jump(int32_t index) { return done(vantro_jump(handle(), index)); }

    /** @return the player's state and modes. */
    Result<VantroStateInfo> state() { return copy_of(vantro_get_current_state); }
    /** @return the current track session. */
    Result<VantroTrksessionInfo> session() { return copy_of(vantro_get_current_trksession_info); }
    /** @return the position within the track. */
    Result<Milliseconds> position() {
        int32_t position = 0;
        const int result = vantro_get_current_track_position(handle(), &position);
        return value(result, Milliseconds(position));
    }
    /** @return the current track. */
    Result<Track> track() {
        VantroTrackInfo *info = nullptr;
        const int result = vantro_get_current_track_info(handle(), &info);
        return value(result, Track(info));
    }
    /** @return the complete status at one moment. */
    Result<Status> status() {
        VantroStatus *whole = nullptr;
        const int result = vantro_get_status(handle(), &whole);
        return value(result, Status(whole));
    }

    /** @return the media sources. */
    Result<List<MediaSource>> sources() {
        MediaSource *records = nullptr;
        int count = 0;
        const int result = vantro_get_media_sources(handle(), &records, &count);
        return value(result, List<MediaSource>(records, result == 0 ? count : 0));
    }

    /** @param ms_id, node_id the source, and the node. @param offset the first entry wanted.
     *  @return the node's entries, which are fetched page by page while iterating. */
    Pages<MediaNode> browse(int32_t ms_id, TextArgument node_id = VANTRO_NODE_ROOT,
                            int32_t offset = 0) {
        return Pages<MediaNode>(vantro_cursor_browse(handle(), ms_id, node_id.get(), offset, 0));
    }

    /** @param ms_id, term the source, and the search term. @param filter VANTRO_FILTER_*, or "" for
     * any. @param offset index of the first entry. @return the matching entries of the source. */
    Pages<MediaNode> search(int32_t ms_id, TextArgument term, TextArgument filter = "",
                            int32_t offset = 0) {
        return Pages<MediaNode>(
            vantro_cursor_search(handle(), ms_id, filter.get(), term.get(), offset, 0));
    }

    /** @param tsid, offset the session, and the first track wanted. @return its tracks. */
    Pages<MediaNode> tracks(uint64_t tsid, int32_t offset = 0) {
        return Pages<MediaNode>(vantro_cursor_tracks(handle(), tsid, offset, 0));
    }

    /** @param ms_id, node_id, offset as for browse(). @return the result of browse(), with the
     * metadata of each entry. */
    Pages<DescribedNode> browse_metadata(int32_t ms_id, TextArgument node_id = VANTRO_NODE_ROOT,
                                         int32_t offset = 0) {
        return Pages<DescribedNode>(
            vantro_cursor_browse(handle(), ms_id, node_id.get(), offset, 1));
    }

    /** @param ms_id, term, filter, offset as for search(). @return the result of search(), with the
     * metadata of each entry. */
    Pages<DescribedNode> search_metadata(int32_t ms_id, TextArgument term, TextArgument filter = "",
                                         int32_t offset = 0) {
        return Pages<DescribedNode>(
            vantro_cursor_search(handle(), ms_id, filter.get(), term.get(), offset, 1));
    }

    /** @param tsid, offset as for tracks(). @return the result of tracks(), with the metadata of
     * each track. */
    Pages<DescribedNode> tracks_metadata(uint64_t tsid, int32_t offset = 0) {
        return Pages<DescribedNode>(vantro_cursor_tracks(handle(), tsid, offset, 1));
    }

    /** @param ms_id, node_id the source, and the node. @return the node's metadata. */
    Result<MetadataPtr> metadata(int32_t ms_id, TextArgument node_id) {
        Metadata *record = nullptr;
        const int result = vantro_get_metadata(handle(), ms_id, node_id.get(), &record);
        return value(result, MetadataPtr(record));
    }

    /** For example values(ms_id, id, {"composer", "year"}). @param ms_id, node_id the source, and
     * the node. @param keys VANTRO_KEY_*. @return a value for each key, in their order. */
    template <size_t count>
    Result<std::array<Value, count>> values(int32_t ms_id, TextArgument node_id,
                                            const char *const (&keys)[count]) {
        std::array<const char *, count + 1> ended{};
        std::array<char *, count> found{};
        for (size_t i = 0; i < count; ++i) {
            ended[i] = keys[i];
        }
        if (vantro_get_extended_metadata(handle(), ms_id, node_id.get(), ended.data(),
                                         found.data()) != 0) {
            return Failure::last();
        }
        std::array<Value, count> owned;
        for (size_t i = 0; i < count; ++i) {
            owned[i].reset(found[i]);
        }
        return owned;
    }

    /** @return the player's events, one call at a time. */
    Events events() { return Events(handle()); }
    /** @return the player's events as a range. */
    Following follow() { return Following(handle()); }

  private:
    struct Disconnect {
        void operator()(VantroHandle *handle) const { vantro_disconnect(handle); }
    };

    static Result<void> done(int result) {
        return result == 0 ? Result<void>() : Result<void>(Failure::last());
    }
    template <typename Type>
    static Result<Type> value(int result, Type &&found) {
        return result == 0 ? Result<Type>(std::forward<Type>(found))
                           : Result<Type>(Failure::last());
    }
    template <typename Type>
    static Result<Type> value(int result, Type &found) {
        return value(result, Type(found));
    }
    template <typename Record>
    Result<Record> copy_of(int (*query)(VantroHandle *, Record **)) {
        Record *record = nullptr;
        if (query(handle(), &record) != 0) {
            return Failure::last();
        }
        const std::unique_ptr<Record, detail::FreeBlock> owned(record);
        return *owned;
    }
    std::unique_ptr<VantroHandle, Disconnect> handle_;
};

} // namespace vantro

#endif
