// The courses: what is published, and what is told. See courses/README.
#include <algorithm>
#include <fstream>
#include <memory>

#include "events/changes.h"
#include "tests/events/support.h"

namespace vantro::events {
namespace {

class Course : public Events, public testing::WithParamInterface<const char *> {};

// Puts in what an entry says briefly.
std::string full(std::string text) {
    for (std::size_t star = 0; (star = text.find('*', star)) != text.npos; star++)
        if (star >= 2 && text[star - 2] == '{')
            text.replace(star - 2, text.find('}', star) - star + 3,
                         std::string(std::stoul(text.substr(star + 1)), text[star - 1]));
    return text;
}

TEST_P(Course, IsToldAsItSays) {
    RawPublisher raw;
    ASSERT_EQ(next(), "7");
    std::ifstream course(std::string(COURSES) + "/" + GetParam());
    Lines expected_lines;
    const auto check_lines = [&] { EXPECT_EQ(take_lines(), std::exchange(expected_lines, {})); };
    std::vector<std::unique_ptr<std::string>> values;
    int number = 0, events = 0;
    for (std::string entry; std::getline(course, entry);) {
        SCOPED_TRACE(std::string(GetParam()) + ":" + std::to_string(++number));
        const std::string text = full(entry.size() > 2 ? entry.substr(2) : "");
        std::string published = text;
        std::replace(published.begin(), published.end(), '|', '\n');
        switch (entry.empty() ? '\0' : entry[0]) {
        case '>':
            raw.publish(published);
            break;
        case '~':
            on_line = [&raw, published] { raw.publish(published); };
            break;
        case '<':
            check_lines();
            EXPECT_EQ(next(), text);
            events++;
            break;
        case '=':
            values.push_back(std::make_unique<std::string>(text));
            EXPECT_EQ(vantro_event_data_set(handle, values.back()->data()), entry == "=!" ? -1 : 0);
            break;
        case '!':
            expected_lines.push_back(text);
            break;
        case '\0':
            check_lines();
            EXPECT_EQ(next(), "7");
            break;
        default:
            ASSERT_EQ(entry[0], '#');
        }
    }
    check_lines();
    EXPECT_GT(events, 10);
}
INSTANTIATE_TEST_SUITE_P(Courses, Course, testing::Values("state", "order", "texts", "details"));

using Changes = Events;

TEST_F(Changes, TextsThatWereCutGiveTheirWholeLines) {
    const std::string whole = "+@o\na::1\\n\nb\\:b:n:2\n-c\nd:json:{}\n";
    const std::string known[] = {"-", "{}", "{a=1\n}", "{a=1\n,b:b=2}", "{a=1\n,b:b=2}"};
    for (std::size_t size = 0, whole_lines = 0; size < whole.size(); size++) {
        std::string text = whole.substr(0, size);
        const bool at_an_end = size == 0 || text.back() == '\n';
        whole_lines += at_an_end && size > 0;
        mosk_dict *dict = nullptr;
        EXPECT_EQ(update_dict(&dict, text.data()), at_an_end ? 0 : -1) << size;
        EXPECT_EQ(told(dict), known[whole_lines]) << size;
        EXPECT_EQ(take_lines().size(), at_an_end ? 0U : 1U) << size;
        mosk_dict_destroy(dict);
    }
}

} // namespace
} // namespace vantro::events
