#include "tools/vantroctl/text/template.h"

#include <algorithm>
#include <charconv>
#include <optional>
#include <utility>

#include <fmt/format.h>
#include <unicode/locid.h>
#include <unicode/unistr.h>

#include "tools/vantroctl/text/arithmetic.h"
#include "tools/vantroctl/text/display_text.h"
#include "tools/vantroctl/text/time_text.h"

namespace vantro::ctl {
namespace {

using Part = Template::Part;
using Kind = Template::Kind;
using Texts = std::vector<std::string>;

// The depth of nested expressions; limits the use of the stack.
constexpr int depth_max = 32;
// The largest number of columns for trunc() and pad().
constexpr int columns_max = 1000;

std::optional<int32_t> number_of(const std::string &text) {
    int32_t number = 0;
    const char *const end = text.data() + text.size();
    const auto [at, error] = std::from_chars(text.data(), end, number);
    return error == std::errc() && at == end ? std::optional(number) : std::nullopt;
}

int columns_of(const std::string &text) {
    return std::clamp(number_of(text).value_or(0), 0, columns_max);
}

std::string joined(const Texts &texts) {
    return fmt::format("{}", fmt::join(texts, ""));
}

std::string lower(const Texts &texts) {
    std::string result;
    icu::UnicodeString::fromUTF8(texts[0]).toLower(icu::Locale::getRoot()).toUTF8String(result);
    return result;
}

std::string upper(const Texts &texts) {
    std::string result;
    icu::UnicodeString::fromUTF8(texts[0]).toUpper(icu::Locale::getRoot()).toUTF8String(result);
    return result;
}

// "1:23" of milliseconds; anything else stays as it is.
std::string duration(const Texts &texts) {
    const std::optional<int32_t> ms = number_of(texts[0]);
    return ms ? format_time(*ms) : texts[0];
}

std::string first_present(const Texts &texts) {
    const auto found = std::find_if(texts.begin(), texts.end(),
                                    [](const std::string &text) { return !text.empty(); });
    return found == texts.end() ? std::string() : *found;
}

std::string all_or_nothing(const Texts &texts) {
    const bool all = std::none_of(texts.begin(), texts.end(),
                                  [](const std::string &text) { return text.empty(); });
    return all ? joined(texts) : std::string();
}

std::string choice(const Texts &texts) {
    return !texts[0].empty() ? texts[1] : texts.size() > 2 ? texts[2] : std::string();
}

std::string equality(const Texts &texts) {
    return texts[0] == texts[1] ? "yes" : "";
}

std::string negation(const Texts &texts) {
    return texts[0].empty() ? "yes" : "";
}

std::string cut(const Texts &texts) {
    return clip_text(texts[0], columns_of(texts[1]));
}

std::string padded(const Texts &texts) {
    const int blanks = columns_of(texts[1]) - display_width(texts[0]);
    return texts[0] + std::string(static_cast<size_t>(std::max(blanks, 0)), ' ');
}

// A symbol for a player's state, or for a volume; any other text is returned unchanged.
std::string emoji(const Texts &texts) {
    constexpr std::pair<std::string_view, const char *> pictures[] = {
        {"playing", "\xE2\x96\xB6\xEF\xB8\x8F"},
        {"paused", "\xE2\x8F\xB8\xEF\xB8\x8F"},
        {"stopped", "\xE2\x8F\xB9\xEF\xB8\x8F"},
    };
    for (const auto &[state, picture] : pictures) {
        if (texts[0] == state) {
            return picture;
        }
    }
    const std::optional<int32_t> level = number_of(texts[0]);
    return !level         ? texts[0]
           : *level == 0  ? "\xF0\x9F\x94\x87"
           : *level <= 33 ? "\xF0\x9F\x94\x88"
           : *level <= 66 ? "\xF0\x9F\x94\x89"
                          : "\xF0\x9F\x94\x8A";
}

template <char operation>
std::string arithmetic(const Texts &texts) {
    return calculate(operation, texts[0], texts[1]);
}

std::string markup(const Texts &texts) {
    std::string result;
    for (const char byte : texts[0]) {
        switch (byte) {
        case '&':
            result += "&amp;";
            break;
        case '<':
            result += "&lt;";
            break;
        case '>':
            result += "&gt;";
            break;
        case '"':
            result += "&quot;";
            break;
        case '\'':
            result += "&apos;";
            break;
        default:
            result += byte;
        }
    }
    return result;
}

struct Function {
    std::string_view name;
    size_t least; // Arguments.
    size_t most;
    std::string (*apply)(const Texts &);
};

// Most arguments of one function, and most operands in a row.
constexpr size_t any_number = 64;

constexpr Function functions[] = {
    {"lc", 1, 1, lower},
    {"uc", 1, 1, upper},
    {"duration", 1, 1, duration},
    {"default", 2, any_number, first_present},
    {"group", 1, any_number, all_or_nothing},
    {"if", 2, 3, choice},
    {"eq", 2, 2, equality},
    {"not", 1, 1, negation},
    {"trunc", 2, 2, cut},
    {"pad", 2, 2, padded},
    {"markup_escape", 1, 1, markup},
    {"emoji", 1, 1, emoji},
};

// The operators. They are not names, so a template cannot call them as functions.
constexpr Function operators[] = {
    {"+", 2, 2, arithmetic<'+'>},
    {"-", 2, 2, arithmetic<'-'>},
    {"*", 2, 2, arithmetic<'*'>},
    {"/", 2, 2, arithmetic<'/'>},
};

template <class Functions>
const Function *named_in(const Functions &all, std::string_view name) {
    const auto found = std::find_if(std::begin(all), std::end(all),
                                    [&](const Function &one) { return one.name == name; });
    return found == std::end(all) ? nullptr : found;
}

bool is_name(char byte) {
    return (byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z') || byte == '_' ||
           byte == ':' || (byte >= '0' && byte <= '9');
}

bool is_digit(char byte) {
    return byte >= '0' && byte <= '9';
}

class Parser {
  public:
    Parser(std::string_view text, const std::vector<std::string_view> &fields)
        : text_(text), fields_(fields) {}

    std::vector<Part> parts() {
        std::vector<Part> parts;
        std::string plain;
        const auto end_plain = [&] {
            if (!plain.empty()) {
                parts.push_back({Kind::text, std::exchange(plain, {})});
            }
        };
        while (at_ < text_.size()) {
            if (text_.substr(at_, 2) != "{{") {
                plain += character('{');
                continue;
            }
            end_plain();
            const size_t begin = at_;
            at_ += 2;
            parts.push_back(expression(0));
            skip_blanks();
            if (text_.substr(at_, 2) != "}}") {
                at_ < text_.size() ? fail(at_, "}} is expected") : fail(begin, "{{ without }}");
            }
            at_ += 2;
        }
        end_plain();
        return parts;
    }

  private:
    // The place is counted in characters, as the user sees them.
    [[noreturn]] void fail(size_t at, const std::string &what) const {
        const std::string_view before = text_.substr(0, at);
        const auto count = std::count_if(before.begin(), before.end(),
                                         [](char byte) { return (byte & 0xC0) != 0x80; });
        throw TemplateError(fmt::format("character {}: {}", count + 1, what));
    }

    void skip_blanks() {
        while (at_ < text_.size() && (text_[at_] == ' ' || text_[at_] == '\t')) {
            ++at_;
        }
    }

    // A byte of a text, or an escape. @param also a further character that may be escaped.
    char character(char also) {
        const size_t begin = at_;
        const char byte = text_[at_++];
        if (byte != '\\') {
            return byte;
        }
        const char next = at_ < text_.size() ? text_[at_++] : '\0';
        if (next == 'n') {
            return '\n';
        }
        if (next == 't') {
            return '\t';
        }
        if (next != '\\' && next != also) {
            fail(begin, fmt::format(R"(the escapes are \n, \t, \\ and \{})", also));
        }
        return next;
    }

    Part quoted() {
        const size_t begin = at_;
        const char mark = text_[at_++];
        Part part{Kind::text};
        while (at_ < text_.size() && text_[at_] != mark) {
            part.name += character(mark);
        }
        if (at_ == text_.size()) {
            fail(begin, "the text has no end");
        }
        ++at_;
        return part;
    }

    // Whether the next byte that is not a blank is one of these.
    bool next_is(std::string_view bytes) {
        skip_blanks();
        return at_ < text_.size() && bytes.find(text_[at_]) != bytes.npos;
    }

    Part expression(int depth) {
        return chain(
            "+-", [this, depth] { return chain("*/", [this, depth] { return operand(depth); }); });
    }

    // Operands with these operators between them, from left to right.
    template <class Operand>
    Part chain(std::string_view between, Operand operand) {
        Part left = operand();
        for (size_t count = 1; next_is(between); ++count) {
            if (count == any_number) {
                fail(at_, "too many operators in one expression");
            }
            Part both{Kind::call, std::string(1, text_[at_++])};
            both.arguments.push_back(std::move(left));
            both.arguments.push_back(operand());
            left = std::move(both);
        }
        return left;
    }

    Part operand(int depth) {
        if (next_is("\"'")) {
            return quoted();
        }
        const size_t begin = at_;
        if (depth > depth_max) {
            fail(begin, "expressions are nested too deeply");
        }
        if (next_is("-")) {
            ++at_;
            Part negative{Kind::call, "-"};
            negative.arguments.push_back({Kind::text, "0"});
            negative.arguments.push_back(operand(depth + 1));
            return negative;
        }
        if (next_is("(")) {
            ++at_;
            Part inner = expression(depth + 1);
            if (!next_is(")")) {
                fail(at_, ") is expected");
            }
            ++at_;
            return inner;
        }
        return named(begin, depth);
    }

    // A field, a number, or a call.
    Part named(size_t begin, int depth) {
        const bool may_break = at_ < text_.size() && is_digit(text_[at_]);
        while (at_ < text_.size() && (is_name(text_[at_]) || (may_break && text_[at_] == '.'))) {
            ++at_;
        }
        const std::string name(text_.substr(begin, at_ - begin));
        if (name.empty()) {
            fail(begin, "a field, a function, a number or a text in quotation marks is expected");
        }
        if (next_is("(")) {
            return call(begin, name, depth);
        }
        if (may_break && is_number(name)) {
            return {Kind::text, name};
        }
        if (std::find(fields_.begin(), fields_.end(), name) == fields_.end()) {
            fail(begin,
                 fmt::format("no field {}; the fields are {}", name, fmt::join(fields_, ", ")));
        }
        return {Kind::field, name};
    }

    Part call(size_t begin, const std::string &name, int depth) {
        const Function *function = named_in(functions, name);
        if (!function) {
            fail(begin, fmt::format("no function {}; the functions are {}", name,
                                    Template::function_names()));
        }
        Part part{Kind::call, name};
        do {
            ++at_; // The parenthesis, or a comma.
            part.arguments.push_back(expression(depth + 1));
        } while (next_is(","));
        if (!next_is(")")) {
            fail(at_, ", or ) is expected");
        }
        ++at_;
        const size_t count = part.arguments.size();
        if (count < function->least || count > function->most) {
            fail(begin,
                 fmt::format("{}() takes {}{} values, not {}", name, function->least,
                             function->most == function->least ? ""
                             : function->most == any_number    ? " or more"
                                                            : fmt::format(" to {}", function->most),
                             count));
        }
        return part;
    }

    std::string_view text_;
    const std::vector<std::string_view> &fields_;
    size_t at_ = 0;
};

std::string value_of(const Part &part, const Template::Field &field) {
    switch (part.kind) {
    case Kind::text:
        return part.name;
    case Kind::field:
        return clean_text(field(part.name));
    case Kind::call:
        break;
    }
    Texts values;
    for (const Part &argument : part.arguments) {
        values.push_back(value_of(argument, field));
    }
    const Function *const function = named_in(functions, part.name);
    return (function ? function : named_in(operators, part.name))->apply(values);
}

} // namespace

Template::Template(std::string_view text, const std::vector<std::string_view> &fields)
    : parts_(Parser(text, fields).parts()) {}

std::string Template::render(const Field &field) const {
    std::string text;
    for (const Part &part : parts_) {
        text += value_of(part, field);
    }
    return text;
}

std::string Template::line(const Field &field) const {
    std::string text = render(field);
    return text.empty() ? text : text + '\n';
}

std::string Template::function_names() {
    std::string names;
    for (const Function &function : functions) {
        names += fmt::format("{}{}", names.empty() ? "" : ", ", function.name);
    }
    return names;
}

} // namespace vantro::ctl
