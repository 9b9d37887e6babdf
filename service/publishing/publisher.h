// The objects of one player, which applications follow.
//
// Every change carries every attribute of its object, so that the next change replaces a lost one.
// If an object cannot be published, that is logged once, until publishing works again; the player
// continues.
//
// The size of all objects is bounded by the sizes of their contents: see publisher.cpp.
//
// Calls must not overlap.
#ifndef VANTRO_SERVICE_PUBLISHING_PUBLISHER_H
#define VANTRO_SERVICE_PUBLISHING_PUBLISHER_H

#include <cstdint>
#include <functional>
#include <initializer_list>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include <vantro/extras.h>
#include <vantro/platform/objects.h>
#include <vantro/player.h>

#include "service/catalogue/catalogue.h"
#include "service/error.h"

namespace vantro::service::publishing {

class Publisher {
  public:
    // See StoreOptions::log.
    using Log = std::function<void(int severity, const std::string &line)>;

    // Becomes the publisher of a player; `readers` may follow it.
    static Result<std::unique_ptr<Publisher>> open(const std::string &player,
                                                   const object_readers &readers, Log log);

    // Deletes the state and then the directory, which reports the end to readers.
    ~Publisher();
    Publisher(const Publisher &) = delete;
    Publisher &operator=(const Publisher &) = delete;

    // Between these two calls publishing does not wake waiting readers.
    void hold_bell() { object_hold_bell(publisher_.get()); }
    void release_bell() { object_release_bell(publisher_.get()); }

    // `error` is a VANTRO_ERROR_*, or 0.
    void state(const VantroStateInfo &modes, int32_t error);
    void trksession(int32_t type, int32_t length, uint64_t tsid);
    // Node and metadata are null if the track is unknown.
    void track(int32_t index, uint64_t tsid, const catalogue::Node *node,
               const catalogue::SongMetadata *metadata);
    void position(int32_t position_ms);
    void volume(const VantroVolume &volume);
    // Deletes session, track and position.
    void session_gone();
    // Publishes a source if it differs from its last published state; with `again`, always.
    void source(const catalogue::Source &source, bool again);

    // Publishes that a source has gone, and deletes its object. False if it was not published.
    bool source_gone(int32_t id);
    // The numbers of the sources that are published.
    std::vector<int32_t> sources() const;

    // Publishes the current track again if its node or metadata have changed.
    void track_changed(const catalogue::Node *node, const catalogue::SongMetadata *metadata);

  private:
    struct Close {
        void operator()(object_publisher *publisher) const { object_publisher_close(publisher); }
    };
    Publisher(std::string player, Log log, object_publisher *publisher)
        : player_(std::move(player)), log_(std::move(log)), publisher_(publisher) {}

    static constexpr char unpublished = '-'; // not a JSON text

    bool publish(const std::string &object, std::initializer_list<object_attribute> attributes);
    bool done(int result, const std::string &object);

    const std::string player_;
    const Log log_;
    const std::unique_ptr<object_publisher, Close> publisher_;
    std::set<std::string> failing_; // objects
    // By id; with their texts.
    std::map<int32_t, std::pair<catalogue::Source, std::string>> sources_;
    int32_t index_ = 0; // of the track, with its session and texts
    uint64_t tsid_ = 0;
    std::string node_;
    std::string metadata_;
};

// Holds the bell of one publisher until its destructor, so that an answer is sent before readers
// are woken, and several changes wake them once.
class HeldBell {
  public:
    HeldBell() = default;
    ~HeldBell() {
        if (publisher_) {
            publisher_->release_bell();
        }
    }
    HeldBell(const HeldBell &) = delete;
    HeldBell &operator=(const HeldBell &) = delete;

    // Call it once.
    void hold(Publisher &publisher) {
        publisher.hold_bell();
        publisher_ = &publisher;
    }

  private:
    Publisher *publisher_ = nullptr;
};

} // namespace vantro::service::publishing

#endif
