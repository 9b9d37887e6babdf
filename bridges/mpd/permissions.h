// What clients may do, and the passwords by which they may do more.
#ifndef VANTRO_BRIDGES_MPD_PERMISSIONS_H
#define VANTRO_BRIDGES_MPD_PERMISSIONS_H

#include <bitset>
#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace vantro::mpd {

// As the protocol has them; each command needs one.
enum class Permission {
    read,    // Everything that changes nothing.
    add,     // Songs and playlists may come into the queue.
    player,  // Playback, its modes and the queue.
    control, // Saved playlists and updates, and what `player` may.
    admin,   // Outputs.
    none,    // For everybody.
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
    // Without a file everybody may do everything, and there are no passwords.
    Passwords() = default;

    // Reads lines of the form PASSWORD@PERMISSIONS; one without a password is for clients that have
    // not given any, which may do nothing otherwise. Empty lines, and those that begin with "#", do
    // not count. @throws std::runtime_error, with the number of a line that is wrong.
    static Passwords read(const std::string &path);

    // What a client may do that has given none.
    const Permissions &at_first() const { return at_first_; }

    // What one may do that gives this password; NULL if it is wrong. As long as it takes does not
    // tell where it is wrong.
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
