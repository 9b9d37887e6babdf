#include "tools/vantroctl/text/template.h"

#include <algorithm>
#include <charconv>
#include <optional>
#include <utility>

#include <fmt/format.h>
#include <unicode/locid.h>
#include <unicode/unistr.h>

#include "tools/vantroctl/text/display_text.h"
#include "tools/vantroctl/text/time_text.h"

namespace vantro::ctl {
namespace {

using Part = Template::Part;
using Kind = Template::Kind;
using Texts = std::vector<std::string>;

// The depth of calls within calls; a limit for the stack.
constexpr int depth_max = 32;
// Columns that trunc() and pad() can be asked for.
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
};

const Function *function_named(std::string_view name) {
    const auto found = std::find_if(std::begin(functions), std::end(functions),
                                    [&](const Function &one) { return one.name == name; });
    return found == std::end(functions) ? nullptr : found;
}

bool is_name(char byte) {
    return (byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z') || byte == '_' ||
           byte == ':' || (byte >= '0' && byte <= '9');
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
            fail(begin, "a text without end");
        }
        ++at_;
        return part;
    }

    Part expression(int depth) {
        skip_blanks();
        if (at_ < text_.size() && (text_[at_] == '"' || text_[at_] == '\'')) {
            return quoted();
        }
        const size_t begin = at_;
        while (at_ < text_.size() && is_name(text_[at_])) {
            ++at_;
        }
        const std::string name(text_.substr(begin, at_ - begin));
        if (name.empty()) {
            fail(begin, "a field, a function, a number or a text in quotation marks is expected");
        }
        skip_blanks();
        if (at_ < text_.size() && text_[at_] == '(') {
            return call(begin, name, depth);
        }
        if (number_of(name)) {
            return {Kind::text, name};
        }
        if (std::find(fields_.begin(), fields_.end(), name) == fields_.end()) {
            fail(begin, fmt::format("no field {}; there are {}", name, fmt::join(fields_, ", ")));
        }
        return {Kind::field, name};
    }

    Part call(size_t begin, const std::string &name, int depth) {
        const Function *function = function_named(name);
        if (!function) {
            fail(begin,
                 fmt::format("no function {}; there are {}", name, Template::function_names()));
        }
        if (depth == depth_max) {
            fail(begin, "too many functions within functions");
        }
        Part part{Kind::call, name};
        do {
            ++at_; // The parenthesis, or a comma.
            part.arguments.push_back(expression(depth + 1));
            skip_blanks();
        } while (at_ < text_.size() && text_[at_] == ',');
        if (at_ == text_.size() || text_[at_] != ')') {
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
    return function_named(part.name)->apply(values);
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
