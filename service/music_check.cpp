#include "service/music_check.h"

#include <algorithm>
#include <cerrno>
#include <filesystem>

#include <fmt/format.h>

namespace vantro::service {

namespace {

using Paths = std::vector<std::string>;

std::optional<Error> check_each(const Paths &directories, const Paths &known) {
    for (auto directory = directories.begin(); directory != directories.end(); ++directory) {
        std::error_code error;
        const std::filesystem::directory_iterator entries(*directory, error);
        if (error && std::find(known.begin(), known.end(), *directory) == known.end()) {
            const char *const hint = directory->starts_with('~')
                                         ? " (only a shell replaces ~: write the full path)"
                                         : "";
            return Error::failed(Error::Origin::music, error.value(),
                                 fmt::format("cannot read '{}'{}", *directory, hint));
        }
        const auto same = [&](const std::string &other) {
            return std::filesystem::equivalent(*directory, other, error);
        };
        if (std::any_of(directories.begin(), directory, same)) {
            return Error(Error::Origin::music, EEXIST,
                         fmt::format("'{}' is given twice", *directory));
        }
    }
    return std::nullopt;
}

std::optional<Error> check_nesting(const Options &options) {
    Paths others = options.music;
    others.insert(others.end(), options.media_roots.begin(), options.media_roots.end());
    const auto whole = [](const std::string &path) {
        std::error_code error;
        return (std::filesystem::weakly_canonical(path, error) / "").native();
    };
    for (size_t i = options.music.size(); i < others.size(); ++i) {
        for (size_t k = 0; k < i; ++k) {
            const std::string one = whole(others[i]);
            const std::string two = whole(others[k]);
            if (one.starts_with(two) || two.starts_with(one)) {
                return Error(
                    Error::Origin::music, EEXIST,
                    fmt::format("one of '{}' and '{}' contains the other", others[i], others[k]));
            }
        }
    }
    return std::nullopt;
}

} // namespace

std::optional<WrongMusic> check_music(const Options &options, const Paths &known) {
    if (std::optional<Error> error = check_each(options.music, known)) {
        return WrongMusic{place_of(options, "music"), *std::move(error)};
    }
    std::optional<Error> error = check_each(options.media_roots, known);
    if (!error) {
        error = check_nesting(options);
    }
    if (error) {
        return WrongMusic{place_of(options, "media-root"), *std::move(error)};
    }
    return std::nullopt;
}

} // namespace vantro::service
