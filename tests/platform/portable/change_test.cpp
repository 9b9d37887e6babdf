// Change texts, dictionaries and JSON texts: what is read from them, and what is refused.
#include <memory>

#include <gtest/gtest.h>

#include <vantro/platform/change.h>
#include <vantro/platform/dictionary.h>
#include <vantro/platform/json.h>

#include <cerrno>
#include <climits>
#include <string>
#include <vector>

namespace vantro::test {
namespace {

// One line for each result: the result, and what it names.
std::string parsed(std::string text, const char *object = nullptr,
                   const char *attribute = nullptr) {
    std::string said;
    struct kivo_record record = {};
    for (char *cursor = text.data();;) {
        const int result = kivoparse(&cursor, object, attribute, &record, 0);
        said += std::to_string(result);
        if (result <= KIVO_END) {
            return said;
        }
        said += " ";
        said += record.attribute ? record.attribute : record.object;
        said += record.value ? "=" + std::to_string(record.encoding) + record.value : "";
        said += ";";
    }
}

TEST(Change, IsParsedLineByLine) {
    const struct {
        const char *text, *expected;
    } cases[] = {
        {"", "0"},
        {"@state\n", "1 state;0"},
        {"+@a\n-@b\n#@c.-_9\n", "2 a;3 b;4 c.-_9;0"},
        {"@s\nstatus::playing\nrate:n:1.5\non:b:true\nm:json:{\"a\":1}\n",
         "1 s;5 status=0playing;5 rate=11.5;5 on=2true;5 m=3{\"a\":1};0"},
        {"@s\nv::a:b::c\nempty::\n-gone\n", "1 s;5 v=0a:b::c;5 empty=0;6 gone;0"},
        {"@s\na\\:b\\\\::x\\\\\\n\\r\\ty\\\\\n", "1 s;5 a:b\\=0x\\\n\r\ty\\;0"},
        {"@s\n\\@a::1\n\\+::2\n\\-c::3\n\\#::4\n-\\@a\n-\\-c\n-b\\:\n",
         "1 s;5 @a=01;5 +=02;5 -c=03;5 #=04;6 @a;6 -c;6 b:;0"},
        {"a::b\n-c\n", "5 a=0b;6 c;0"},
        // Lines before one that cannot be parsed count.
        {"@s\nstatus::playing", "1 s;-1"},
        {"@s", "-1"},
        {"@\n", "-1"},
        {"@a b\n", "-1"},
        {"+a::b\n", "-1"},
        {"#a::b\n", "-1"},
        {"-\n", "-1"},
        {"\n", "-1"},
        {"novalue\n", "-1"},
        {"one:colon\n", "-1"},
        {"::x\n", "-1"},
        {"a:x:b\n", "-1"},
        {"a:N:b\n", "-1"},
        {"a::\\\n", "-1"},
        {"a::\\q\n", "-1"},
        {"a::b\\:\n", "-1"},
        {"a\\@::b\n", "-1"},
        {"a\\::b\n", "-1"},
        {"-a:b\n", "-1"},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(parsed(c.text), c.expected) << c.text;
    }
    const char *const two = "@a\nx::1\ny::2\n@b\nx::3\n-y\n";
    EXPECT_EQ(parsed(two, "b"), "1 b;5 x=03;6 y;0");
    EXPECT_EQ(parsed(two, nullptr, "x"), "1 a;5 x=01;1 b;5 x=03;0");
    EXPECT_EQ(parsed(two, "a", "y"), "1 a;5 y=02;0");
    struct kivo_record record = {};
    EXPECT_EQ(kivoparse(nullptr, nullptr, nullptr, &record, 0), KIVO_ERROR);
}

// The fuzzer checks that what is written is read back the same.
TEST(Change, IsWrittenWithinItsLimits) {
    std::vector<char> memory(OBJECT_CHANGE_MAX + 1);
    struct Case {
        const char *object, *attribute;
        size_t value_length;
        ssize_t expected;
        int error;
    } const cases[] = {
        {"o", "a", OBJECT_CHANGE_MAX - 7, OBJECT_CHANGE_MAX, 0},
        {"o", "a", OBJECT_CHANGE_MAX - 6, -1, EMSGSIZE},
        {"o", "", 1, -1, EINVAL},
        {"o", nullptr, 1, -1, EINVAL},
        {"", "a", 1, -1, EINVAL},
        {"a b", "a", OBJECT_CHANGE_MAX, -1, EINVAL}, // the first error counts
    };
    for (const Case &c : cases) {
        struct kivo_writer writer;
        kivo_writer_init(&writer, memory.data(), memory.size());
        kivo_write_object(&writer, KIVO_OBJECT, c.object);
        kivo_write_attribute(&writer, c.attribute, KIVO_TEXT,
                             std::string(c.value_length, 'v').c_str());
        errno = 0;
        EXPECT_EQ(kivo_writer_finish(&writer), c.expected) << c.object << c.value_length;
        EXPECT_EQ(errno, c.error) << c.object << c.value_length;
    }
}

// A C program can put any number into an enumeration.
TEST(Change, IsNotWrittenWithAnUnknownNumber) {
    char memory[100];
    const auto write_attribute =
        reinterpret_cast<void (*)(kivo_writer *, const char *, int, const char *)>(
            kivo_write_attribute);
    const auto write_object =
        reinterpret_cast<void (*)(kivo_writer *, int, const char *)>(kivo_write_object);
    for (const int number : {5, 9, 255, INT_MAX, INT_MIN, -1}) {
        struct kivo_writer writer;
        kivo_writer_init(&writer, memory, sizeof memory);
        write_attribute(&writer, "a", number, "v");
        EXPECT_EQ(writer.error, EINVAL) << number;
        kivo_writer_init(&writer, memory, sizeof memory);
        write_object(&writer, number, "o");
        EXPECT_EQ(writer.error, EINVAL) << number;
    }
}

TEST(Dictionary, HoldsWhatWasSetLast) {
    mosk_dict *dict = mosk_dict_new();
    for (int round = 0; round < 2; ++round) {
        for (int i = 0; i < 1000; ++i) {
            const std::string key = "key" + std::to_string(i * 7919 % 1000);
            dict = mosk_dict_set(dict, key.c_str(), (key + "=" + std::to_string(round)).c_str());
            ASSERT_NE(dict, nullptr);
        }
    }
    EXPECT_EQ(mosk_dict_size(dict), 1000u);
    EXPECT_STREQ(mosk_dict_find_value(dict, "key42"), "key42=1");
    EXPECT_EQ(mosk_dict_find_value(dict, "key"), nullptr);
    dict = mosk_dict_set(dict, "key42", mosk_dict_find_value(dict, "key43"));
    EXPECT_STREQ(mosk_dict_find_value(dict, "key42"), "key43=1");
    for (int i = 0; i < 2; ++i) { // the second time there is none
        ASSERT_EQ(mosk_dict_key_delete(dict, "key42"), dict);
        EXPECT_EQ(mosk_dict_find_value(dict, "key42"), nullptr);
        EXPECT_EQ(mosk_dict_size(dict), 999u);
    }
    std::string last;
    const char *key = nullptr, *value = nullptr;
    size_t count = 0;
    for (; mosk_dict_entry(dict, count, &key, &value) == 0; ++count) {
        EXPECT_LT(last, key);
        EXPECT_EQ(std::string(value), std::string(key) + "=1");
        last = key;
    }
    EXPECT_EQ(count, 999u);
    EXPECT_EQ(mosk_dict_set(dict, nullptr, ""), nullptr);
    EXPECT_EQ(mosk_dict_set(nullptr, "", ""), nullptr);
    EXPECT_EQ(mosk_dict_key_delete(nullptr, "a"), nullptr);
    EXPECT_EQ(mosk_dict_find_value(nullptr, "a"), nullptr);
    mosk_dict_destroy(dict);
    mosk_dict_destroy(nullptr);
}

// A getter's answer: the value, or its error number in brackets.
std::string got(struct kivo_decoder &decoder, const char *name, char kind) {
    const char *string = nullptr;
    int32_t number = 0;
    int64_t wide = 0;
    uint64_t large = 0;
    const int result = kind == 's'   ? kivo_decoder_get_string(&decoder, name, &string)
                       : kind == 'i' ? kivo_decoder_get_int(&decoder, name, &number)
                       : kind == 'u' ? kivo_decoder_get_uint64(&decoder, name, &large)
                                     : kivo_decoder_get_int64(&decoder, name, &wide);
    if (result != 0) {
        return "(" + std::string(strerrorname_np(errno)) + ")";
    }
    if (kind == 's') {
        return string;
    }
    return kind == 'u' ? std::to_string(large) : std::to_string(kind == 'i' ? number : wide);
}

TEST(Json, MembersAreGotByKind) {
    std::string text = R"({"s":"a\u00e9\n\"","i":-5,"min":-2147483648,"more":2147483648,
        "most":9223372036854775807,"least":-9223372036854775808,"above":9223372036854775808,
        "far":123456789012345678901234567890,"f":1.0,"e":1e3,"n":null,"t":true,"nul":"a\u0000b",
        "o":{"i":6,"o":{"i":7}},"list":[1,{"i":8}],"i":9,"":"empty"} )";
    struct kivo_decoder decoder;
    ASSERT_EQ(kivo_decoder_initialize(&decoder, nullptr), 0);
    ASSERT_EQ(kivo_decoder_parse_json_str(&decoder, text.data()), 0);
    EXPECT_EQ(got(decoder, "i", 'i'), "(ENOENT)") << "nothing was entered";
    ASSERT_EQ(kivo_decoder_push(&decoder, nullptr), 0);
    const struct {
        const char *name;
        char kind;
        const char *expected;
    } cases[] = {
        {"s", 's', "a\xc3\xa9\n\""},
        {"s", 'i', "(EINVAL)"},
        {"i", 'i', "-5"},
        {"i", 's', "(EINVAL)"},
        {"min", 'i', "-2147483648"},
        {"more", 'i', "(ERANGE)"},
        {"more", 'l', "2147483648"},
        {"most", 'l', "9223372036854775807"},
        {"above", 'l', "(ERANGE)"},
        {"above", 'u', "9223372036854775808"},
        {"i", 'u', "(ERANGE)"},
        {"more", 'u', "2147483648"},
        {"far", 'u', "(ERANGE)"},
        {"least", 'l', "-9223372036854775808"},
        {"far", 'l', "(ERANGE)"},
        {"f", 'i', "(EINVAL)"},
        {"e", 'l', "(EINVAL)"},
        {"n", 's', "(EINVAL)"},
        {"t", 'i', "(EINVAL)"},
        {"nul", 's', "(EINVAL)"},
        {"o", 's', "(EINVAL)"},
        {"none", 'i', "(ENOENT)"},
        {"", 's', "empty"},
        {nullptr, 's', "(ENOENT)"},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(got(decoder, c.name, c.kind), c.expected) << (c.name ? c.name : "NULL");
    }
    EXPECT_NE(kivo_decoder_push(&decoder, nullptr), 0);
    EXPECT_NE(kivo_decoder_push(&decoder, "list"), 0);
    ASSERT_EQ(kivo_decoder_push(&decoder, "o"), 0);
    ASSERT_EQ(kivo_decoder_push(&decoder, "o"), 0);
    EXPECT_EQ(got(decoder, "i", 'i'), "7");
    kivo_decoder_pop(&decoder);
    EXPECT_EQ(got(decoder, "i", 'i'), "6");
    kivo_decoder_pop(&decoder);
    const char *string = nullptr;
    kivo_decoder_get_string(&decoder, "s", &string);
    EXPECT_EQ(kivo_decoder_pop(&decoder), 0);
    EXPECT_NE(kivo_decoder_pop(&decoder), 0);
    kivo_decoder_cleanup(&decoder);
    EXPECT_STREQ(string, "a\xc3\xa9\n\"");
}

TEST(Json, WhatIsNoTextIsRefusedAndGivesNothing) {
    const auto nested = [](int depth) {
        return std::string(static_cast<size_t>(depth), '[') +
               std::string(static_cast<size_t>(depth), ']');
    };
    std::string many = "{\"a\":[0";
    while (many.size() < 2040) {
        many += ",0";
    }
    const struct {
        std::string text;
        bool good;
    } cases[] = {
        {R"({"a":1})", true},
        {many + "]}", true},
        {"{\"a\":\"" + std::string(2039, 'x') + "\"}", true}, // 2047 characters
        {"{\"a\":\"" + std::string(2040, 'x') + "\"}", true}, // 2048
        {nested(KIVO_JSON_DEPTH_MAX), true},
        {nested(KIVO_JSON_DEPTH_MAX + 1), false},
        {std::string(100000, '['), false},
        {"", false},
        {"{", false},
        {R"({"a":1,})", false},
        {R"({"a":1} x)", false},
        {R"({"a":01})", false},
        {R"({"a":"\ud800"})", false},
        {R"({"a":"x\udfffy"})", false},
        {R"({"\udc00":1})", false},
        {R"({"a":"\ud83d\ude00\ud7ff\ue000"})", true},
        {"{\"a\":\"\n\"}", false},
        {R"({a:1})", false},
        {R"({"a":1e999})", false},
    };
    for (const auto &c : cases) {
        std::string text = c.text;
        struct kivo_decoder decoder;
        kivo_decoder_initialize(&decoder, nullptr);
        errno = 0;
        EXPECT_EQ(kivo_decoder_parse_json_str(&decoder, text.data()), c.good ? 0 : -1) << c.text;
        EXPECT_EQ(errno, c.good ? 0 : EBADMSG);
        if (!c.good) {
            EXPECT_NE(kivo_decoder_push(&decoder, nullptr), 0);
            EXPECT_EQ(got(decoder, "a", 'i'), "(ENOENT)");
        }
        kivo_decoder_cleanup(&decoder);
        kivo_decoder_cleanup(&decoder);
    }
}

} // namespace
} // namespace vantro::test
