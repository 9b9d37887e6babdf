#ifndef VANTRO_SERVICE_CONFIG_SETTING_H
#define VANTRO_SERVICE_CONFIG_SETTING_H

#include <string>

namespace vantro::service::config {

// One option as it will be used.
struct Setting {
    std::string key;
    std::string value;  // in TOML; "" where the option is left to its default
    std::string origin; // "FILE:LINE", "command line" or "default"
};

} // namespace vantro::service::config

#endif
