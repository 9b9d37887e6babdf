// Permissions of clients, and the passwords that give them.
#ifndef VANTRO_BRIDGES_MPD_PERMISSIONS_H
#define VANTRO_BRIDGES_MPD_PERMISSIONS_H

#include <bitset>
#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace vantro::mpd {

// The protocol's permissions; each command needs one.
enum class Permission {
    read,    // Commands that change nothing.
    add,     // Adding songs and playlists to the queue.
    player,  // Playback, its modes and the queue.
    control, // Saved playlists and updates, and everything that `player` allows.
    admin,   // Outputs.
    none,    // No permission is needed.
    nobody,  // The command is known, and always refused.
};

class Permissions {
  public:
    static Permissions all();
    // Names with commas between them. @throws std::invalid_argument for one that does not exist.
    static Permissions parse(std::string_view names);

    bool allow(Permission permission) const;

  private:
    std::bitset<static_cast<size_t>(Permission::none)> allowed_;
};

class Passwords {
  public:
    // Without a file there are no passwords, and every client may do everything.
    Passwords() = default;

    // Reads lines of the form PASSWORD@PERMISSIONS; a line without a password is for clients that
    // have not given one, which may otherwise do nothing. Empty lines, and lines that begin with
    // "#", are ignored. @throws std::runtime_error, with the number of a wrong line.
    static Passwords read(const std::string &path);

    // The permissions of a client that has given no password.
    const Permissions &at_first() const { return at_first_; }

    // The permissions for this password; NULL if it is wrong. The time that this takes does not
    // show which part of the password is wrong.
    const Permissions *find(std::string_view password) const;

    bool empty() const { return passwords_.empty(); }

  private:
    struct Entry {
        std::string password;
        Permissions permissions;
    };

    void add_line(std::string_view line);

    Permissions at_first_ = Permissions::all();
    std::vector<Entry> passwords_;
};

} // namespace vantro::mpd

#endif
