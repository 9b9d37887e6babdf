#include "tools/vantroctl/verbs/playlists.h"

#include <cerrno>

#include <fmt/format.h>

#include <vantro/extras.h>

#include "tools/vantroctl/failure.h"
#include "tools/vantroctl/output/standard_output.h"
#include "tools/vantroctl/service/client.h"
#include "tools/vantroctl/service/refusal.h"
#include "tools/vantroctl/text/display_text.h"

namespace vantro::ctl {
namespace {

Failure explained(const std::string &verb, const std::string &name, int32_t reason) {
    const std::string shown = clean_text(name);
    switch (reason) {
    case EINVAL:
        return {Outcome::usage,
                fmt::format("\"{}\" cannot name a playlist: a name is 1 to 200 bytes of UTF-8, "
                            "with no slash, no control characters and no dot at the start",
                            shown)};
    case EEXIST:
        return {Outcome::failed,
                fmt::format("a playlist \"{}\" exists: use save --replace to replace it", shown)};
    case ENOENT:
        return {Outcome::not_found,
                fmt::format("no playlist \"{}\": vantroctl playlists lists them", shown)};
    case ENODATA:
        return {Outcome::not_found, "no tracks to save: load a node or play first"};
    case EMSGSIZE:
        return {Outcome::failed, "more tracks than a playlist may have (100000)"};
    case EDQUOT:
        return {Outcome::failed, "the limit of saved playlists is reached: delete some"};
    case ENOSPC:
        return {Outcome::failed, "the service's disk is full; its playlists are as they were"};
    case EACCES:
    case EROFS:
        return {Outcome::failed, "the service may not write to its folder of playlists; its log "
                                 "says more"};
    default:
        return refusal(verb, reason);
    }
}

} // namespace

CommandResult run_save(Client &client, const std::string &name, bool replace) {
    int32_t saved = 0;
    const std::optional<SessionStatus> session = client.session();
    const int32_t reason = client.ask("save", [&](VantroHandle *handle) {
        saved = vantro_save_playlist(handle, name.c_str(),
                                     replace ? int32_t{VANTRO_PLAYLIST_REPLACE} : 0);
        return saved < 0 ? -1 : 0;
    });
    if (reason != 0) {
        throw explained("save", name, reason);
    }
    if (session && saved < session->length) {
        complain(fmt::format("{} of {} tracks have left the catalogue and are not in the playlist",
                             session->length - saved, session->length));
    }
    return {.command = "save", .saved = saved};
}

CommandResult run_delete_playlist(Client &client, const std::string &name) {
    const int32_t reason = client.ask("delete-playlist", [&](VantroHandle *handle) {
        return vantro_delete_playlist(handle, name.c_str());
    });
    if (reason != 0) {
        throw explained("delete-playlist", name, reason);
    }
    return {.command = "delete-playlist"};
}

} // namespace vantro::ctl
