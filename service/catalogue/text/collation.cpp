#include "service/catalogue/text/collation.h"

#include <algorithm>
#include <cerrno>
#include <memory>
#include <new>

#include <fmt/format.h>
#include <unicode/coll.h>
#include <unicode/normalizer2.h>
#include <unicode/unistr.h>

#include "service/error.h"

namespace vantro::service::catalogue {

namespace {

// Bytes of a name that count for its order. Names that agree so far need no order.
constexpr size_t ordered_bytes_max = 400;

// Throws, since an incomplete key would be stored and order names wrongly.
void check(UErrorCode error, const char *purpose) {
    if (error == U_MEMORY_ALLOCATION_ERROR) {
        throw std::bad_alloc();
    }
    if (U_FAILURE(error)) {
        throw Error(Error::Origin::library, EIO,
                    fmt::format("{} names fails: {}", purpose, u_errorName(error)));
    }
}

std::unique_ptr<icu::Collator> make_collator() {
    UErrorCode error = U_ZERO_ERROR;
    std::unique_ptr<icu::Collator> made(
        icu::Collator::createInstance(icu::Locale::getRoot(), error));
    check(error, "ordering");
    made->setStrength(icu::Collator::TERTIARY);
    made->setAttribute(UCOL_NUMERIC_COLLATION, UCOL_ON, error);
    check(error, "ordering");
    return made;
}

bool is_blank(char c) {
    return c == ' ' || (c >= '\t' && c <= '\r');
}

std::string_view trimmed(std::string_view text) {
    while (!text.empty() && is_blank(text.front())) {
        text.remove_prefix(1);
    }
    while (!text.empty() && is_blank(text.back())) {
        text.remove_suffix(1);
    }
    return text;
}

const icu::Normalizer2 *casefold_tables() {
    UErrorCode error = U_ZERO_ERROR;
    const icu::Normalizer2 *tables = icu::Normalizer2::getNFKCCasefoldInstance(error);
    check(error, "comparing");
    return tables;
}

} // namespace

std::string sort_key(std::string_view name) {
    static const std::unique_ptr<icu::Collator> shared = make_collator();
    const thread_local std::unique_ptr<icu::Collator> collator(shared->clone());
    const std::string_view head = name.substr(0, ordered_bytes_max);
    const icu::UnicodeString text = icu::UnicodeString::fromUTF8(
        icu::StringPiece(head.data(), static_cast<int32_t>(head.size())));
    if (!collator || text.isBogus()) {
        throw std::bad_alloc();
    }
    std::string key(sort_key_max, '\0');
    const int32_t size = collator->getSortKey(text, reinterpret_cast<uint8_t *>(key.data()),
                                              static_cast<int32_t>(key.size()));
    if (size == 0) { // even the key of an empty name has a final byte
        throw std::bad_alloc();
    }
    key.resize(std::min(static_cast<size_t>(size), key.size()));
    return key;
}

std::string folded(std::string_view name) {
    static const icu::Normalizer2 *const folding = casefold_tables();
    UErrorCode error = U_ZERO_ERROR;
    const std::string_view text = trimmed(name);
    std::string result;
    icu::StringByteSink<std::string> sink(&result);
    folding->normalizeUTF8(0, icu::StringPiece(text.data(), static_cast<int32_t>(text.size())),
                           sink, nullptr, error);
    check(error, "comparing");
    return result;
}

void set_up_collation() {
    sort_key("");
    folded("");
}

} // namespace vantro::service::catalogue
