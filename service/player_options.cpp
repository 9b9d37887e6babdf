// What the options say of one player, and where they were set.
#include <algorithm>
#include <map>
#include <string_view>

#include <fmt/format.h>

#include "service/options.h"
#include "service/playback/engine.h"

namespace vantro::service {

namespace {

// Whether a device names that output, alone or among others: "alsa,jack/NAME" names two.
bool names_output(std::string_view device, std::string_view output) {
    std::string_view names = device.substr(0, device.find('/'));
    while (!names.empty()) {
        const size_t comma = names.find(',');
        if (names.substr(0, comma) == output) {
            return true;
        }
        names.remove_prefix(comma == names.npos ? names.size() : comma + 1);
    }
    return false;
}

// A player's value of an option that applies to all players or to one.
template <typename Value>
Value value_for(const std::map<std::string, Value> &values, const std::string &player,
                Value otherwise) {
    auto value = values.find(player);
    if (value == values.end()) {
        value = values.find("");
    }
    return value == values.end() ? otherwise : value->second;
}

} // namespace

std::string device_of(const Options &options, const std::string &player) {
    return value_for(options.audio_devices, player, std::string());
}

std::string check_outputs(const Options &options) {
    for (const std::string output : one_player_outputs) {
        const auto uses = [&](const std::string &player) {
            return names_output(device_of(options, player), output);
        };
        const auto &players = options.players;
        const auto first = std::find_if(players.begin(), players.end(), uses);
        if (first == players.end()) {
            continue;
        }
        if (const auto second = std::find_if(first + 1, players.end(), uses);
            second != players.end()) {
            return fmt::format("players '{}' and '{}' cannot both use {}: its library serves one",
                               *first, *second, output);
        }
    }
    return "";
}

int volume_limit_of(const Options &options, const std::string &player) {
    return value_for(options.volume_limits, player, playback::volume_max);
}

std::string place_of(const Options &options, const std::string &key) {
    for (const config::Setting &each : options.settings) {
        if (each.key == key && each.origin.find(':') != std::string::npos) {
            return fmt::format("{}: {}: ", each.origin, key);
        }
    }
    return fmt::format("--{}: ", key);
}

} // namespace vantro::service
