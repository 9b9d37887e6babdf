// A handle with an open player, a service that agrees to everything, and publishers.
#ifndef VANTRO_TESTS_SUPPORT_PLAYER_FOLLOWER_H
#define VANTRO_TESTS_SUPPORT_PLAYER_FOLLOWER_H

#include <cstdlib>
#include <filesystem>
#include <functional>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include <vantro/messaging.h>
#include <vantro/platform/log.h>
#include <vantro/platform/objects.h>
#include <vantro/player.h>

#include "common/locks.h"
#include "platform/linux/objects/object_directory.h"

namespace vantro::events {

using Lines = std::vector<std::string>;

inline const char *const player_directory = "/kivo/services/vantro/main";

// Sets, or deletes where the value is NULL, one attribute of an object.
inline void publish(object_publisher *to, const char *object, const char *name, const char *value) {
    const object_attribute attribute{name, KIVO_TEXT, value};
    ASSERT_EQ(object_publish(to, object, 0, &attribute, 1), 0);
}

// Publishes any text.
class RawPublisher {
  public:
    RawPublisher() { EXPECT_TRUE(directory_.take(player_directory + 1, ring_)); }
    ~RawPublisher() { directory_.remove(); }
    void publish(const std::string &text) {
        ring_.append(platform::RecordKind::change, text);
        platform::RingWriter::ring_bell(directory_.ring_file());
    }

  private:
    platform::ObjectDirectory directory_;
    platform::RingWriter ring_;
};

// An event in words: its type, its object, and what it says.
std::string told(const VantroEvent *event);
std::string told(const mosk_dict *dict);

class Events : public testing::Test {
  protected:
    void SetUp() override;
    void TearDown() override;

    Lines take_lines() {
        const MutexLock lock(guard_);
        return std::exchange(lines_, {});
    }
    // Makes this process the publisher.
    void start_publishing() { ASSERT_TRUE(publisher = object_publisher_open(player_directory)); }
    void stop_publishing() { object_publisher_close(std::exchange(publisher, nullptr)); }
    void publish(const char *object, const char *name, const char *value) {
        events::publish(publisher, object, name, value);
    }
    // Gets the next event, in words.
    std::string next() { return told(vantro_event_get(handle)); }

    VantroHandle *handle = nullptr;
    object_publisher *publisher = nullptr;
    std::function<void()> on_line; // Called once, with the next line of the log.

  private:
    static void record_line(uint32_t code, int severity, const char *line, void *data);

    Mutex guard_;
    Lines lines_ GUARDED_BY(guard_);
};

// Sockets are not counted: the service may close those of a client that has gone later. Events have
// none.
inline long open_descriptors() {
    long count = 0;
    for (const auto &entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        std::error_code closed;
        const bool is_socket = read_symlink(entry, closed).native().starts_with("socket:");
        count += !is_socket && !closed;
    }
    return count;
}

} // namespace vantro::events

#endif
