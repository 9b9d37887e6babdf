// One player of the service, which the protocol calls a partition.
#ifndef VANTRO_BRIDGES_MPD_PARTITION_H
#define VANTRO_BRIDGES_MPD_PARTITION_H

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include <vantro/vantro.hpp>

#include "bridges/mpd/ack.h"
#include "bridges/mpd/queue.h"
#include "bridges/mpd/queue_draft.h"
#include "bridges/mpd/subsystems.h"
#include "bridges/sockets/reconnecting.h"

namespace vantro::mpd {

// The connection to the player. The object outlives the service: if the service has gone, the
// object tries to connect again, after growing delays.
class Partition {
  public:
    using Clock = std::chrono::steady_clock;

    explicit Partition(std::string name) : name_(std::move(name)) {}

    const std::string &name() const { return name_; }

    // The player; connects if that is possible and due. @throws Ack.
    Player &player();

    // The descriptor that is readable when take_events() has something to do; -1 without a service.
    int descriptor();

    // Reads all events. @return what they have changed.
    Subsystems take_events();

    // Call it if memory ran out in take_events() or reconnect(): events may be lost.
    // @return what may have changed.
    Subsystems miss_events();

    // Connects if that is due.
    void reconnect();

    // When to call reconnect() next; nothing while there is a connection.
    std::optional<Clock::time_point> retry_at() const;

    // Call it when a call found that the service has gone, or does not answer.
    // @param why a ServiceGone or a ServiceSilent.
    void leave(const Ack &why);

    // The present tracks of the current session. @throws Ack.
    const Queue &queue();

    // The player's status. The player is queried only after an event since the last query: the
    // events for a command's changes come before its answer. @throws Ack.
    const VantroStatus &status();

    // The present position in the track. @throws Ack.
    std::chrono::milliseconds position();

    // The current track's place, if there is one.
    std::optional<int32_t> current();

    // Adds songs after all others. @param nodes one a line, each with its source.
    void append(const std::string &nodes);

    // The queue with changes that commit() sends to the player.
    QueueDraft &draft();

    bool has_draft() const { return draft_.has_value(); }

    // Adds one song to the draft. @return its id.
    uint32_t draft_song(NodeKey key);

    // Sends the changes of the draft to the player, if there are any. The current song plays on if
    // it is still in the queue, else the next remaining one plays. @throws Ack; then nothing has
    // changed.
    void commit();

    // Ends the session.
    void clear();

    // The player's last error, or empty.
    const std::string &error() const { return error_; }
    void clear_error() { error_.clear(); }

    // The time of the last noticed change of the catalogue, or of the first look at it, in seconds
    // since 1970.
    int64_t changed_at() const { return changed_at_; }

    // Grows with every change of the catalogue, and with every new connection.
    uint64_t catalogue_version() const { return catalogue_version_; }
    // A playlist was saved or removed: the source of playlists may have appeared or disappeared.
    void note_saved_playlists() { ++catalogue_version_; }

    // The number of connections so far, which identifies the descriptor's connection.
    uint64_t connections() const { return connections_; }

  private:
    bool connect();
    Subsystems changes_of(const Event &event);
    void note_for_status(const Event &event);
    bool jumped(std::chrono::milliseconds position, const VantroStateInfo &now);
    void commit_added(const QueueDraft &draft);
    void commit_all(const QueueDraft &draft);
    uint64_t append_to_session(const std::string &nodes);
    std::vector<NodeKey> fetch_tracks(uint64_t tsid, int32_t offset);

    const std::string name_;
    std::optional<Player> player_;
    Queue queue_;
    uint64_t queue_read_at_ = 0; // The version of the catalogue.
    std::optional<QueueDraft> draft_;
    std::string error_;
    std::string failure_; // The reason for which there is no connection.
    int64_t changed_at_ = 0;
    std::string saved_playlists_; // The object of their source; empty: unknown.
    int misunderstood_ = 0;       // Undecodable events in a row.
    uint64_t catalogue_version_ = 0;
    uint64_t connections_ = 0;
    bool absent_ = false; // No service ran at the last attempt.
    Subsystems news_;     // The parts that a new connection may have changed.
    bool muted_ = false;
    Status status_; // NULL: it must be queried.
    Clock::time_point status_at_{};

    sockets::Reconnecting reconnecting_;

    // The last reported position and its time: mere progress is not a change.
    std::chrono::milliseconds position_{0};
    Clock::time_point position_at_{};
    bool moving_ = false;
    float rate_ = 1;
};

} // namespace vantro::mpd

#endif
