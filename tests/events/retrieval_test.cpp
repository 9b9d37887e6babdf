// Which events follow from what is published, in which order, and what is logged. Most cases are
// scenarios: see scenarios/README.
#include <algorithm>
#include <cctype>
#include <cerrno>
#include <clocale>
#include <cstring>
#include <fstream>
#include <memory>
#include <stdio_ext.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include "events/log.h"
#include "events/queue.h"
#include "tests/support/player_follower.h"

namespace vantro::events {
namespace {

class Scenario : public Events, public testing::WithParamInterface<const char *> {};

// Writes {x*9} out as nine times x.
std::string expanded(std::string text) {
    for (size_t star = 0; (star = text.find('*', star)) != text.npos; star++) {
        if (star >= 2 && text[star - 2] == '{') {
            text.replace(star - 2, text.find('}', star) - star + 3,
                         std::string(std::stoul(text.substr(star + 1)), text[star - 1]));
        }
    }
    return text;
}

TEST_P(Scenario, GivesTheEventsThatItLists) {
    RawPublisher raw;
    ASSERT_EQ(next(), "7");
    std::ifstream scenario(std::string(SCENARIOS) + "/" + GetParam());
    Lines expected_lines;
    const auto check_lines = [&] { EXPECT_EQ(take_lines(), std::exchange(expected_lines, {})); };
    std::vector<std::unique_ptr<std::string>> values;
    int number = 0, events = 0;
    for (std::string entry; std::getline(scenario, entry);) {
        SCOPED_TRACE(std::string(GetParam()) + ":" + std::to_string(++number));
        const std::string text = expanded(entry.size() > 2 ? entry.substr(2) : "");
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
INSTANTIATE_TEST_SUITE_P(Events, Scenario, testing::Values("state", "order", "texts", "details"),
                         [](const auto &test) { return std::string(test.param); });

using Retrieval = Events;

TEST_F(Retrieval, WithoutAPublisherOrAPlayerLeavesNothing) {
    VantroHandle *unopened = vantro_connect();
    for (VantroHandle *bad : {static_cast<VantroHandle *>(nullptr), unopened}) {
        errno = 0;
        EXPECT_EQ(vantro_event_get(bad), nullptr);
        EXPECT_EQ(vantro_event_wait(bad), -1);
        EXPECT_EQ(errno, 0);
        EXPECT_EQ(vantro_event_data_set(bad, this), -1);
        EXPECT_EQ(errno, EINVAL);
    }
    vantro_disconnect(unopened);
    EXPECT_EQ(take_lines(), Lines(4, "3 Invalid vantro handle"));
    // No service ever published here, whichever services ended in other tests.
    ASSERT_EQ(vantro_close(handle, "main"), 0);
    ASSERT_EQ(vantro_open(handle, "nobody"), 0);
    const long before = open_descriptors();
    EXPECT_EQ(vantro_event_get(handle), nullptr);
    EXPECT_EQ(std::exchange(errno, 0), ENOENT);
    EXPECT_EQ(vantro_event_wait(handle), -1);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(handle->event_queue.load(), nullptr);
    EXPECT_EQ(open_descriptors(), before);
}

TEST_F(Retrieval, FollowsOnePublisherAfterTheOther) {
    start_publishing();
    publish("state", "status", "playing");
    publish("state", "rate", "2");
    publish("mediasource1", "a", "1");
    publish("mediasource1", "b", "2");
    const long before = open_descriptors();
    EXPECT_EQ(next(), "3 state 2/2/0/0 was 1/1/0/0");
    EXPECT_EQ(next(), "7 mediasource1 {a=1,b=2}");
    EXPECT_EQ(open_descriptors(), before + 2);
    publish("state", "rate", "3");
    for (const char *last : {"x", "y"}) {
        publish(last, "a", "1");
    }
    stop_publishing();
    for (const char *last : {"3 state 2/3/0/0 was 2/2/0/0", "7 x {a=1}", "7 y {a=1}", "failed"}) {
        EXPECT_EQ(next(), last);
    }
    EXPECT_EQ(errno, ESTALE);
    // The next one begins again, and so must the application.
    start_publishing();
    publish("state", "status", "paused");
    EXPECT_EQ(next(), "failed");
    EXPECT_EQ(vantro_close(handle, "main"), 0);
    EXPECT_EQ(handle->event_queue.load(), nullptr);
    EXPECT_EQ(open_descriptors(), before);
    EXPECT_EQ(vantro_open(handle, "main"), 0);
    EXPECT_EQ(next(), "3 state 3/1/0/0 was 1/1/0/0");
}

TEST_F(Retrieval, ChildClosesNothingOfItsOwnWithItsParentsHandle) {
    start_publishing();
    ASSERT_EQ(next(), "7");
    const pid_t child = fork();
    if (child == 0) {
        system_log_set_sink([](uint32_t, int, const char *, void *) {}, nullptr);
        int own[100];
        for (int &descriptor : own) {
            descriptor = dup(STDERR_FILENO);
        }
        bool good = !vantro_event_get(handle) && errno == EBADF;
        good = vantro_event_wait(handle) == -1 && errno == EBADF && good;
        vantro_disconnect(handle);
        for (const int descriptor : own) {
            good = close(descriptor) == 0 && good;
        }
        _exit(good ? 0 : 1);
    }
    int status = -1;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
    publish("x", "a", "1");
    EXPECT_EQ(next(), "7 x {a=1}");
}

TEST_F(Retrieval, ReaderThatWasLappedGetsThePresentState) {
    start_publishing();
    char value[] = "value";
    for (const char *object : {"again", "gone", "kept", "state", "track"}) {
        publish(object, "rate", "2");
    }
    EXPECT_EQ(next(), "3 state 1/2/0/0 was 1/1/0/0");
    for (const char *object : {"again", "gone", "kept", "track"}) {
        EXPECT_EQ(next(), std::string("7 ") + object + " {rate=2}");
        EXPECT_EQ(vantro_event_data_set(handle, value), 0);
    }
    EXPECT_EQ(next(), "7");
    object_delete(publisher, "again");
    publish("again", "rate", "3");
    publish("kept", "rate", nullptr);
    publish("kept", "a", "1");
    object_delete(publisher, "gone");
    publish("state", "status", "playing");
    const std::string text(30000, 't');
    for (int i = 0; i < 100; i++) {
        publish("track", "text", text.c_str());
    }
    EXPECT_EQ(next(), "3 state 2/2/0/0 was 1/2/0/0");
    EXPECT_EQ(next(), "7 again {rate=3}") << "another object, and so without the value";
    EXPECT_EQ(next(), "7 kept {a=1} *value");
    EXPECT_EQ(next(), "7 track {rate=2,text=" + text + "} *value");
    EXPECT_EQ(next(), "7");
}

TEST_F(Retrieval, ABurstOfOneObjectLeavesOneEntry) {
    start_publishing();
    ASSERT_EQ(next(), "7");
    for (const std::string object : {"x", "y", "x"}) {
        for (int i = 0; i < 10000; i++) {
            publish(object.c_str(), "a", "1");
        }
        for (int i = 0; i < 10000; i++) {
            ASSERT_EQ(next(), "7 " + object + " {a=1}");
        }
        EXPECT_EQ(next(), "7");
    }
    int entries = 0;
    for (const ObjectEntry *entry = handle->event_queue.load()->clean_list; entry;
         entry = entry->next) {
        entries++;
    }
    EXPECT_EQ(entries, 2);
}

// Texts that our publisher never writes, but others may. They come from a socket, one text for each
// read.
TEST_F(Retrieval, TextsWithoutAnObjectsWholeLineArePassedOver) {
    start_publishing();
    ASSERT_EQ(next(), "7");
    int ends[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET, 0, ends), 0);
    std::swap(handle->event_queue.load()->all_fd, ends[0]);
    for (const std::string text : {"a::1\n", "@x", "\n@", "a::1\n@x\nb::2\n"}) {
        EXPECT_EQ(write(ends[1], text.data(), text.size()), static_cast<ssize_t>(text.size()));
    }
    close(ends[1]);
    EXPECT_EQ(next(), "7 x {b=2}");
    EXPECT_EQ(take_lines(), Lines{"3 dict is null and please investigate"});
    EXPECT_EQ(next(), "7");
    std::swap(handle->event_queue.load()->all_fd, ends[0]);
    close(ends[0]);
}

// In Turkish the decimal separator is a comma, and the lower case of "I" has no dot.
TEST_F(Retrieval, TextsMeanTheSameInEveryLocale) {
    const std::string home = std::string(getenv("XDG_RUNTIME_DIR")) + "/locales";
    std::filesystem::create_directory(home);
    const std::string make = "localedef -i tr_TR -f ISO-8859-9 " + home + "/tr_TR 2>&1";
    setenv("LOCPATH", home.c_str(), 1);
    if (std::system(make.c_str()) != 0 || !std::setlocale(LC_ALL, "tr_TR")) {
        GTEST_SKIP() << "no such locale can be had here";
    }
    start_publishing();
    publish("state", "rate", "1.5");
    publish("state", "status", "PLAYING");
    const bool differs = std::strtod("1.5", nullptr) == 1 && std::tolower('I') != 'i';
    const VantroEvent event = *vantro_event_get(handle);
    std::setlocale(LC_ALL, "C");
    EXPECT_TRUE(differs);
    EXPECT_EQ(event.rate, 1.5F);
    EXPECT_EQ(event.state, VANTRO_STATE_PLAYING);
}

TEST_F(Retrieval, TracesFlushAndAreNotWrittenAndLinesAreCut) {
    std::fputs(" ", stdout);
    for (const int severity : {7, 6, 5, 4}) {
        msglog(severity, "trace");
    }
    EXPECT_EQ(__fpending(stdout), 0U);
    msglog(3, "%s", std::string(2000, 'l').c_str());
    EXPECT_EQ(take_lines(), Lines{"3 " + std::string(1023 - std::strlen("vantro event: "), 'l')});
}

} // namespace
} // namespace vantro::events
