#include "service/publishing/publisher.h"

#include <cerrno>
#include <utility>

#include <fmt/format.h>

#include <vantro/catalogue.h>
#include <vantro/platform/limits.h>
#include <vantro/platform/log.h>

#include "service/options.h"
#include "service/publishing/record_json.h"

namespace vantro::service::publishing {

namespace {

// Single objects, and all objects together, stay far below the limits of publishing: a JSON text is
// at most doubled when it is published, and everything else in an object is short.
constexpr size_t object_most = 2 * 2 * json_max + 1024;
static_assert(object_most <= OBJECT_CHANGE_MAX);
static_assert((music_max + 5) * object_most / 2 + object_most <= OBJECT_TOTAL_MAX);

constexpr const char *states[] = {"", "idle", "playing", "paused", "stopped"};
static_assert(VANTRO_STATE_IDLE == 1 && VANTRO_STATE_STOPPED == 4);
constexpr const char *repeat_modes[] = {"off", "all", "one"};
static_assert(VANTRO_REPEAT_ALL == 1 && VANTRO_REPEAT_ONE == 2);
constexpr const char *shuffle_modes[] = {"off", "on"};

} // namespace

Result<std::unique_ptr<Publisher>> Publisher::open(const std::string &player,
                                                   const object_readers &readers, Log log) {
    const std::string directory = "/kivo/services/vantro/" + player;
    object_publisher *publisher = object_publisher_open_for(directory.c_str(), &readers);
    if (!publisher) {
        const int code = errno;
        const std::string what = fmt::format("cannot publish for the player \"{}\"", player);
        return code == EADDRINUSE
                   ? Error(Error::Origin::system, code, what + ": another process does")
                   : Error::failed(Error::Origin::system, code, what);
    }
    return std::unique_ptr<Publisher>(new Publisher(player, std::move(log), publisher));
}

Publisher::~Publisher() {
    object_delete(publisher_.get(), "state");
}

bool Publisher::done(int result, const std::string &object) {
    const int code = errno;
    if (result == 0) {
        failing_.erase(object);
    } else if (failing_.insert(object).second) {
        log_(LOG_SEVERITY_ERROR,
             log_text(Error::failed(
                 Error::Origin::system, code,
                 fmt::format("player \"{}\": cannot publish \"{}\"", player_, object))));
    }
    return result == 0;
}

bool Publisher::publish(const std::string &object,
                        std::initializer_list<object_attribute> attributes) {
    return done(
        object_publish(publisher_.get(), object.c_str(), 0, attributes.begin(), attributes.size()),
        object);
}

void Publisher::state(const VantroStateInfo &modes, int32_t error) {
    const std::string code = std::to_string(error);
    publish("state", {{"status", KIVO_TEXT, states[modes.state]},
                      {"rate", KIVO_NUMBER, fmt::format("{}", modes.rate).c_str()},
                      {"repeat", KIVO_TEXT, repeat_modes[modes.repeat]},
                      {"shuffle", KIVO_TEXT, shuffle_modes[modes.shuffle]},
                      {"error", KIVO_NUMBER, error != 0 ? code.c_str() : nullptr}});
}

void Publisher::trksession(int32_t type, int32_t length, uint64_t tsid) {
    publish("trksession", {{"type", KIVO_NUMBER, std::to_string(type).c_str()},
                           {"length", KIVO_NUMBER, std::to_string(length).c_str()},
                           {"tsid", KIVO_NUMBER, std::to_string(tsid).c_str()}});
}

void Publisher::track(int32_t index, uint64_t tsid, const catalogue::Node *node,
                      const catalogue::SongMetadata *metadata) {
    index_ = index;
    tsid_ = tsid;
    node_ = node ? json_of(*node) : "";
    metadata_ = metadata ? json_of(*metadata) : "";
    if (!publish("track", {{"index", KIVO_NUMBER, std::to_string(index).c_str()},
                           {"tsid", KIVO_NUMBER, std::to_string(tsid).c_str()},
                           {"media_node", node ? KIVO_JSON : KIVO_TEXT, node_.c_str()},
                           {"metadata", KIVO_JSON, metadata ? metadata_.c_str() : nullptr}})) {
        node_.assign(1, unpublished);
    }
}

void Publisher::track_changed(const catalogue::Node *node,
                              const catalogue::SongMetadata *metadata) {
    if ((node ? json_of(*node) : "") != node_ ||
        (metadata ? json_of(*metadata) : "") != metadata_) {
        track(index_, tsid_, node, metadata);
    }
}

void Publisher::position(int32_t position_ms) {
    publish("status", {{"position", KIVO_NUMBER, std::to_string(position_ms).c_str()}});
}

void Publisher::volume(const VantroVolume &volume) {
    publish("volume", {{"level", KIVO_NUMBER, std::to_string(volume.level).c_str()},
                       {"muted", KIVO_BOOLEAN, volume.muted != 0 ? "true" : "false"}});
}

void Publisher::session_gone() {
    for (const char *object : {"status", "track", "trksession"}) {
        done(object_delete(publisher_.get(), object), object);
    }
}

void Publisher::source(const catalogue::Source &source, bool again) {
    std::string text = json_of(source);
    const auto published = sources_.find(source.id);
    if (published != sources_.end() && text == published->second.second && !again) {
        return;
    }
    if (publish("mediasource." + source.uid,
                {{"type", KIVO_NUMBER, std::to_string(source.type).c_str()},
                 {"media_source", KIVO_JSON, text.c_str()}})) {
        sources_[source.id] = {source, std::move(text)};
    }
}

bool Publisher::source_gone(int32_t id) {
    const auto found = sources_.find(id);
    if (found == sources_.end()) {
        return false;
    }
    catalogue::Source source = found->second.first;
    source.status = VANTRO_SOURCE_UNAVAILABLE;
    const std::string object = "mediasource." + source.uid;
    publish(object, {{"type", KIVO_NUMBER, std::to_string(VANTRO_SOURCE_GONE).c_str()},
                     {"media_source", KIVO_JSON, json_of(source).c_str()}});
    done(object_delete(publisher_.get(), object.c_str()), object);
    sources_.erase(found);
    return true;
}

std::vector<int32_t> Publisher::sources() const {
    std::vector<int32_t> ids;
    for (const auto &each : sources_) {
        ids.push_back(each.first);
    }
    return ids;
}

} // namespace vantro::service::publishing
