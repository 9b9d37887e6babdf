#include <gtest/gtest.h>

#include "tools/grantor/policy.h"

namespace vantro::grantor {
namespace {

TEST(Policy, GrantsByUserGroupAndEverybody) {
    std::vector<Policy::Problem> problems;
    const auto policy = Policy::parse("# who may what\n"
                                      "\n"
                                      "uid:1000 audio net   # the driver\r\n"
                                      "\tgid:100\tnet\n"
                                      "* clock\n"
                                      "uid:0 *",
                                      problems);
    ASSERT_TRUE(policy);
    EXPECT_TRUE(problems.empty());
    EXPECT_EQ(policy->rule_count(), 4u);
    const struct {
        const char *line;
        int granted;
    } rows[] = {
        {"chkcap 1000,5,audio", 1},
        {"chkcap 1000,5,audio,net,clock", 3},
        {"chkcap 1000,5,audio,,net,", 2}, // an empty entry is never granted
        {"chkcap 5,100,net,audio", 1},
        {"chkcap 100,1000,net", 0}, // the numbers of users and groups are not each other's
        {"chkcap 5,5,clock,clock", 2},
        {"chkcap 5,5,*", 0},
        {"chkcap 5,5,Clock,cloc,clocks", 0},
        {"chkcap 0,0,anything,,more", 2},
        {"chkcap 5,0,anything", 0},
        {"chkcap 4294967295,4294967295,clock", 1},
        {"chkcap 0,0,", 0},
    };
    for (const auto &row : rows) {
        const auto check = parse_check_line(row.line);
        ASSERT_TRUE(check) << row.line;
        EXPECT_EQ(count_granted(*policy, *check), row.granted) << row.line;
    }
}

TEST(Policy, NamesEveryBadLineAndRefusesTheFile) {
    const std::string endless(capability_max + 1, 'x');
    const std::string bad[] = {
        "1000 audio",
        "uid:1000",
        "uid: audio",
        "uid:-1 audio",
        "uid:1000,net",
        "uid:0x10 audio",
        "uid:+1 audio",
        "gid:4294967296 audio",
        "uid:4294967295 net",
        "user:1 audio",
        "uid:1 a,b",
        "UID:1 audio",
        "uid:1 audio\x01",
        "uid:1 " + endless,
        std::string("uid:1 a\0b", 9),
    };
    for (const std::string &line : bad) {
        std::vector<Policy::Problem> problems;
        EXPECT_FALSE(Policy::parse("* good\n# comment\n" + line + "\n* good\nbad\n", problems));
        ASSERT_EQ(problems.size(), 2u) << line;
        EXPECT_EQ(problems[0].line, 3u) << line;
        EXPECT_EQ(problems[1].line, 5u) << line;
    }
    std::vector<Policy::Problem> problems;
    EXPECT_FALSE(Policy::load("/", problems));
    EXPECT_FALSE(Policy::load("/dev/zero", problems));
    ASSERT_EQ(problems.size(), 2u);
    EXPECT_EQ(problems[0].line, 0u);
}

TEST(CheckLine, RefusesWhatIsNotOne) {
    const std::string bad[] = {
        "",
        "chkcap",
        "chkcap ",
        "chkcap 1000",
        "chkcap 1000,100",
        "chkcap ,100,net",
        "chkcap 1000,,net",
        "chkcap -1,100,net",
        "chkcap 1000,4294967296,net",
        "chkcap 1000, 100,net",
        "chkcap 1000,100,net\n",
        std::string("chkcap 1000,100,net\0", 20),
        " chkcap 1000,100,net",
        "CHKCAP 1000,100,net",
        "chkcap 1000,100," + std::string(check_line_max, 'x'),
    };
    for (const std::string &line : bad) {
        EXPECT_FALSE(parse_check_line(line)) << line;
    }
}

} // namespace
} // namespace vantro::grantor
