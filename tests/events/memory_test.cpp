// What want of memory does to events.
#include <cerrno>
#include <csignal>
#include <cstdio>

#include "events/details.h"
#include "player/handle.h"
#include "tests/events/support.h"
#include "tests/records/failing_memory.h"

namespace vantro::events {
namespace {

using Memory = Events;

TEST_F(Memory, RetrievalThatFailsCostsItsCallAlone) {
    RawPublisher raw;
    ASSERT_EQ(next(), "7");
    int failures = -1;
    for (std::string event; event != "7 x {a=1,b=2}";) {
        raw.publish("@x\na::1\nb::2\n");
        allocations_left = ++failures;
        event = next();
        EXPECT_EQ(std::exchange(allocations_left, -1) < 0, event == "failed") << event;
        EXPECT_TRUE(event != "failed" || errno == ENOMEM);
        // What could be applied is queued.
        EXPECT_EQ(next() != "7", event == "failed" && failures > 0);
        raw.publish("-@x\n");
        EXPECT_EQ(next(), "7");
    }
    EXPECT_GE(failures, 3);
    EXPECT_EQ(take_lines(),
              (Lines{"3 Failed to copy attribute a::1", "3 Failed to copy attribute b::2"}));
}

// No queue and no record can be done without.
TEST(MemoryDeathTest, EndsTheProcess) {
    const auto fail = [](const char *object, const char *attribute) {
        system_log_set_sink([](auto, auto, const char *line, void *) { std::fputs(line, stderr); },
                            nullptr); // Wherever the host's log goes.
        char name[] = "main";
        VantroHandle handle{};
        handle.player_name = name;
        VantroEvent event{};
        event.object_name = object;
        mosk_dict *dict = mosk_dict_new();
        for (const char *needed : {"type", "index", "tsid", "media_node"})
            dict = mosk_dict_set(dict, needed, "");
        event.dict = mosk_dict_set(dict, attribute, "{}");
        allocations_left = 0;
        if (*object)
            filldetails(&event);
        else
            vantro_event_wait(&handle);
    };
    const auto killed = testing::KilledBySignal(SIGABRT);
    EXPECT_EXIT(fail("", ""), killed, "vantro event: No memeory");
    EXPECT_EXIT(fail("mediasource", "media_source"), killed, "No memory for media surce object");
    EXPECT_EXIT(fail("track", "metadata"), killed, "No memory for metadata object");
    EXPECT_EXIT(fail("track", "media_node"), killed, "No memory for media node object");
}

} // namespace
} // namespace vantro::events
