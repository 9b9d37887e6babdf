#include "service/catalogue/text/search_words.h"

#include <cerrno>
#include <new>

#include <unicode/normalizer2.h>
#include <unicode/uchar.h>
#include <unicode/unistr.h>
#include <unicode/uscript.h>
#include <unicode/utf8.h>

#include "service/catalogue/text/collation.h"
#include "service/error.h"

namespace vantro::service::catalogue {

namespace {

// The full-text index divides a text at ASCII punctuation. So a word of symbols has the full-width
// form of each such character, which folding has removed everywhere else.
constexpr UChar32 wide_twin = 0xFF01 - '!';

const icu::Normalizer2 *decomposition_tables() {
    UErrorCode error = U_ZERO_ERROR;
    const icu::Normalizer2 *tables = icu::Normalizer2::getNFDInstance(error);
    if (U_FAILURE(error)) {
        throw Error(Error::Origin::library, EIO, "the tables for searching are missing");
    }
    return tables;
}

// The folded text with its accents as separate characters.
icu::UnicodeString decomposed(std::string_view text) {
    static const icu::Normalizer2 *const tables = decomposition_tables();
    UErrorCode error = U_ZERO_ERROR;
    const std::string same = folded(text);
    icu::UnicodeString result =
        tables->normalize(icu::UnicodeString::fromUTF8(
                              icu::StringPiece(same.data(), static_cast<int32_t>(same.size()))),
                          error);
    if (error == U_MEMORY_ALLOCATION_ERROR || result.isBogus()) {
        throw std::bad_alloc();
    }
    return result;
}

// Whether a mark above or below a letter leaves it the same letter. The voicing marks of Japanese
// and the vowel signs of Indian scripts make another letter.
bool is_accent(UChar32 c) {
    UErrorCode error = U_ZERO_ERROR;
    return u_charType(c) == U_NON_SPACING_MARK && c != 0x3099 && c != 0x309A &&
           uscript_getScript(c, &error) == USCRIPT_INHERITED;
}

bool is_mark(UChar32 c) {
    return (U_GET_GC_MASK(c) & U_GC_M_MASK) != 0;
}

bool is_quote(UChar32 c) {
    return c == '\'' || c == '`' || u_hasBinaryProperty(c, UCHAR_QUOTATION_MARK);
}

// Whether a character is a word by itself: one of a script without blanks, or an emoji.
bool stands_alone(UChar32 c) {
    if (c < 0x80) {
        return false;
    }
    switch (u_getIntPropertyValue(c, UCHAR_LINE_BREAK)) {
    case U_LB_IDEOGRAPHIC:
    case U_LB_CONDITIONAL_JAPANESE_STARTER:
        if (u_isalnum(c)) {
            return true;
        }
        break;
    default:
        break;
    }
    return u_charType(c) == U_OTHER_SYMBOL;
}

class Words {
  public:
    void add(const icu::UnicodeString &chunk) {
        const size_t before = text_.size();
        bool open = false; // whether the next letter belongs to the last word
        for (int32_t at = 0; at < chunk.length(); at = chunk.moveIndex32(at, 1)) {
            const UChar32 c = chunk.char32At(at);
            if (is_accent(c) || (is_mark(c) && text_.size() == before)) {
                continue;
            }
            const bool alone = stands_alone(c);
            if (!alone && !u_isalnum(c) && !is_mark(c)) {
                open = false;
                continue;
            }
            if (alone || !(open || is_mark(c))) {
                begin();
            }
            append(c);
            open = !alone;
        }
        if (text_.size() == before) {
            add_symbols(chunk);
        }
    }

    std::string take() { return std::move(text_); }

  private:
    void add_symbols(const icu::UnicodeString &chunk) {
        bool first = true;
        for (int32_t at = 0; at < chunk.length(); at = chunk.moveIndex32(at, 1)) {
            const UChar32 c = chunk.char32At(at);
            if (!u_isgraph(c) || is_quote(c) || is_accent(c)) {
                continue;
            }
            if (first) {
                begin();
            }
            first = false;
            append(c < 0x80 ? c + wide_twin : c);
        }
    }
    void begin() {
        if (!text_.empty()) {
            text_ += ' ';
        }
    }
    void append(UChar32 c) {
        char bytes[U8_MAX_LENGTH];
        int32_t size = 0;
        U8_APPEND_UNSAFE(bytes, size, c);
        text_.append(bytes, static_cast<size_t>(size));
    }

    std::string text_;
};

} // namespace

std::string search_words(std::string_view text) {
    const icu::UnicodeString all = decomposed(text);
    Words words;
    int32_t begin = 0;
    for (int32_t at = 0; at <= all.length();
         at = at < all.length() ? all.moveIndex32(at, 1) : at + 1) {
        if (at == all.length() || u_isUWhiteSpace(all.char32At(at))) {
            words.add(all.tempSubStringBetween(begin, at));
            begin = at < all.length() ? all.moveIndex32(at, 1) : at;
        }
    }
    return words.take();
}

} // namespace vantro::service::catalogue
