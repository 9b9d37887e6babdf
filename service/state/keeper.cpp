#include "service/state/keeper.h"

#include <cerrno>
#include <exception>
#include <fcntl.h>
#include <fstream>
#include <iterator>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

#include <fmt/format.h>

#include <vantro/platform/log.h>

namespace vantro::service::state {

namespace {

constexpr const char *session_name = "session";
constexpr const char *position_name = "position";
constexpr const char *damaged = "it is damaged";

Result<std::string> read(const std::filesystem::path &file, size_t most) {
    struct stat status = {};
    if (::stat(file.c_str(), &status) != 0) {
        return Error(Error::Origin::state, errno);
    }
    if (!S_ISREG(status.st_mode) || static_cast<uint64_t>(status.st_size) > most) {
        return Error::damage(Error::Origin::state, damaged);
    }
    std::ifstream input(file, std::ios::binary);
    std::string text{std::istreambuf_iterator<char>(input), std::istreambuf_iterator<char>()};
    if (!input) {
        return Error(Error::Origin::state, EIO);
    }
    return text;
}

bool same_session(const playback::Engine::Saved &a, const playback::Engine::Saved &b) {
    return a.session == b.session && a.order == b.order;
}

bool same_position(const playback::Engine::Saved &a, const playback::Engine::Saved &b) {
    return a.place == b.place && a.position_us == b.position_us && a.modes.state == b.modes.state &&
           a.modes.rate == b.modes.rate && a.modes.repeat == b.modes.repeat &&
           a.modes.shuffle == b.modes.shuffle && a.volume.level == b.volume.level &&
           a.volume.muted == b.volume.muted;
}

bool sync_folder(const std::filesystem::path &folder) {
    const int descriptor = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (descriptor < 0) {
        return false;
    }
    const bool good = ::fsync(descriptor) == 0;
    ::close(descriptor);
    return good;
}

bool write_all(int descriptor, const std::string &text) {
    for (size_t done = 0; done < text.size();) {
        const ssize_t now = ::write(descriptor, text.data() + done, text.size() - done);
        if (now < 0 && errno != EINTR) {
            return false;
        }
        done += static_cast<size_t>(now > 0 ? now : 0);
    }
    return true;
}

} // namespace

Keeper::Keeper(playback::Players &players, std::filesystem::path directory, Log log)
    : players_(players), directory_(std::move(directory)), log_(std::move(log)), kept_(players_max),
      worker_("keeper", [this] { return keep_all(); }) {
    for (size_t i = 0; i < players_.size(); ++i) {
        kept_[i] = std::make_unique<Kept>();
    }
}

std::filesystem::path Keeper::folder_of(const playback::Player &player) const {
    return directory_ / player.name;
}

void Keeper::restore(bool resume) {
    for (size_t i = 0; i < players_.size(); ++i) {
        restore(i, players_[i], resume);
    }
}

void Keeper::restore(size_t at, playback::Player &player, bool resume) {
    kept_.at(at) = std::make_unique<Kept>();
    Kept &kept = *kept_[at];
    const std::filesystem::path session_file = folder_of(player) / session_name;
    const std::filesystem::path position_file = folder_of(player) / position_name;
    const Result<std::string> session = read(session_file, session_bytes_max);
    std::optional<KeptPlayer> found = session ? read_session(*session) : std::nullopt;
    if (!found) {
        if (session || session.error().kind() != Error::Kind::gone) {
            set_aside(session_file, session ? damaged : log_text(session.error()));
        }
        return;
    }
    kept.session_written = kept.position_written = true;
    const Result<std::string> position = read(position_file, position_bytes_max);
    if (position ? !read_position(*position, *found)
                 : position.error().kind() != Error::Kind::gone) {
        set_aside(position_file, position ? damaged : log_text(position.error()));
    }
    kept.player = *found;
    player.restore(found->saved, resume);
}

// The player starts without this file; the damaged file is kept for inspection.
void Keeper::set_aside(const std::filesystem::path &file, const std::string &why) {
    std::error_code error;
    const std::string aside = file.native() + ".broken";
    std::filesystem::rename(file, aside, error);
    log_(LOG_SEVERITY_WARNING, fmt::format("'{}' is not used: {}{}", file.native(), why,
                                           error ? "" : fmt::format(" (it is '{}' now)", aside)));
}

void Keeper::start() {
    worker_.start();
    keeps_ = true;
}

void Keeper::finish() {
    worker_.stop();
    if (std::exchange(keeps_, false)) {
        keep_all();
    }
}

std::optional<std::chrono::nanoseconds> Keeper::keep_all() {
    bool again = false;
    for (size_t i = 0; i < players_.size(); ++i) {
        try {
            keep(players_[i], *kept_[i]);
        } catch (const std::exception &) {
            again = true; // there was no memory
        }
        again =
            again || kept_[i]->fails || kept_[i]->player.saved.modes.state == VANTRO_STATE_PLAYING;
    }
    return again ? std::optional<std::chrono::nanoseconds>(position_every) : std::nullopt;
}

void Keeper::keep(playback::Player &player, Kept &kept) {
    playback::Engine::Saved now = player.saved();
    if (!same_session(now, kept.player.saved)) {
        kept.session_written = false;
    }
    if (!same_position(now, kept.player.saved)) {
        kept.position_written = false;
    }
    const bool is_new = !kept.session_written && !now.session && !kept.player.saved.session &&
                        kept.player.edition == 0 && same_position(now, {});
    kept.player.saved = std::move(now);
    if (is_new || (kept.session_written && kept.position_written)) {
        return; // the player was never used, or its file is up to date
    }
    const std::filesystem::path folder = folder_of(player);
    std::optional<Error> error;
    if (!kept.session_written) {
        kept.player.edition = editions_();
        error = write(folder / session_name, write_session(kept.player));
        kept.session_written = kept.position_written = !error;
    } else {
        error = write(folder / position_name, write_position(kept.player));
        kept.position_written = !error;
    }
    const bool failed_before = std::exchange(kept.fails, error.has_value());
    if (error && !failed_before) {
        log_(LOG_SEVERITY_ERROR, fmt::format("player \"{}\" cannot be saved for a restart: {}",
                                             player.name, log_text(*error)));
    } else if (!error && failed_before) {
        log_(LOG_SEVERITY_NOTICE,
             fmt::format("player \"{}\" is saved for a restart again", player.name));
    }
}

// Replaces a file. Returns an error if that fails.
std::optional<Error> Keeper::write(const std::filesystem::path &file, const std::string &text) {
    std::error_code ignored; // open() reports the error
    const bool made = std::filesystem::create_directories(file.parent_path(), ignored);
    const std::string part = file.native() + ".part";
    // Removes the partial file, which itself may fill the disk.
    const auto failed = [&part](const char *what) {
        const int reason = errno;
        ::unlink(part.c_str());
        return Error::failed(Error::Origin::state, reason, fmt::format("{} '{}'", what, part));
    };
    const int descriptor =
        ::open(part.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW, 0600);
    if (descriptor < 0) {
        return failed("cannot open");
    }
    bool good = write_all(descriptor, text) && ::fsync(descriptor) == 0;
    const int reason = errno;
    good = ::close(descriptor) == 0 && good;
    if (!good) {
        errno = reason;
        return failed("cannot write");
    }
    if (::rename(part.c_str(), file.c_str()) != 0 || !sync_folder(file.parent_path()) ||
        (made && !(sync_folder(directory_) && sync_folder(directory_.parent_path())))) {
        return failed("cannot replace the file by");
    }
    return std::nullopt;
}

} // namespace vantro::service::state
