// Configuration files in TOML, read for the parser of the command line. A key is an option's name
// without the leading hyphens.
#ifndef VANTRO_SERVICE_CONFIG_CONFIG_FILE_H
#define VANTRO_SERVICE_CONFIG_CONFIG_FILE_H

#include <iosfwd>
#include <map>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include "service/config/setting.h"

namespace vantro::service::config {

// The default file: the machine's, else the user's; "" if neither exists.
std::string default_file();

// Reads the options of a program from a file. The command line overrides the file: an option on the
// command line is not read from the file at all.
class ConfigFile : public CLI::Config {
  public:
    // Borrows the parser, which has `--config` already.
    explicit ConfigFile(const CLI::App &app) : app_(app) {}

    // Throws CLI::ConfigError with a text "FILE:LINE: KEY: ERROR".
    std::vector<CLI::ConfigItem> from_config(std::istream &input) const override;

    // A complete file: each option with its description and its value, or its default as a comment.
    std::string to_config(const CLI::App *app, bool, bool, std::string) const override;

    // An error text about an option. If the option was read from the file, the text begins with the
    // place in the file.
    std::string placed(const std::string &error) const;

    // All options that a file can have, in their order.
    std::vector<Setting> settings() const;

  private:
    const CLI::App &app_;
    mutable std::string path_; // of the file that was read
    // The line of each key that was read.
    mutable std::map<std::string, size_t> lines_;
};

} // namespace vantro::service::config

#endif
