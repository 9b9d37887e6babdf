#include "bridges/web/players.h"

#include <algorithm>

#include "bridges/web/api_error.h"
#include "bridges/web/service_call.h"

namespace vantro::web {

std::vector<std::string> Players::names() {
    if (failure_ && !reconnecting_.is_due_when_asked()) {
        throw api_error_of(*failure_);
    }
    std::vector<std::string> names;
    const Result<Player> player =
        reconnecting_.connect(nullptr, [&names](Player &one) -> Result<void> {
            const Result<Names> found = one.players();
            if (!found) {
                return found.failure();
            }
            names.assign(found->begin(), found->end());
            return {};
        });
    if (!player) {
        failure_ = player.failure();
        throw api_error_of(*failure_);
    }
    failure_.reset();
    return names;
}

PlayerLink &Players::find(const std::string &name) {
    if (const auto found = links_.find(name); found != links_.end()) {
        return found->second;
    }
    const std::vector<std::string> known = names();
    if (std::find(known.begin(), known.end(), name) == known.end()) {
        throw ApiError(404, "not_found", "there is no such player");
    }
    return links_.try_emplace(name, name).first->second;
}

} // namespace vantro::web
