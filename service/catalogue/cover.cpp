#include "service/catalogue/cover.h"

#include <algorithm>

namespace vantro::service::catalogue {

std::optional<int> picture_rank(std::string_view name) {
    std::string lower(name);
    std::transform(lower.begin(), lower.end(), lower.begin(), [](char c) {
        return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    });
    const size_t dot = std::min(lower.rfind('.'), lower.size());
    const std::string ending = lower.substr(dot);
    if (ending != ".jpg" && ending != ".jpeg" && ending != ".png") {
        return std::nullopt;
    }
    int rank = 0;
    for (const char *stem : {"cover", "folder", "front", "albumcover", "album"}) {
        if (lower.compare(0, dot, stem) == 0) {
            return rank;
        }
        ++rank;
    }
    return plain_picture_rank;
}

void FolderCover::offer(const std::string &name, const std::string &path, FileStamp stamp) {
    const std::optional<int> rank = picture_rank(name);
    if (!rank || *rank > rank_) {
        return;
    }
    several_ = *rank == rank_;
    if (!several_ || name < best_.name) {
        best_ = {name, path, stamp};
    }
    rank_ = *rank;
}

const FolderCover::Picture *FolderCover::chosen() const {
    const bool unclear = rank_ == plain_picture_rank && several_;
    return best_.name.empty() || unclear ? nullptr : &best_;
}

SongId cover_song(const List &entries) {
    const bool has_song = !entries.entries.empty() && entries.entries.back().is_song();
    return has_song ? entries.entries.back().id() : 0;
}

} // namespace vantro::service::catalogue
