#include "tools/vantroctl/output/json_output.h"

#include <algorithm>

#include "tools/vantroctl/output/json_object.h"
#include "tools/vantroctl/output/node_view.h"
#include "tools/vantroctl/output/status_view.h"
#include "tools/vantroctl/text/node_ref.h"

namespace vantro::ctl {
namespace {

void add_node(JsonObject &object, const Node &node) {
    object.key("node").known_text(node_ref(node));
    object.key("source_id").number(node.source);
    object.key("id").text(node.id);
    object.key("name").known_text(node.name);
    object.key("type").text(node_type_name(node.type));
    object.key("count").number(node.count);
    if (!node.artist.empty()) {
        object.key("artist").text(node.artist);
    }
    if (!node.album.empty()) {
        object.key("album").text(node.album);
    }
    if (node.duration_ms > 0) {
        object.key("duration_ms").number(node.duration_ms);
    }
    if (!node.nodes.empty()) {
        object.objects("nodes", node.nodes, [&](const Node &below) { add_node(object, below); });
    }
}

} // namespace

std::string json_status(const PlayerStatus &status) {
    JsonObject object(status.player, "status");
    add_modes(object, status);
    object.key("position_ms").number(status.position_ms);
    object.key("track");
    add_track(object, status.track);
    object.key("session");
    add_session(object, status.session);
    if (status.volume) {
        object.key("volume").number(status.volume->level);
        object.key("muted").boolean(status.volume->muted);
    }
    return object.line();
}

std::string json_current(const PlayerStatus &status) {
    JsonObject object(status.player, "current");
    object.key("track");
    add_track(object, status.track);
    return object.line();
}

std::string json_players(const std::vector<PlayerStatus> &players) {
    JsonObject object;
    object.key("ok").boolean(true);
    object.key("command").text("players");
    object.objects("players", players, [&](const PlayerStatus &player) {
        object.key("player").text(player.player);
        add_modes(object, player);
        object.key("track");
        add_track(object, player.track);
    });
    return object.line();
}

std::string json_done(const std::string &player, const CommandResult &done) {
    JsonObject object(player, done.command);
    if (done.position_ms) {
        object.key("position_ms").number(*done.position_ms);
    }
    if (done.rate) {
        object.key("rate").rate(*done.rate);
    }
    if (done.shuffle) {
        object.key("shuffle").boolean(*done.shuffle);
    }
    if (done.repeat) {
        object.key("repeat").text(repeat_name(*done.repeat));
    }
    if (done.volume) {
        object.key("volume").number(*done.volume);
    }
    if (done.muted) {
        object.key("muted").boolean(*done.muted);
    }
    if (done.index) {
        object.key("index").number(*done.index);
    }
    if (done.track) {
        object.key("track");
        add_track(object, done.track);
    }
    if (done.session) {
        object.key("session_id").number(*done.session);
    }
    if (done.saved) {
        object.key("saved").number(*done.saved);
    }
    if (done.found) {
        object.key("songs").number(*done.found);
    }
    if (done.scanning) {
        object.key("scanning").boolean(*done.scanning);
    }
    return object.line();
}

std::string json_sources(const std::string &player, const std::vector<Source> &sources) {
    JsonObject object(player, "sources");
    object.objects("sources", sources, [&](const Source &source) { add_source(object, source); });
    return object.line();
}

std::string json_nodes(const std::string &player, const std::string &command,
                       const std::vector<Node> &nodes) {
    JsonObject object(player, command);
    object.objects("nodes", nodes, [&](const Node &node) { add_node(object, node); });
    return object.line();
}

std::string json_tracks(const std::string &player, const SessionStatus &session,
                        std::optional<int32_t> current, int32_t first,
                        const std::vector<Node> &tracks) {
    JsonObject object(player, "tracks");
    object.key("session");
    add_session(object, session);
    object.key("current");
    current ? object.number(*current) : object.null();
    object.objects("tracks", tracks, [&, index = first](const Node &track) mutable {
        object.key("index").number(index++);
        add_node(object, track);
    });
    return object.line();
}

std::string json_queued(const std::string &player, int32_t index, const std::vector<Node> &tracks) {
    JsonObject object(player, "queued");
    object.key("track");
    if (tracks.empty()) {
        object.null();
    } else {
        object.begin().key("index").number(index);
        add_node(object, tracks.front());
        object.end();
    }
    return object.line();
}

std::string json_values(const std::string &player, const Place &place, const Values &values) {
    JsonObject object(player, "info");
    object.key("node").text(ref_text(place.source, place.id));
    object.key("source_id").number(place.source);
    object.key("id").text(place.id);
    object.key("values").begin();
    for (const auto &[key, value] : values) {
        object.key(key);
        value ? object.text(*value) : object.null();
    }
    object.end();
    return object.line();
}

std::string json_identity(const Identity &identity) {
    JsonObject object;
    object.key("ok").boolean(true);
    object.key("command").text("whoami");
    object.key("pid").number(identity.pid);
    object.key("uid").number(identity.uid);
    object.key("user").known_text(identity.user);
    object.key("gid").number(identity.gid);
    object.key("group").known_text(identity.group);
    object.numbers("groups", identity.groups);
    object.texts("capabilities", identity.capabilities);
    object.key("service_pid").number(identity.service_pid);
    object.key("version").text(identity.version);
    return object.line();
}

std::string json_findings(const std::vector<Finding> &findings) {
    const auto bad = std::find_if(findings.begin(), findings.end(), [](const Finding &finding) {
        return finding.kind == Finding::Kind::bad;
    });
    JsonObject object;
    object.key("ok").boolean(bad == findings.end());
    object.key("command").text("doctor");
    if (bad != findings.end()) {
        object.key("error").text(bad->text);
        object.key("code").number(static_cast<int>(bad->outcome));
    }
    object.objects("findings", findings, [&](const Finding &finding) {
        object.key("result").text(kind_name(finding.kind));
        object.key("subject").text(finding.subject);
        object.key("text").text(finding.text);
        object.key("fix").known_text(finding.fix);
    });
    return object.line();
}

std::string json_failure(const Failure &failure) {
    JsonObject object;
    object.key("ok").boolean(false);
    object.key("error").text(failure.text);
    object.key("code").number(static_cast<int>(failure.outcome));
    return object.line();
}

} // namespace vantro::ctl
