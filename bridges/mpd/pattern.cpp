#include "bridges/mpd/pattern.h"

#include <new>

#define PCRE2_CODE_UNIT_WIDTH 8
#include <pcre2.h>

#include <fmt/format.h>

#include "bridges/mpd/ack.h"

namespace vantro::mpd {
namespace {

// Steps from one place of a text: about a tenth of a millisecond. Usual expressions need a few
// dozen.
constexpr uint32_t steps_max = 5'000;
constexpr uint32_t memory_kib_max = 1024;
// Nesting of parentheses: compiling recurses once for each level.
constexpr uint32_t depth_max = 32;

std::string text_of(int error) {
    PCRE2_UCHAR text[128];
    return pcre2_get_error_message(error, text, sizeof text) < 0
               ? std::string()
               : reinterpret_cast<const char *>(text);
}

pcre2_code *compile(std::string_view expression, bool folds) {
    const std::unique_ptr<pcre2_compile_context, decltype(&pcre2_compile_context_free)> context(
        pcre2_compile_context_create(nullptr), pcre2_compile_context_free);
    if (!context) {
        throw std::bad_alloc();
    }
    pcre2_set_parens_nest_limit(context.get(), depth_max);
    // Tags are UTF-8; file names need not be.
    const uint32_t options = PCRE2_UTF | PCRE2_MATCH_INVALID_UTF | PCRE2_NEVER_BACKSLASH_C |
                             (folds ? PCRE2_CASELESS : 0);
    int error = 0;
    size_t at = 0;
    pcre2_code *const code = pcre2_compile(reinterpret_cast<PCRE2_SPTR>(expression.data()),
                                           expression.size(), options, &error, &at, context.get());
    if (!code) {
        throw Ack(AckCode::argument,
                  fmt::format("not a regular expression: {} at {}", text_of(error), at));
    }
    return code;
}

} // namespace

void Pattern::Free::operator()(pcre2_code *code) const {
    pcre2_code_free(code);
}

void Pattern::Free::operator()(pcre2_match_context *context) const {
    pcre2_match_context_free(context);
}

void Pattern::Free::operator()(pcre2_match_data *data) const {
    pcre2_match_data_free(data);
}

Pattern::Pattern(std::string_view expression, bool folds) {
    if (expression.size() > length_max) {
        throw Ack(AckCode::argument, "the regular expression is too long");
    }
    code_.reset(compile(expression, folds));
    limits_.reset(pcre2_match_context_create(nullptr));
    found_.reset(pcre2_match_data_create(1, nullptr));
    if (!limits_ || !found_) {
        throw std::bad_alloc();
    }
    pcre2_set_match_limit(limits_.get(), steps_max);
    pcre2_set_heap_limit(limits_.get(), memory_kib_max);
}

bool Pattern::matches(std::string_view text) const {
    text = text.substr(0, text_max);
    const int result = pcre2_match(code_.get(), reinterpret_cast<PCRE2_SPTR>(text.data()),
                                   text.size(), 0, 0, found_.get(), limits_.get());
    if (result < 0 && result != PCRE2_ERROR_NOMATCH) {
        throw Ack(AckCode::argument,
                  fmt::format("the regular expression cannot be used: {}", text_of(result)));
    }
    return result >= 0;
}

} // namespace vantro::mpd
