#include "service/catalogue/text/names.h"

#include <charconv>
#include <memory>
#include <new>
#include <stdexcept>

#include <fmt/format.h>
#include <nettle/sha2.h>
#include <unicode/coll.h>
#include <unicode/normalizer2.h>
#include <unicode/unistr.h>

namespace vantro::service::catalogue {

namespace {

// Two names that agree this far are in no order that anybody would look for.
constexpr size_t ordered_bytes_max = 400;

// A key that was made without memory would order and compare wrongly for as long as it is kept.
void check(UErrorCode error, const char *purpose) {
    if (error == U_MEMORY_ALLOCATION_ERROR) {
        throw std::bad_alloc();
    }
    if (U_FAILURE(error)) {
        throw std::runtime_error(fmt::format("{} names fails: {}", purpose, u_errorName(error)));
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

void hash(std::string_view bytes, uint8_t (&out)[SHA256_DIGEST_SIZE]) {
    sha256_ctx context;
    sha256_init(&context);
    sha256_update(&context, bytes.size(), reinterpret_cast<const uint8_t *>(bytes.data()));
    sha256_digest(&context, sizeof out, out);
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
    if (size == 0) { // even the key of an empty name has an end
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

void set_up_names() {
    sort_key("");
    folded("");
}

int64_t key_of(char kind, std::string_view identity, int salt) {
    std::string text(1, kind);
    if (salt != 0) {
        text += std::to_string(salt);
    }
    text += '\0';
    text += identity;
    uint8_t bytes[SHA256_DIGEST_SIZE];
    hash(text, bytes);
    uint64_t key = 0;
    for (int i = 0; i < 8; ++i) {
        key = key << 8 | bytes[i];
    }
    return static_cast<int64_t>(key);
}

std::string digest(std::string_view bytes) {
    uint8_t out[SHA256_DIGEST_SIZE];
    hash(bytes, out);
    std::string text;
    for (const uint8_t byte : out) {
        text += fmt::format("{:02x}", byte);
    }
    return text;
}

NodeId::NodeId(char kind, int64_t key) {
    text_[0] = kind;
    if (kind == kind_year) {
        size_ = static_cast<size_t>(std::to_chars(text_ + 1, std::end(text_), key).ptr - text_);
        return;
    }
    size_ = 17;
    auto rest = static_cast<uint64_t>(key);
    for (size_t at = 16; at > 0; --at, rest >>= 4) {
        text_[at] = "0123456789abcdef"[rest & 15];
    }
}

std::optional<NodeRef> parse_node_id(std::string_view id) {
    constexpr size_t longest = 1 + 16;
    if (id.size() < 2 || id.size() > longest) {
        return std::nullopt;
    }
    const char *end = id.data() + id.size();
    if (id[0] == kind_year) {
        int64_t year = 0;
        const auto [stop, error] = std::from_chars(id.data() + 1, end, year);
        if (error != std::errc() || stop != end || NodeId(kind_year, year).text() != id) {
            return std::nullopt;
        }
        return NodeRef{kind_year, year};
    }
    if (std::string_view("abfgps").find(id[0]) == std::string_view::npos || id.size() != longest) {
        return std::nullopt;
    }
    uint64_t key = 0;
    const auto [stop, error] = std::from_chars(id.data() + 1, end, key, 16);
    if (error != std::errc() || stop != end ||
        NodeId(id[0], static_cast<int64_t>(key)).text() != id) { // capitals are another text
        return std::nullopt;
    }
    return NodeRef{id[0], static_cast<int64_t>(key)};
}

} // namespace vantro::service::catalogue
