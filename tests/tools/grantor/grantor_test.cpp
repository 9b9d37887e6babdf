#include <cerrno>
#include <fstream>

#include <vantro/platform/io.h>

#include "tests/support/process.h"

namespace vantro::grantor {
namespace {

class Grantor : public test::RuntimeDirectory {
  protected:
    void write_policy(const std::string &text) { std::ofstream(file()) << text; }
    std::string file() const { return path_ + "/policy"; }
    std::vector<std::string> words() const { return {VANTRO_GRANTOR, "--policy", file()}; }
};

// The answer that a service would get: the count, or the error negated.
int ask(int device, const std::string &line) {
    const ssize_t count = platform_write(device, line.data(), line.size());
    return count < 0 ? -errno : static_cast<int>(count);
}

TEST_F(Grantor, AnswersReloadsAndKeepsThePolicyThatABadFileWouldReplace) {
    write_policy("uid:1000 audio net\n* clock\n");
    test::Process grantor(words());
    ASSERT_EQ(grantor.line(), "vantro-grantor: ready (2 rules)");
    const int device = platform_open("/dev/grantor", O_RDWR);
    ASSERT_GE(device, 0);
    const std::string question = "chkcap 1000,100,net,audio,clock,";
    EXPECT_EQ(ask(device, question), 3);
    EXPECT_EQ(ask(device, "chkcap 1,100,net"), 0);
    EXPECT_EQ(ask(device, "chkcap 1000,100"), -EINVAL);
    EXPECT_EQ(ask(device, ""), -EINVAL);
    EXPECT_EQ(ask(device, "chkcap 1000,100," + std::string(1 << 20, ',')), -EINVAL);
    char byte;
    EXPECT_EQ(platform_read(device, &byte, 1), -1);
    EXPECT_EQ(errno, ENOSYS);

    write_policy("uid:1000 audio\n");
    grantor.kill(SIGHUP);
    ASSERT_EQ(grantor.line(), "vantro-grantor: policy reloaded (1 rules)");
    EXPECT_EQ(ask(device, question), 1);

    write_policy("uid:1000 audio net clock\nuid:x net\n");
    grantor.kill(SIGHUP);
    EXPECT_EQ(grantor.line(), "vantro-grantor: " + file() +
                                  ":2: \"uid:x\" does not end in the number of a user or group");
    EXPECT_EQ(grantor.line(), "vantro-grantor: the previous policy stays in force (1 rules)");
    EXPECT_EQ(ask(device, question), 1);

    test::Process second(words());
    EXPECT_EQ(second.line().find("vantro-grantor: " + file() + ":2: "), 0u);
    EXPECT_EQ(second.wait(), 1);
    write_policy("");
    test::Process third(words());
    EXPECT_EQ(third.line(),
              "vantro-grantor: cannot attach /dev/grantor: another grantor serves it");
    EXPECT_EQ(third.wait(), 1);

    grantor.kill(SIGTERM);
    EXPECT_EQ(grantor.wait(), 0);
    EXPECT_EQ(grantor.rest(), "");
    EXPECT_LT(ask(device, question), 0);
    platform_close(device);
    EXPECT_LT(platform_open("/dev/grantor", O_RDWR), 0);
}

TEST_F(Grantor, ClosesTheDeviceToThoseWhoMayNotAsk) {
    write_policy("* clock\n");
    give_to_plain_user();
    auto command = words();
    for (const char *word : {"--perms", "0600", "--uid", "0"}) {
        command.emplace_back(word);
    }
    test::Process grantor(command, test::become_plain_user);
    if (grantor.line() != "vantro-grantor: ready (1 rules)") {
        GTEST_SKIP() << "the program is out of reach of user " << test::plain_user();
    }
    test::Process client([] {
        test::become_plain_user();
        return platform_open("/dev/grantor", O_RDWR) < 0 ? errno : 0;
    });
    EXPECT_EQ(client.wait(), EACCES);
}

TEST_F(Grantor, RefusesACommandLineThatItDoesNotUnderstand) {
    write_policy("");
    for (const char *perms : {"0800", "rw", "7777", ""}) {
        auto command = words();
        command.insert(command.end(), {"--perms", perms});
        test::Process grantor(command);
        EXPECT_EQ(grantor.rest(), "vantro-grantor: --perms: permission bits are 0 to 0777; see "
                                  "vantro-grantor --help\n");
        EXPECT_EQ(grantor.wait(), 2) << perms;
    }
    EXPECT_EQ(test::Process({VANTRO_GRANTOR}).wait(), 2);
}

} // namespace
} // namespace vantro::grantor
