// The policy (who holds which capability), and the check line that queries it.
#ifndef VANTRO_TOOLS_GRANTOR_POLICY_H
#define VANTRO_TOOLS_GRANTOR_POLICY_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace vantro::grantor {

// Bytes of a capability's name.
constexpr size_t capability_max = 255;

// Bytes of a check line. One write to the device carries at most this many, so a longer list is
// refused, and never judged by its beginning.
constexpr size_t check_line_max = 4096;

// Bytes of a policy file. A longer file is refused: it is unlikely to be a policy.
constexpr size_t policy_file_max = 1024 * 1024;

// An immutable set of rules.
class Policy {
  public:
    // An error in a policy text: its line, from 1, or 0 for the whole text.
    struct Problem {
        size_t line;
        std::string what;
    };

    // Reads a whole text. One bad line makes the text invalid.
    // @param problems receives the error of each bad line.
    static std::optional<Policy> parse(std::string_view text, std::vector<Problem> &problems);

    // parse() for the contents of a file; a file that cannot be read is a problem of line 0.
    static std::optional<Policy> load(const std::string &path, std::vector<Problem> &problems);

    size_t rule_count() const { return rules_.size(); }

    // Whether a rule gives the capability to the user or the group. Always false for an empty name.
    bool grants(uint32_t uid, uint32_t gid, std::string_view capability) const;

  private:
    enum class Holder { user, group, everybody };

    struct Rule {
        Holder holder = Holder::everybody;
        uint32_t id = 0;
        std::vector<std::string> capabilities; // "*" stands for every one.
    };

    static std::optional<Rule> parse_rule(std::string_view line, std::string &what);

    std::vector<Rule> rules_;
};

// A question to the device: does this user or group hold these capabilities?
struct CheckLine {
    uint32_t uid = 0;
    uint32_t gid = 0;
    std::vector<std::string_view> capabilities; // As listed, including empty and repeated ones.
};

// Reads "chkcap UID,GID,LIST", the list joined by commas. The entries point into `line`.
// @return nothing for any other text, one with control characters in it, or one too long.
std::optional<CheckLine> parse_check_line(std::string_view line);

// The number of listed capabilities that are granted.
int count_granted(const Policy &policy, const CheckLine &check);

} // namespace vantro::grantor

#endif
