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

// The connection to the player. It lasts from one run of the service to the next: if the service
// has gone, it is looked for again, after a delay that grows.
class Partition {
  public:
    using Clock = std::chrono::steady_clock;

    explicit Partition(std::string name) : name_(std::move(name)) {}

    const std::string &name() const { return name_; }

    // The player, connected now if that is possible and due. @throws Ack.
    Player &player();

    // The descriptor that is readable when take_events() has something to do; -1 without a service.
    int descriptor();

    // Reads all events. @return what they have changed.
    Subsystems take_events();

    // Connects if that is due.
    void reconnect();

    // When to call reconnect() next; nothing while there is a connection.
    std::optional<Clock::time_point> retry_at() const;

    // To be called when a call found that the service has gone, or does not answer.
    // @param why a ServiceGone or a ServiceSilent.
    void leave(const Ack &why);

    // The tracks of the current session, as they are now. @throws Ack.
    const Queue &queue();

    // What the player does. It is asked only if something has happened since it was last asked:
    // what a command changes is among the events before its answer comes. @throws Ack.
    const VantroStatus &status();

    // Where the track is now. @throws Ack.
    std::chrono::milliseconds position();

    // The current track's place, where there is one.
    std::optional<int32_t> current();

    // Adds songs after all others. @param nodes one a line, each with its source.
    void append(const std::string &nodes);

    // The queue with changes that the player is told by commit().
    QueueDraft &draft();

    bool has_draft() const { return draft_.has_value(); }

    // Adds one song to the draft. @return its id.
    uint32_t draft_song(NodeKey key);

    // Gives the changes of the draft to the player, if there are any. What is played goes on if it
    // is still there, else the next one after it that is. @throws Ack; nothing has changed then.
    void commit();

    // Ends the session.
    void clear();

    // What the player said when it last failed, or empty.
    const std::string &error() const { return error_; }
    void clear_error() { error_.clear(); }

    // When the catalogue was last seen to change, in seconds since 1970; 0: not yet.
    int64_t changed_at() const { return changed_at_; }

    // Grows with every change of the catalogue, and with every new connection.
    uint64_t catalogue_version() const { return catalogue_version_; }
    // A playlist was saved or removed: their source may have come, or gone.
    void note_saved_playlists() { ++catalogue_version_; }

    // Connections so far: which one the descriptor belongs to.
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
    std::optional<QueueDraft> draft_;
    std::string error_;
    std::string failure_; // Why there is no connection.
    int64_t changed_at_ = 0;
    int misunderstood_ = 0; // Events in a row.
    uint64_t catalogue_version_ = 0;
    uint64_t connections_ = 0;
    bool absent_ = false; // There was no service when it was last looked for.
    Subsystems news_;     // What a new connection may have changed.
    bool muted_ = false;
    Status status_; // NULL: it is to be asked for.
    Clock::time_point status_at_{};

    sockets::Reconnecting reconnecting_;

    // The position last told, and when: progress alone is no change.
    std::chrono::milliseconds position_{0};
    Clock::time_point position_at_{};
    bool moving_ = false;
    float rate_ = 1;
};

} // namespace vantro::mpd

#endif
