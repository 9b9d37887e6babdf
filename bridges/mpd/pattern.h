// Regular expressions of filters.
#ifndef VANTRO_BRIDGES_MPD_PATTERN_H
#define VANTRO_BRIDGES_MPD_PATTERN_H

#include <memory>
#include <string>
#include <string_view>

struct pcre2_real_code_8;
struct pcre2_real_match_context_8;
struct pcre2_real_match_data_8;

namespace vantro::mpd {

// A client's expression could run without end while all other clients wait. So its length, its
// steps and the length of the searched texts are limited.
class Pattern {
  public:
    // Most bytes of an expression.
    static constexpr size_t length_max = 1024;
    // Only so many bytes of a text are searched.
    static constexpr size_t text_max = 4096;

    // @param folds whether upper and lower case are the same. @throws Ack if it is not a regular
    // expression.
    Pattern(std::string_view expression, bool folds);

    // Whether a part of the text matches. @throws Ack if that takes too many steps.
    bool matches(std::string_view text) const;

  private:
    struct Free {
        void operator()(pcre2_real_code_8 *code) const;
        void operator()(pcre2_real_match_context_8 *context) const;
        void operator()(pcre2_real_match_data_8 *data) const;
    };

    std::unique_ptr<pcre2_real_code_8, Free> code_;
    std::unique_ptr<pcre2_real_match_context_8, Free> limits_;
    std::unique_ptr<pcre2_real_match_data_8, Free> found_; // Each match overwrites it.
};

} // namespace vantro::mpd

#endif
