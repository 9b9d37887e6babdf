// The objects of one player, which applications follow.
//
// Every attribute of an object is published with every change of it, so that a change that got lost
// leaves no trace behind the next one. An object that cannot be published is logged once, until it
// can be again; the player goes on.
//
// The size of all objects is bounded by what they are made of: see publisher.cpp.
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

#include <vantro/platform/objects.h>
#include <vantro/player.h>

#include "service/catalogue/catalogue.h"

namespace vantro::service::publishing {

class Publisher {
  public:
    // As StoreOptions::log.
    using Log = std::function<void(int severity, const std::string &line)>;

    // Becomes the publisher of a player, which those readers may follow. Returns nothing, and in
    // `error` why, where it cannot.
    static std::unique_ptr<Publisher> open(const std::string &player, const object_readers &readers,
                                           Log log, std::string &error);

    // Readers are told of the end: the state goes, then the directory.
    ~Publisher();
    Publisher(const Publisher &) = delete;
    Publisher &operator=(const Publisher &) = delete;

    // `error` is a VANTRO_ERROR_*, or 0.
    void state(const VantroStateInfo &modes, int32_t error);
    void trksession(int32_t type, int32_t length, uint64_t tsid);
    // Without node and metadata where nothing is known of the track.
    void track(int32_t index, uint64_t tsid, const catalogue::Node *node,
               const catalogue::SongMetadata *metadata);
    void position(int32_t position_ms);
    // Neither session nor track nor position.
    void session_gone();
    // Where it is not what was published last, or `again`.
    void source(const catalogue::Source &source, bool again);

    // The same again where something else is now known of the track published last.
    void track_changed(const catalogue::Node *node, const catalogue::SongMetadata *metadata);

  private:
    struct Close {
        void operator()(object_publisher *publisher) const { object_publisher_close(publisher); }
    };
    Publisher(std::string player, Log log, object_publisher *publisher)
        : player_(std::move(player)), log_(std::move(log)), publisher_(publisher) {}

    static constexpr char unpublished = '-'; // no JSON text

    bool publish(const std::string &object, std::initializer_list<object_attribute> attributes);
    bool done(int result, const std::string &object);

    const std::string player_;
    const Log log_;
    const std::unique_ptr<object_publisher, Close> publisher_;
    std::set<std::string> failing_;          // objects
    std::map<int32_t, std::string> sources_; // their texts, by id
    int32_t index_ = 0;                      // of the track, with its session and texts
    uint64_t tsid_ = 0;
    std::string node_;
    std::string metadata_;
};

} // namespace vantro::service::publishing

#endif
