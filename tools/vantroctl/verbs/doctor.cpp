#include "tools/vantroctl/verbs/doctor.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <grp.h>
#include <pwd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <fmt/format.h>

#include <vantro/catalogue.h>
#include <vantro/extras.h>
#include <vantro/version.h>

#include "tools/vantroctl/model/identity.h"
#include "tools/vantroctl/output/colour.h"
#include "tools/vantroctl/output/json_output.h"
#include "tools/vantroctl/output/node_view.h"
#include "tools/vantroctl/output/standard_output.h"
#include "tools/vantroctl/service/arrival.h"
#include "tools/vantroctl/service/catalogue_queries.h"
#include "tools/vantroctl/service/refusal.h"
#include "tools/vantroctl/text/display_text.h"

namespace vantro::ctl {
namespace {

using Kind = Finding::Kind;

std::string user_name(uint32_t uid) {
    const passwd *entry = getpwuid(uid);
    return entry ? entry->pw_name : "";
}

std::string group_name(uint32_t gid) {
    const group *entry = getgrgid(gid);
    return entry ? entry->gr_name : "";
}

// "anna (1000)", or only the number.
std::string named(const std::string &name, uint32_t number) {
    return name.empty() ? fmt::format("{}", number) : fmt::format("{} ({})", name, number);
}

std::vector<std::string> split(std::string_view list) {
    std::vector<std::string> parts;
    while (!list.empty()) {
        const size_t end = std::min(list.find(','), list.size());
        parts.emplace_back(list.substr(0, end));
        list.remove_prefix(std::min(end + 1, list.size()));
    }
    return parts;
}

// Nothing if the service does not offer the query.
std::optional<Identity> identity_of(Client &client) {
    VantroIdentity record = {};
    const int32_t reason = client.ask(
        "whoami", [&](VantroHandle *handle) { return vantro_get_identity(handle, &record); });
    if (reason != 0 && reason != ENOSYS) {
        throw refusal("whoami", reason);
    }
    if (reason != 0) {
        return std::nullopt;
    }
    return Identity{.pid = record.pid,
                    .uid = record.uid,
                    .user = user_name(record.uid),
                    .gid = record.gid,
                    .group = group_name(record.gid),
                    .groups = {record.groups, record.groups + record.group_count},
                    .capabilities = split(record.capabilities),
                    .service_pid = record.service_pid,
                    .version = record.version};
}

ClientOptions without_player(const ClientOptions &options) {
    ClientOptions one = options;
    one.player.clear();
    return one;
}

class Doctor {
  public:
    explicit Doctor(const ClientOptions &options) : options_(options) {}

    std::vector<Finding> look() {
        look_at_roots();
        try {
            Client client(without_player(options_));
            good("service", fmt::format("the service answers, and runs as {}", owner_of(socket_)));
            look_at_identity(client);
            look_at_players(client);
        } catch (const NoService &) {
            explain_absence();
        } catch (const Failure &failure) {
            failure.outcome == Outcome::denied ? explain_denial() : fail("service", failure);
        }
        return std::move(findings_);
    }

  private:
    void good(const char *subject, std::string text) {
        findings_.push_back({Kind::good, subject, std::move(text)});
    }
    void note(const char *subject, std::string text, std::string fix) {
        findings_.push_back({Kind::note, subject, std::move(text), std::move(fix)});
    }
    void bad(const char *subject, Outcome outcome, std::string text, std::string fix) {
        findings_.push_back({Kind::bad, subject, std::move(text), std::move(fix), outcome});
    }
    // In a failure's text, the remedy follows a colon or a semicolon.
    void fail(const char *subject, const Failure &failure) {
        const size_t end = std::min(failure.text.find_first_of(":;"), failure.text.size());
        const size_t fix = std::min(end + 2, failure.text.size());
        bad(subject, failure.outcome, failure.text.substr(0, end), failure.text.substr(fix));
    }

    // Reports the directories in which services are searched, and the one that holds a service's
    // name.
    void look_at_roots() {
        const std::vector<RuntimeRoot> roots = runtime_roots();
        const char *const own = getenv("XDG_RUNTIME_DIR");
        if (own && !roots.front().of_user) {
            note("root", fmt::format("the XDG_RUNTIME_DIR {} is not used", own),
                 "it must be the absolute path of a directory that you own and that nobody else "
                 "may write");
        }
        std::vector<std::string> places;
        for (const RuntimeRoot &root : roots) {
            places.push_back(root.parent + "/vantro");
            for (const char *place : service_places) {
                const std::string path = fmt::format("{}/{}", places.back(), place);
                if (root_.empty() && is_served(path)) {
                    socket_ = path;
                    root_ = places.back();
                    by_name_ = place != service_places[0];
                }
            }
        }
        if (root_.empty()) {
            note("root", fmt::format("no service in {}", fmt::join(places, ", ")),
                 "a service that was started with another XDG_RUNTIME_DIR cannot be found");
        } else {
            good("root", root_);
        }
    }

    // Whether a process listens on the socket; a service that was killed leaves its socket behind.
    static bool is_served(const std::string &path) {
        struct stat status = {};
        sockaddr_un address = {};
        if (stat(path.c_str(), &status) != 0 || !S_ISSOCK(status.st_mode)) {
            return false;
        }
        address.sun_family = AF_UNIX;
        const int descriptor = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
        if (path.size() >= sizeof address.sun_path || descriptor < 0) {
            return true; // No contrary evidence is visible to this process.
        }
        path.copy(address.sun_path, path.size());
        const bool dead =
            connect(descriptor, reinterpret_cast<sockaddr *>(&address), sizeof address) != 0 &&
            errno == ECONNREFUSED;
        close(descriptor);
        return !dead;
    }

    static std::string owner_of(const std::string &path) {
        struct stat status = {};
        return stat(path.c_str(), &status) == 0 ? named(user_name(status.st_uid), status.st_uid)
                                                : "an unknown user";
    }

    // A service that demands capabilities refuses a client as if no service ran.
    void explain_absence() {
        if (!root_.empty() && by_name_) {
            explain_denial();
        } else {
            bad("service", Outcome::absent, "no service answers",
                "start one: systemctl --user start vantrod, or vantrod --music DIR");
        }
    }

    void explain_denial() {
        const std::string text = fmt::format(
            "the service, run by {}, does not admit user {} of group {}", owner_of(socket_),
            named(user_name(geteuid()), geteuid()), named(group_name(getegid()), getegid()));
        bad("rights", Outcome::denied, text,
            by_name_ ? "it was started with --require: have the grantor's policy give this user "
                       "those capabilities"
                     : "have it started with other --perms, --uid or --gid, or join its group");
    }

    void look_at_identity(Client &client) {
        const std::optional<Identity> identity = identity_of(client);
        if (!identity) {
            note("version", "the service does not report its version",
                 "the service is older than this tool (" VANTRO_VERSION
                 "), or another service than vantrod");
            return;
        }
        good("rights", fmt::format("user {} of group {} is admitted, {}",
                                   named(identity->user, identity->uid),
                                   named(identity->group, identity->gid),
                                   identity->capabilities.empty()
                                       ? "by permission bits"
                                       : fmt::format("with the capabilities {}",
                                                     fmt::join(identity->capabilities, ", "))));
        if (identity->version == VANTRO_VERSION) {
            good("version", fmt::format("{} of service and tool", identity->version));
        } else {
            note("version",
                 fmt::format("service {}, tool " VANTRO_VERSION, clean_text(identity->version)),
                 "restart the service, or install the same version of both");
        }
    }

    void look_at_players(Client &client) {
        const std::vector<std::string> names = client.player_names();
        const std::string list = fmt::format("{}", fmt::join(names, ", "));
        if (std::find(names.begin(), names.end(), options_.player) == names.end()) {
            bad("players", Outcome::absent,
                fmt::format("there is no player {} (players: {})", options_.player, list),
                "add --player NAME, or start vantrod with it");
            return;
        }
        good("players", list);
        Client player(options_);
        look_at_music(player);
        look_at_events(player);
    }

    void look_at_music(Client &client) {
        std::vector<Source> sources = get_sources(client);
        std::erase_if(sources, [](const Source &source) {
            // It contains only songs of other sources.
            return source.type == VANTRO_SOURCE_PLAYLISTS;
        });
        if (sources.empty()) {
            bad("music", Outcome::not_found, "there is no media source",
                "start vantrod with --music DIR");
        }
        for (const Source &source : sources) {
            int32_t songs = 0;
            for (const Node &node : browse_page(client, {source.id, VANTRO_NODE_ROOT}, 0, 100)) {
                songs = node.id == "songs" ? node.count : songs;
            }
            const std::string text =
                fmt::format("source {} ({}) is {}, with {} songs", source.id, source.name,
                            source_status_name(source.status), songs);
            if (source.status == VANTRO_SOURCE_UNAVAILABLE) {
                bad("music", Outcome::not_found, text,
                    "mount the directory, or let the service's user read it");
            } else if (songs == 0 && source.status == VANTRO_SOURCE_SCANNING) {
                note("music", text, "wait for the scan");
            } else if (songs == 0) {
                bad("music", Outcome::not_found, text,
                    "add music that the service's user can read; the service's log lists the files "
                    "that it left out");
            } else {
                good("music", text);
            }
        }
    }

    void look_at_events(Client &client) {
        const bool followed = vantro_event_get(client.handle());
        const int error = errno;
        const std::string ring =
            fmt::format("{}/kivo/services/vantro/{}/ring", root_, options_.player);
        struct stat status = {};
        std::string rights;
        if (stat(ring.c_str(), &status) == 0) {
            rights =
                fmt::format(" (permission bits {:o}, owner {}, group {})", status.st_mode & 0777,
                            named(user_name(status.st_uid), status.st_uid),
                            named(group_name(status.st_gid), status.st_gid));
        }
        if (followed) {
            good("events", fmt::format("{} can be followed{}", options_.player, rights));
        } else {
            bad("events", error == EACCES ? Outcome::denied : Outcome::failed,
                fmt::format("{} cannot be followed: {}{}", options_.player, std::strerror(error),
                            rights),
                "start vantrod with other --perms, --uid or --gid");
        }
    }

    const ClientOptions &options_;
    std::vector<Finding> findings_;
    std::string root_;   // The directory in which the service was found.
    std::string socket_; // The socket of the service.
    bool by_name_ = false;
};

std::string line_of(const Finding &finding) {
    const std::string text = clean_text(finding.text);
    const std::string fix = clean_text(finding.fix);
    const Ink ink = finding.kind == Kind::bad ? Ink::wrong : Ink::plain;
    if (!output_is_terminal()) {
        return painted(ink, fmt::format("{}\t{}\t{}\t{}\n", kind_name(finding.kind),
                                        finding.subject, text, fix));
    }
    std::string line;
    const int columns = std::max(output_columns() - 20, 20);
    std::string label = fmt::format("{:<6}{:<14}", kind_name(finding.kind), finding.subject);
    for (const std::string *part : {&text, &fix}) {
        for (const std::string &row :
             part->empty() ? std::vector<std::string>() : fold_text(*part, columns)) {
            line += std::exchange(label, std::string(20, ' ')) + row + '\n';
        }
    }
    return painted(ink, line);
}

} // namespace

Outcome run_doctor(const ClientOptions &options, bool json) {
    const std::vector<Finding> findings = Doctor(options).look();
    const auto first = std::find_if(findings.begin(), findings.end(), [](const Finding &finding) {
        return finding.kind == Kind::bad;
    });
    if (json) {
        print(json_findings(findings));
    } else {
        std::string text;
        for (const Finding &finding : findings) {
            text += line_of(finding);
        }
        print(text);
    }
    return first == findings.end() ? Outcome::done : first->outcome;
}

void run_whoami(const ClientOptions &options, bool json) {
    Client client(without_player(options));
    const std::optional<Identity> identity = identity_of(client);
    if (!identity) {
        throw refusal("whoami", ENOSYS);
    }
    if (json) {
        print(json_identity(*identity));
        return;
    }
    print(clean_text(fmt::format("user: {}", named(identity->user, identity->uid))) + '\n');
    print(clean_text(fmt::format("group: {}", named(identity->group, identity->gid))) + '\n');
    print(fmt::format("groups: {}\n", fmt::join(identity->groups, " ")));
    print(clean_text(fmt::format("capabilities: {}", fmt::join(identity->capabilities, " "))) +
          '\n');
    print(fmt::format("process: {}\nservice: {}\nversion: {}\n", identity->pid,
                      identity->service_pid, clean_text(identity->version)));
}

} // namespace vantro::ctl
