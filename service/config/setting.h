#ifndef VANTRO_SERVICE_CONFIG_SETTING_H
#define VANTRO_SERVICE_CONFIG_SETTING_H

#include <string>

namespace vantro::service::config {

// The effective value of one option.
struct Setting {
    std::string key;
    std::string value;  // in TOML; "" if the option has its default
    std::string origin; // "FILE:LINE", "command line" or "default"
};

} // namespace vantro::service::config

#endif
