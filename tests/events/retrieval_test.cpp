// Publishers that come and go, readers that are slow, and the log.
#include <cerrno>
#include <cstring>

#include "events/log.h"
#include "player/handle.h"
#include "tests/events/support.h"

namespace vantro::events {
namespace {

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
    const long before = open_descriptors();
    EXPECT_EQ(vantro_event_get(handle), nullptr);
    EXPECT_EQ(std::exchange(errno, 0), ENOENT);
    EXPECT_EQ(vantro_event_wait(handle), -1);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(handle->event_queue, nullptr);
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
    stop_publishing();
    EXPECT_EQ(next(), "3 state 2/3/0/0 was 2/2/0/0");
    EXPECT_EQ(next(), "failed");
    EXPECT_EQ(errno, ESTALE);
    // The next one begins anew, and so must the application.
    start_publishing();
    publish("state", "status", "paused");
    EXPECT_EQ(next(), "failed");
    EXPECT_EQ(vantro_close(handle, "main"), 0);
    EXPECT_EQ(handle->event_queue, nullptr);
    EXPECT_EQ(open_descriptors(), before);
    EXPECT_EQ(vantro_open(handle, "main"), 0);
    EXPECT_EQ(next(), "3 state 3/1/0/0 was 1/1/0/0");
}

TEST_F(Retrieval, ReaderThatWasLappedGetsTheWholePicture) {
    start_publishing();
    for (const char *object : {"gone", "kept", "state", "track"})
        publish(object, "rate", "2");
    EXPECT_EQ(next(), "3 state 1/2/0/0 was 1/1/0/0");
    for (const char *object : {"gone", "kept", "track"})
        EXPECT_EQ(next(), std::string("7 ") + object + " {rate=2}");
    EXPECT_EQ(next(), "7");
    publish("kept", "rate", nullptr);
    publish("kept", "a", "1");
    object_delete(publisher, "gone");
    publish("state", "status", "playing");
    const std::string text(30000, 't');
    for (int i = 0; i < 100; i++)
        publish("track", "text", text.c_str());
    EXPECT_EQ(next(), "3 state 2/2/0/0 was 1/2/0/0");
    EXPECT_EQ(next(), "7 kept {a=1}");
    EXPECT_EQ(next(), "7 track {rate=2,text=" + text + "}");
    EXPECT_EQ(next(), "7");
}

TEST_F(Retrieval, TracesAreNotWrittenAndLinesAreCut) {
    for (const int severity : {7, 6, 5, 4})
        msglog(severity, "trace");
    msglog(3, "%s", std::string(2000, 'l').c_str());
    EXPECT_EQ(take_lines(), Lines{"3 " + std::string(1023 - std::strlen("vantro event: "), 'l')});
}

TEST(LogDeathTest, SeverityTwoEndsTheProcess) {
    EXPECT_EXIT(msglog(2, "over"), testing::ExitedWithCode(1), "");
}

} // namespace
} // namespace vantro::events
