#include "tools/grantor/policy.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <memory>

#include <fmt/format.h>

namespace vantro::grantor {
namespace {

// The value that means "no id" on Linux: no user has it, so a rule for it is a mistake.
constexpr uint32_t no_id = UINT32_MAX;

constexpr std::string_view every_capability = "*";

struct Closer {
    void operator()(std::FILE *file) const { std::fclose(file); }
};

std::optional<uint32_t> parse_id(std::string_view text) {
    uint32_t id = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), id);
    if (text.empty() || error != std::errc() || end != text.data() + text.size()) {
        return std::nullopt;
    }
    return id;
}

bool is_plain(char c) {
    return static_cast<unsigned char>(c) > ' ' && c != 0x7F;
}

bool is_capability(std::string_view word) {
    // A comma separates the entries of a check line, so a name with a comma could never be queried.
    return word.size() <= capability_max && std::all_of(word.begin(), word.end(), [](char c) {
               return is_plain(c) && c != ',' && c != '#';
           });
}

// A word in a form that is safe in a line of the log.
std::string shown(std::string_view word) {
    std::string text(word.substr(0, 40));
    std::replace_if(
        text.begin(), text.end(), [](char c) { return !is_plain(c); }, '?');
    return text + (word.size() > 40 ? "..." : "");
}

std::string_view take_word(std::string_view &line) {
    constexpr std::string_view blanks = " \t\r";
    const size_t start = std::min(line.find_first_not_of(blanks), line.size());
    line.remove_prefix(start);
    const size_t length = std::min(line.find_first_of(blanks), line.size());
    const std::string_view word = line.substr(0, length);
    line.remove_prefix(length);
    return word;
}

std::optional<std::string_view> take_prefix(std::string_view word, std::string_view prefix) {
    return word.substr(0, prefix.size()) == prefix ? std::optional(word.substr(prefix.size()))
                                                   : std::nullopt;
}

} // namespace

std::optional<Policy::Rule> Policy::parse_rule(std::string_view line, std::string &what) {
    Rule rule;
    const std::string_view who = take_word(line);
    const auto user = take_prefix(who, "uid:");
    const auto group = take_prefix(who, "gid:");
    if (user || group) {
        rule.holder = user ? Holder::user : Holder::group;
        const auto id = parse_id(user ? *user : *group);
        if (!id || *id == no_id) {
            what = fmt::format("\"{}\" does not end in the number of a user or group", shown(who));
            return std::nullopt;
        }
        rule.id = *id;
    } else if (who != "*") {
        what = fmt::format("\"{}\" is not uid:NUMBER, gid:NUMBER or *", shown(who));
        return std::nullopt;
    }
    for (std::string_view word = take_word(line); !word.empty(); word = take_word(line)) {
        if (!is_capability(word)) {
            what = fmt::format("\"{}\" is not the name of a capability", shown(word));
            return std::nullopt;
        }
        rule.capabilities.emplace_back(word);
    }
    if (rule.capabilities.empty()) {
        what = "no capability is named";
        return std::nullopt;
    }
    return rule;
}

std::optional<Policy> Policy::parse(std::string_view text, std::vector<Problem> &problems) {
    Policy policy;
    bool good = true;
    for (size_t number = 1; !text.empty(); ++number) {
        const size_t length = std::min(text.find('\n'), text.size());
        std::string_view line = text.substr(0, length);
        text.remove_prefix(std::min(length + 1, text.size()));
        line = line.substr(0, line.find('#'));
        if (std::string_view rest = line; take_word(rest).empty()) {
            continue;
        }
        std::string what;
        if (auto rule = parse_rule(line, what)) {
            policy.rules_.push_back(std::move(*rule));
        } else {
            problems.push_back({number, std::move(what)});
            good = false;
        }
    }
    return good ? std::optional(std::move(policy)) : std::nullopt;
}

std::optional<Policy> Policy::load(const std::string &path, std::vector<Problem> &problems) {
    const std::unique_ptr<std::FILE, Closer> file(std::fopen(path.c_str(), "re"));
    std::string text(policy_file_max + 1, '\0');
    if (file) {
        text.resize(std::fread(text.data(), 1, text.size(), file.get()));
    }
    if (!file || std::ferror(file.get())) {
        problems.push_back({0, std::strerror(errno)});
        return std::nullopt;
    }
    if (text.size() > policy_file_max) {
        problems.push_back({0, fmt::format("longer than {} bytes", policy_file_max)});
        return std::nullopt;
    }
    return parse(text, problems);
}

bool Policy::grants(uint32_t uid, uint32_t gid, std::string_view capability) const {
    if (capability.empty()) {
        return false;
    }
    return std::any_of(rules_.begin(), rules_.end(), [&](const Rule &rule) {
        const bool concerned = rule.holder == Holder::everybody ||
                               rule.id == (rule.holder == Holder::user ? uid : gid);
        return concerned && std::any_of(rule.capabilities.begin(), rule.capabilities.end(),
                                        [&](const std::string &granted) {
                                            return granted == capability ||
                                                   granted == every_capability;
                                        });
    });
}

std::optional<CheckLine> parse_check_line(std::string_view line) {
    const auto fields = take_prefix(line, "chkcap ");
    if (!fields || line.size() > check_line_max ||
        !std::all_of(fields->begin(), fields->end(), is_plain)) {
        return std::nullopt;
    }
    const size_t uid_end = fields->find(',');
    const size_t gid_end =
        uid_end == std::string_view::npos ? uid_end : fields->find(',', uid_end + 1);
    if (gid_end == std::string_view::npos) {
        return std::nullopt;
    }
    const auto uid = parse_id(fields->substr(0, uid_end));
    const auto gid = parse_id(fields->substr(uid_end + 1, gid_end - uid_end - 1));
    if (!uid || !gid) {
        return std::nullopt;
    }
    CheckLine check{*uid, *gid, {}};
    std::string_view list = fields->substr(gid_end + 1);
    for (size_t comma = list.find(','); comma != std::string_view::npos; comma = list.find(',')) {
        check.capabilities.push_back(list.substr(0, comma));
        list.remove_prefix(comma + 1);
    }
    check.capabilities.push_back(list);
    return check;
}

int count_granted(const Policy &policy, const CheckLine &check) {
    return static_cast<int>(std::count_if(
        check.capabilities.begin(), check.capabilities.end(), [&](std::string_view capability) {
            return policy.grants(check.uid, check.gid, capability);
        }));
}

} // namespace vantro::grantor
