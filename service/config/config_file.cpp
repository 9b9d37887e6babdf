#include "service/config/config_file.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <filesystem>
#include <set>
#include <unistd.h>

#include <fmt/format.h>

#include "service/config/toml_items.h"

namespace vantro::service::config {

namespace {

constexpr const char *machine_file = "/etc/vantro/vantrod.toml";
constexpr const char *user_file = "vantro/vantrod.toml"; // below the user's configuration
constexpr size_t columns = 78;                           // of a comment's text

const std::string &key_of(const CLI::Option &option) {
    static const std::string none;
    return option.get_lnames().empty() ? none : option.get_lnames().front();
}

bool is_flag(const CLI::Option &option) {
    return option.get_expected_max() == 0 || option.get_type_size_max() == 0;
}

bool is_list(const CLI::Option &option) {
    return option.get_items_expected_max() > 1;
}

bool is_number(const std::string &text) {
    return !text.empty() && text.size() < 18 && (text == "0" || text.front() != '0') &&
           std::all_of(text.begin(), text.end(), [](unsigned char c) { return std::isdigit(c); });
}

std::string scalar(const CLI::Option &option, const std::string &text) {
    return is_flag(option) || is_number(text) ? text : toml_text(text);
}

// The option's given value as TOML; "" for none.
std::string value_of(const CLI::Option &option) {
    const std::vector<std::string> &results = option.results();
    if (results.empty()) {
        return "";
    }
    if (!is_list(option)) {
        return scalar(option, results.back());
    }
    std::string list = "[";
    for (const std::string &each : results) {
        list += (list.size() > 1 ? ", " : "") + scalar(option, each);
    }
    return list + ']';
}

// An example value for an option that the file does not set.
std::string example_of(const CLI::Option &option) {
    if (is_flag(option)) {
        return "false";
    }
    const std::string &type = option.get_type_name();
    const std::string text = toml_text(type.empty() ? key_of(option) : type);
    return is_list(option) ? '[' + text + ']' : text;
}

// A text in lines of comments.
std::string comment(const std::string &text) {
    std::string lines;
    std::string line = "#";
    size_t at = 0;
    while (at < text.size()) {
        const size_t end = std::min(text.find(' ', at), text.size());
        const std::string word = text.substr(at, end - at);
        if (line.size() + 1 + word.size() > columns && line.size() > 1) {
            lines += line + '\n';
            line = "#";
        }
        line += ' ' + word;
        at = end + 1;
    }
    return lines + line + '\n';
}

std::vector<const CLI::Option *> file_options(const CLI::App &app) {
    std::vector<const CLI::Option *> options = app.get_options();
    std::erase_if(options, [&app](const CLI::Option *option) {
        return !option->get_configurable() || option == app.get_help_ptr() ||
               option == app.get_config_ptr() || key_of(*option).empty();
    });
    return options;
}

} // namespace

std::string default_file() {
    if (::access(machine_file, R_OK) == 0) {
        return machine_file;
    }
    const char *const base = std::getenv("XDG_CONFIG_HOME");
    const char *const home = std::getenv("HOME");
    std::filesystem::path file;
    if (base && *base == '/') {
        file = std::filesystem::path(base) / user_file;
    } else if (home && *home == '/') {
        file = std::filesystem::path(home) / ".config" / user_file;
    }
    return !file.empty() && ::access(file.c_str(), R_OK) == 0 ? file.string() : "";
}

std::vector<CLI::ConfigItem> ConfigFile::from_config(std::istream &input) const {
    for (const char *name : {"--help", "--version"}) {
        if (const CLI::Option *asked = app_.get_option_no_throw(name);
            asked && asked->count() > 0) {
            return {}; // reported also with a broken file
        }
    }
    path_ = app_.get_config_ptr()->as<std::string>();
    const auto fail = [this](size_t line, const std::string &what) {
        throw CLI::ConfigError(fmt::format("{}:{}: {}", path_, line, what),
                               CLI::ExitCodes::ConfigError);
    };
    std::vector<CLI::ConfigItem> found;
    try {
        const std::vector<const CLI::Option *> known = file_options(app_);
        for (const TomlItem &each : read_toml(input)) {
            const auto option =
                std::find_if(known.begin(), known.end(),
                             [&each](const CLI::Option *one) { return key_of(*one) == each.key; });
            if (option == known.end()) {
                fail(each.line, each.key + ": there is no such key");
            }
            if (each.is_list && !is_list(**option)) {
                fail(each.line, each.key + ": it takes one value, not a list");
            }
            if (is_flag(**option) && each.values[0] != "true" && each.values[0] != "false") {
                fail(each.line, each.key + ": it is true or false");
            }
            const std::set<CLI::Option *> excluded = (*option)->get_excludes();
            const bool is_overruled =
                (*option)->count() > 0 ||
                std::any_of(excluded.begin(), excluded.end(),
                            [](const CLI::Option *other) { return other->count() > 0; });
            if (is_overruled || each.values.empty()) {
                continue; // set by the command line, or an empty list
            }
            lines_[each.key] = each.line;
            found.emplace_back();
            found.back().name = each.key;
            found.back().inputs = each.values;
        }
    } catch (const TomlError &error) {
        fail(error.line, error.what());
    }
    return found;
}

std::string ConfigFile::to_config(const CLI::App *app, bool, bool, std::string) const {
    std::string text = comment("The configuration of vantrod. Each key is an option of its command "
                               "line, which overrides this file.");
    for (const CLI::Option *option : file_options(*app)) {
        text += '\n' + comment(option->get_description() + '.');
        const std::string value = value_of(*option);
        text += value.empty() ? fmt::format("#{} = {}\n", key_of(*option), example_of(*option))
                              : fmt::format("{} = {}\n", key_of(*option), value);
    }
    return text;
}

std::string ConfigFile::placed(const std::string &error) const {
    for (const auto &[key, line] : lines_) {
        const std::string name = "--" + key;
        const size_t at = error.find(name);
        const size_t end = at + name.size();
        if (at == std::string::npos ||
            (end < error.size() && (std::isalnum(error[end]) || error[end] == '-'))) {
            continue; // the error is not about this option, or about one whose name begins with
                      // this one's
        }
        const bool begins = at == 0 && error.compare(end, 2, ": ") == 0;
        return fmt::format("{}:{}: {}", path_, line, begins ? error.substr(2) : error);
    }
    return error;
}

std::vector<Setting> ConfigFile::settings() const {
    std::vector<Setting> settings;
    for (const CLI::Option *option : file_options(app_)) {
        const std::string &key = key_of(*option);
        const auto line = lines_.find(key);
        settings.push_back({key, value_of(*option),
                            line != lines_.end()  ? fmt::format("{}:{}", path_, line->second)
                            : option->count() > 0 ? "command line"
                                                  : "default"});
    }
    return settings;
}

} // namespace vantro::service::config
