// Any bytes as a JSON text: the decoder ends, and the strings that it gives lie in the text.
//
// An input is the text up to its first NUL. Members are asked for by names that occur in it.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include <vantro/platform/json.h>

#include "fuzz/support.h"

using vantro::fuzz::require;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t length) {
    std::vector<char> text(data, data + length);
    text.push_back('\0');
    text.resize(std::strlen(text.data()) + 1);
    const char *const end = text.data() + text.size();

    struct kivo_decoder decoder;
    require(kivo_decoder_initialize(&decoder, nullptr) == 0);
    const bool parsed = kivo_decoder_parse_json_str(&decoder, text.data()) == 0;
    const bool entered = kivo_decoder_push(&decoder, nullptr) == 0;
    require(parsed || !entered);
    std::vector<const char *> strings;
    int depth = entered;
    for (int turn = 0; turn < 3; turn++) {
        for (const char *name : {"a", "b", "id", "name", "count", ""}) {
            const char *string = nullptr;
            int32_t number = 0;
            int64_t wide = 0;
            uint64_t large = 0;
            const bool is_string = kivo_decoder_get_string(&decoder, name, &string) == 0;
            const bool is_wide = kivo_decoder_get_int64(&decoder, name, &wide) == 0;
            const bool is_number = kivo_decoder_get_int(&decoder, name, &number) == 0;
            require(!is_string || !is_wide);
            require(!is_number || (is_wide && wide == number));
            const bool is_large = kivo_decoder_get_uint64(&decoder, name, &large) == 0;
            require(!is_string || !is_large);
            require(is_large ? is_wide == (large <= INT64_MAX) : !is_wide || wide < 0);
            require(parsed || (!is_string && !is_wide && !is_large));
            if (is_string) {
                strings.push_back(string);
            }
        }
        depth += kivo_decoder_push(&decoder, turn % 2 ? "b" : "a") == 0;
    }
    for (; depth > 0; depth--) {
        require(kivo_decoder_pop(&decoder) == 0);
    }
    require(kivo_decoder_pop(&decoder) != 0);
    kivo_decoder_cleanup(&decoder);
    for (const char *string : strings) {
        require(string > text.data() && string + std::strlen(string) < end);
    }
    return 0;
}
