// The keys and values of a TOML file.
#ifndef VANTRO_SERVICE_CONFIG_TOML_ITEMS_H
#define VANTRO_SERVICE_CONFIG_TOML_ITEMS_H

#include <cstddef>
#include <iosfwd>
#include <stdexcept>
#include <string>
#include <vector>

namespace vantro::service::config {

struct TomlItem {
    std::string key;
    size_t line = 0;
    std::vector<std::string> values; // all elements of a list
    bool is_list = false;
};

struct TomlError : std::runtime_error {
    TomlError(size_t where, const std::string &what) : std::runtime_error(what), line(where) {}
    size_t line;
};

// The items in the order of their lines. Throws TomlError if the input is not TOML, or has a value
// that no option can have: tables, lists of lists, dates.
std::vector<TomlItem> read_toml(std::istream &input);

// A text as a TOML string, with quotes.
std::string toml_text(const std::string &text);

} // namespace vantro::service::config

#endif
