#include "bridges/mpd/permissions.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <stdexcept>

#include <fmt/format.h>

namespace vantro::mpd {
namespace {

struct Name {
    std::string_view name;
    Permission permission;
};

constexpr std::array names = {
    Name{"read", Permission::read},     Name{"add", Permission::add},
    Name{"player", Permission::player}, Name{"control", Permission::control},
    Name{"admin", Permission::admin},
};

// Takes the same time for all passwords of the same length.
bool equal(std::string_view given, std::string_view password) {
    unsigned difference = given.size() == password.size() ? 0 : 1;
    for (size_t i = 0; i < given.size(); ++i) {
        difference |= static_cast<unsigned char>(given[i]) ^
                      static_cast<unsigned char>(password[i % password.size()]);
    }
    return difference == 0;
}

} // namespace

Permissions Permissions::all() {
    Permissions permissions;
    permissions.allowed_.set();
    return permissions;
}

Permissions Permissions::parse(std::string_view text) {
    Permissions permissions;
    while (!text.empty()) {
        const std::string_view name = text.substr(0, text.find(','));
        text.remove_prefix(std::min(text.size(), name.size() + 1));
        const auto *const found = std::find_if(
            names.begin(), names.end(), [name](const Name &each) { return each.name == name; });
        if (found == names.end()) {
            throw std::invalid_argument(
                fmt::format("\"{}\" is not one of read, add, player, control and admin", name));
        }
        permissions.allowed_.set(static_cast<size_t>(found->permission));
        if (found->permission == Permission::control) {
            permissions.allowed_.set(static_cast<size_t>(Permission::player));
        }
    }
    return permissions;
}

bool Permissions::allow(Permission permission) const {
    return permission == Permission::none ||
           (permission != Permission::nobody && allowed_[static_cast<size_t>(permission)]);
}

Passwords Passwords::read(const std::string &path) {
    std::ifstream file(path);
    if (!file) {
        throw std::runtime_error(fmt::format("{}: {}", path, std::strerror(errno)));
    }
    Passwords passwords;
    passwords.at_first_ = Permissions();
    int number = 0;
    for (std::string line; std::getline(file, line);) {
        ++number;
        try {
            passwords.add_line(line);
        } catch (const std::invalid_argument &error) {
            throw std::runtime_error(fmt::format("{}:{}: {}", path, number, error.what()));
        }
    }
    if (file.bad()) {
        throw std::runtime_error(fmt::format("{} cannot be read", path));
    }
    if (passwords.empty()) {
        throw std::runtime_error(fmt::format("{} has no password", path));
    }
    return passwords;
}

void Passwords::add_line(std::string_view line) {
    if (line.ends_with('\r')) {
        line.remove_suffix(1);
    }
    if (line.empty() || line.starts_with('#')) {
        return;
    }
    const size_t at = line.rfind('@');
    if (at == std::string_view::npos) {
        throw std::invalid_argument("PASSWORD@PERMISSIONS expected");
    }
    const std::string_view password = line.substr(0, at);
    const Permissions permissions = Permissions::parse(line.substr(at + 1));
    if (password.empty()) {
        at_first_ = permissions;
        return;
    }
    if (std::any_of(passwords_.begin(), passwords_.end(),
                    [password](const Entry &each) { return each.password == password; })) {
        throw std::invalid_argument("the password occurs twice");
    }
    passwords_.push_back({std::string(password), permissions});
}

const Permissions *Passwords::find(std::string_view password) const {
    const Permissions *found = nullptr;
    for (const Entry &each : passwords_) {
        if (equal(password, each.password)) {
            found = &each.permissions;
        }
    }
    return found;
}

} // namespace vantro::mpd
