// What the platform cannot give while an event is made.
#include <csignal>
#include <cstdio>

#include <vantro/platform/json.h>

#include "player/handle.h"
#include "tests/support/failing_memory.h"
#include "tests/support/player_follower.h"

namespace {
bool refuses = false; // Whether the calls below fail.
}

extern "C" {
mosk_dict *__real_mosk_dict_new();
int __real_kivo_decoder_initialize(kivo_decoder *decoder, char *text);
mosk_dict *__wrap_mosk_dict_new() {
    return refuses ? nullptr : __real_mosk_dict_new();
}
int __wrap_kivo_decoder_initialize(kivo_decoder *decoder, char *text) {
    return refuses ? -1 : __real_kivo_decoder_initialize(decoder, text);
}
}

namespace vantro::events {
namespace {

using Decoding = Events;

TEST_F(Decoding, WhatThePlatformCannotGiveIsSaid) {
    RawPublisher raw;
    const auto next_refused = [this] {
        refuses = true;
        const std::string event = next();
        refuses = false;
        return event;
    };
    const long before = open_descriptors();
    EXPECT_EQ(next_refused(), "failed");
    EXPECT_EQ(handle->event_queue.load(), nullptr);
    EXPECT_EQ(open_descriptors(), before);
    ASSERT_EQ(next(), "7");
    raw.publish("@x\na::1\n");
    EXPECT_EQ(next_refused(), "7");
    EXPECT_EQ(take_lines(), Lines{"3 dict is null and please investigate"});
    raw.publish("@x\nb::2\n");
    raw.publish("@track\nindex:n:2\ntsid:n:7\nmedia_node:json:{}\n");
    EXPECT_EQ(next(), "7 x {b=2}"); // What is reported next was read with it.
    EXPECT_EQ(next_refused(), "5 track 2 7");
    EXPECT_EQ(take_lines(), Lines{"3 Unable to create a kivo decoder"});
}

TEST_F(Decoding, WantOfMemoryForARecordEndsTheProcess) {
    RawPublisher raw;
    ASSERT_EQ(next(), "7");
    const auto print = [](uint32_t, int, const char *line, void *) { std::perror(line); };
    for (const auto &[change, said] : {
             std::pair{"@mediasource\ntype::1\nmedia_source::{}\n", "media surce object"},
             std::pair{"@track\nindex::1\ntsid::1\nmedia_node::{}\n", "media node object"},
             std::pair{"@track\nindex::1\ntsid::1\nmedia_node::\nmetadata::{}\n",
                       "metadata object"},
         }) {
        raw.publish("@x\na::1\n");
        raw.publish(change);
        EXPECT_EQ(next(), "7 x {a=1}");
        EXPECT_EXIT((system_log_set_sink(print, nullptr), allocations_left = 0, next()),
                    testing::KilledBySignal(SIGABRT), std::string("No memory for ") + said);
        EXPECT_NE(next(), "7");
    }
}

} // namespace
} // namespace vantro::events
