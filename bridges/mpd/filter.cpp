#include "bridges/mpd/filter.h"

#include <algorithm>

#include <fmt/format.h>

#include "bridges/mpd/ack.h"
#include "bridges/mpd/reply.h"
#include "bridges/mpd/text.h"

namespace vantro::mpd {
namespace {

[[noreturn]] void refuse(const std::string &text) {
    throw Ack(AckCode::argument, text);
}

bool is_name(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '-' || c == '_';
}

} // namespace

// One expression in parentheses.
class Filter::Parser {
  public:
    Parser(Filter &filter, std::string_view text) : filter_(filter), rest_(text) {}

    Condition parse_all() {
        Condition condition = parse_parentheses(0);
        skip_blanks();
        if (!rest_.empty()) {
            refuse("something follows the filter expression");
        }
        return condition;
    }

  private:
    Condition parse_parentheses(int depth) {
        if (depth == filter_depth_max) {
            refuse("the filter expression is nested too deeply");
        }
        if (++count_ > filter_conditions_max) {
            refuse("the filter expression has too many parts");
        }
        expect('(');
        skip_blanks();
        Condition condition;
        if (!rest_.empty() && rest_.front() == '(') {
            condition = parse_group(depth);
        } else if (!rest_.empty() && rest_.front() == '!') {
            rest_.remove_prefix(1);
            skip_blanks();
            condition = parse_parentheses(depth + 1);
            condition.negated = !condition.negated;
        } else {
            condition = parse_condition();
        }
        skip_blanks();
        expect(')');
        return condition;
    }

    Condition parse_group(int depth) {
        Condition group;
        group.subject = Subject::group;
        while (true) {
            group.parts.push_back(parse_parentheses(depth + 1));
            skip_blanks();
            if (rest_.empty() || rest_.front() == ')') {
                return group;
            }
            const std::string_view word = take_name();
            if (word != "AND") {
                refuse(fmt::format("AND expected in the filter expression, not \"{}\"", word));
            }
            skip_blanks();
        }
    }

    Condition parse_condition() {
        Condition condition;
        set_subject(condition, take_name());
        skip_blanks();
        if (condition.subject != Subject::base && condition.subject != Subject::modified_since) {
            parse_test(condition);
            skip_blanks();
        }
        filter_.set_value(condition, take_quoted());
        return condition;
    }

    void parse_test(Condition &condition) {
        struct Operator {
            std::string_view text;
            Test test;
            bool negated;
        };
        constexpr Operator operators[] = {{"==", Test::equal, false},
                                          {"!=", Test::equal, true},
                                          {"contains", Test::contains, false},
                                          {"!contains", Test::contains, true},
                                          {"starts_with", Test::starts_with, false},
                                          {"!starts_with", Test::starts_with, true},
                                          {"=~", Test::pattern, false},
                                          {"!~", Test::pattern, true}};
        for (const Operator &each : operators) {
            if (rest_.starts_with(each.text)) {
                rest_.remove_prefix(each.text.size());
                condition.test = each.test;
                condition.negated = each.negated;
                return;
            }
        }
        refuse("unknown operator in the filter expression");
    }

    std::string take_quoted() {
        if (rest_.empty() || (rest_.front() != '\'' && rest_.front() != '"')) {
            refuse("a value in quotation marks expected in the filter expression");
        }
        const char quote = rest_.front();
        std::string value;
        for (size_t at = 1; at < rest_.size(); ++at) {
            char c = rest_[at];
            if (c == quote) {
                rest_.remove_prefix(at + 1);
                return value;
            }
            if (c == '\\' && at + 1 < rest_.size()) {
                c = rest_[++at];
            }
            value += c;
        }
        refuse("a closing quotation mark is missing in the filter expression");
    }

    std::string_view take_name() {
        const size_t length = static_cast<size_t>(
            std::find_if_not(rest_.begin(), rest_.end(), is_name) - rest_.begin());
        const std::string_view name = rest_.substr(0, length);
        rest_.remove_prefix(length);
        return name;
    }

    void expect(char c) {
        if (rest_.empty() || rest_.front() != c) {
            refuse(fmt::format("'{}' expected in the filter expression", c));
        }
        rest_.remove_prefix(1);
    }

    void skip_blanks() {
        while (!rest_.empty() && (rest_.front() == ' ' || rest_.front() == '\t')) {
            rest_.remove_prefix(1);
        }
    }

    Filter &filter_;
    std::string_view rest_;
    size_t count_ = 0;
};

void Filter::set_subject(Condition &condition, std::string_view name) {
    struct Special {
        std::string_view name;
        Subject subject;
    };
    constexpr Special specials[] = {{"any", Subject::any},
                                    {"file", Subject::file},
                                    {"filename", Subject::file},
                                    {"base", Subject::base},
                                    {"modified-since", Subject::modified_since},
                                    {"AudioFormat", Subject::audio_format}};
    for (const Special &each : specials) {
        if (same_name(each.name, name)) {
            condition.subject = each.subject;
            return;
        }
    }
    const std::optional<Tag> tag = tag_named(name);
    if (!tag) {
        refuse(fmt::format("unknown tag \"{}\"", name));
    }
    condition.tag = *tag;
}

void Filter::set_value(Condition &condition, std::string value) {
    if (condition.subject == Subject::modified_since) {
        const std::optional<int64_t> time = parse_time(value);
        if (!time) {
            refuse(fmt::format("no time: \"{}\"", value));
        }
        condition.time = *time;
        return;
    }
    if (condition.test == Test::pattern) {
        if (++patterns_ > filter_patterns_max) {
            refuse("the filter has too many regular expressions");
        }
        condition.pattern = std::make_shared<const Pattern>(value, letters_ == Case::folded);
        return;
    }
    const bool exact = letters_ == Case::as_written || condition.subject == Subject::base;
    condition.value = exact ? std::move(value) : folded(value);
}

Filter Filter::parse(std::span<const std::string> words, Case letters) {
    Filter filter;
    filter.letters_ = letters;
    for (size_t at = 0; at < words.size(); ++at) {
        if (words[at].starts_with('(')) {
            filter.conditions_.push_back(Parser(filter, words[at]).parse_all());
            continue;
        }
        if (at + 1 == words.size()) {
            refuse(fmt::format("a value for \"{}\" is missing", words[at]));
        }
        Condition condition;
        set_subject(condition, words[at]);
        filter.set_value(condition, words[++at]);
        condition.test = letters == Case::folded ? Test::contains : Test::equal;
        filter.conditions_.push_back(std::move(condition));
    }
    return filter;
}

bool Filter::holds_text(const Condition &condition, const std::string &text) const {
    if (condition.test == Test::pattern) {
        return condition.pattern->matches(text);
    }
    const std::string other = letters_ == Case::folded ? folded(text) : std::string();
    const std::string &subject = letters_ == Case::folded ? other : text;
    switch (condition.test) {
    case Test::equal:
        return subject == condition.value;
    case Test::contains:
        return subject.find(condition.value) != std::string::npos;
    case Test::starts_with:
        return subject.starts_with(condition.value);
    default:
        return false;
    }
}

bool Filter::holds_any(const Condition &condition, const Song &song) const {
    return std::any_of(song.tags.begin(), song.tags.end(), [&](const std::string &value) {
        return !value.empty() && holds_text(condition, value);
    });
}

Filter::Truth Filter::judge(const Condition &condition, const Song &song,
                            Knowledge knowledge) const {
    const bool known = knowledge == Knowledge::everything;
    bool holds = false;
    switch (condition.subject) {
    case Subject::tag:
        if (!known && !is_listed(condition.tag)) {
            return Truth::unknown;
        }
        holds = holds_text(condition, song.tag_or_fallback(condition.tag));
        break;
    case Subject::any:
        holds = holds_any(condition, song);
        if (!known && !holds) {
            return Truth::unknown;
        }
        break;
    case Subject::group: {
        const Truth truth = judge_all(condition.parts, *this, song, knowledge);
        if (truth == Truth::unknown) {
            return truth;
        }
        holds = truth == Truth::yes;
        break;
    }
    default:
        if (!known) {
            return Truth::unknown;
        }
        holds = holds_file(condition, song);
        break;
    }
    return holds != condition.negated ? Truth::yes : Truth::no;
}

bool Filter::holds_file(const Condition &condition, const Song &song) const {
    switch (condition.subject) {
    case Subject::base:
        return condition.value.empty() || song.uri.starts_with(condition.value + '/');
    case Subject::modified_since:
        return song.modified >= condition.time;
    case Subject::audio_format:
        return holds_text(condition, audio_format(song));
    default:
        return holds_text(condition, song.uri);
    }
}

Filter::Truth Filter::judge_all(const std::vector<Condition> &conditions, const Filter &filter,
                                const Song &song, Knowledge knowledge) {
    Truth all = Truth::yes;
    for (const Condition &condition : conditions) {
        const Truth truth = filter.judge(condition, song, knowledge);
        if (truth == Truth::no) {
            return truth;
        }
        all = truth == Truth::unknown ? truth : all;
    }
    return all;
}

Filter::Truth Filter::judge(const Song &song, Knowledge knowledge) const {
    return judge_all(conditions_, *this, song, knowledge);
}

template <typename Wanted>
std::optional<std::string> Filter::demanded_where(const Wanted &wanted) const {
    std::vector<const Condition *> open;
    for (const Condition &condition : conditions_) {
        open.push_back(&condition);
    }
    while (!open.empty()) {
        const Condition &condition = *open.back();
        open.pop_back();
        if (condition.negated) {
            continue;
        }
        if (condition.subject == Subject::group) {
            for (const Condition &part : condition.parts) {
                open.push_back(&part);
            }
        } else if (condition.test == Test::equal && !condition.value.empty() && wanted(condition)) {
            return condition.value;
        }
    }
    return std::nullopt;
}

std::optional<std::string> Filter::demanded(Tag tag) const {
    return demanded_where([tag](const Condition &condition) {
        return condition.subject == Subject::tag && condition.tag == tag;
    });
}

std::optional<std::string> Filter::demanded_uri() const {
    if (letters_ == Case::folded) {
        return std::nullopt; // the URI itself is unknown
    }
    return demanded_where(
        [](const Condition &condition) { return condition.subject == Subject::file; });
}

std::optional<std::string> Filter::demanded_base() const {
    return demanded_where(
        [](const Condition &condition) { return condition.subject == Subject::base; });
}

} // namespace vantro::mpd
