#include "bridges/mpd/partitions.h"

#include <algorithm>

#include <fmt/format.h>

#include "bridges/mpd/ack.h"
#include "bridges/mpd/service_call.h"

namespace vantro::mpd {

std::vector<std::string> Partitions::names() {
    std::vector<std::string> names;
    if (const Result<Names> told = default_partition().player().players()) {
        names.assign(told->begin(), told->end());
    } else if (told.failure().why() != Reason::refused) {
        throw_ack(told.failure());
    } else {
        for (const Partition &each : all_) {
            names.push_back(each.name());
        }
    }
    return names;
}

Partition &Partitions::get(const std::string &name) {
    const auto found = std::find_if(all_.begin(), all_.end(),
                                    [&](const Partition &each) { return each.name() == name; });
    if (found != all_.end()) {
        return *found;
    }
    const std::vector<std::string> known = names();
    if (std::find(known.begin(), known.end(), name) == known.end()) {
        throw Ack(AckCode::no_exist, fmt::format("there is no player \"{}\"", name));
    }
    return all_.emplace_back(name);
}

uint64_t Partitions::catalogue_version() const {
    uint64_t version = 0;
    for (const Partition &each : all_) {
        version += each.catalogue_version();
    }
    return version;
}

} // namespace vantro::mpd
