#include "bridges/web/players.h"

#include <algorithm>
#include <chrono>

#include "bridges/web/api_error.h"
#include "bridges/web/service_call.h"

namespace vantro::web {
namespace {

constexpr std::chrono::milliseconds answer_limit(5000);

} // namespace

std::vector<std::string> Players::names() {
    Player player = checked(Player::connect(answer_limit));
    const Names found = checked(player.players());
    return {found.begin(), found.end()};
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
