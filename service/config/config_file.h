// Configuration files: TOML, read for the parser of the command line. A key is an option's name
// without the hyphens before it.
#ifndef VANTRO_SERVICE_CONFIG_CONFIG_FILE_H
#define VANTRO_SERVICE_CONFIG_CONFIG_FILE_H

#include <iosfwd>
#include <map>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include "service/config/setting.h"

namespace vantro::service::config {

// The file that is read if none is named: the machine's, else the user's; "" if neither is
// there.
std::string default_file();

// How the options of a program are read from a file. The command line wins over the file: an option
// that is on it is not taken from the file at all.
class ConfigFile : public CLI::Config {
  public:
    // Borrows the parser, which has `--config` already.
    explicit ConfigFile(const CLI::App &app) : app_(app) {}

    // Throws CLI::ConfigError with "FILE:LINE: KEY: what is wrong".
    std::vector<CLI::ConfigItem> from_config(std::istream &input) const override;

    // A whole file: each option with its description, and its value, or its default as a comment.
    std::string to_config(const CLI::App *app, bool, bool, std::string) const override;

    // An error text about an option. If that was taken from the file, the text begins with the
    // place.
    std::string placed(const std::string &error) const;

    // Every option that a file can have, in their order.
    std::vector<Setting> settings() const;

  private:
    const CLI::App &app_;
    mutable std::string path_; // of the file that was read
    // By key: the lines of what was taken from it.
    mutable std::map<std::string, size_t> lines_;
};

} // namespace vantro::service::config

#endif
