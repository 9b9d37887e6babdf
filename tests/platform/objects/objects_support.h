// Shared by the tests of objects: publishing in one line, and a reader's view of the objects.
#ifndef VANTRO_TESTS_PLATFORM_OBJECTS_OBJECTS_SUPPORT_H
#define VANTRO_TESTS_PLATFORM_OBJECTS_OBJECTS_SUPPORT_H

#include <csignal>
#include <map>
#include <memory>

#include <vantro/platform/io.h>
#include <vantro/platform/notify.h>
#include <vantro/platform/objects.h>

#include "tests/platform/support.h"

namespace vantro::test {

inline constexpr const char *kitchen = "/kivo/services/vantro/kitchen";
inline constexpr int wake_signal = 57;

// Rounds of a long test. Under a sanitizer or an emulator each takes ten times as long.
constexpr int rounds(int plain) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__) || defined(__arm__)
    return plain / 10;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
    return plain / 10;
#else
    return plain;
#endif
#else
    return plain;
#endif
}

struct ClosePublisher {
    void operator()(object_publisher *publisher) const { object_publisher_close(publisher); }
};
using Publisher = std::unique_ptr<object_publisher, ClosePublisher>;

inline Publisher publish_in(const char *directory = kitchen) {
    return Publisher(object_publisher_open(directory));
}

inline int set(const Publisher &publisher, const char *object, const char *name,
               const std::string &value, unsigned flags = 0) {
    const struct object_attribute attribute = {name, KIVO_TEXT, value.c_str()};
    return object_publish(publisher.get(), object, flags, &attribute, 1);
}

// A descriptor of objects. Reads texts, and keeps the objects as they describe them.
class Reader {
  public:
    explicit Reader(const std::string &object = ".all", const std::string &directory = kitchen)
        : descriptor(platform_open((directory + "/" + object + "?delta").c_str(), O_RDONLY)) {}
    ~Reader() {
        if (descriptor >= 0) {
            platform_close(descriptor);
        }
    }
    Reader(const Reader &) = delete;

    // The next text; empty if there is none, permanently if `error` is set.
    std::string read() {
        const ssize_t length = platform_read(descriptor, buffer_.data(), OBJECT_CHANGE_MAX);
        error = length < 0 ? errno : 0;
        return std::string(buffer_.data(), static_cast<size_t>(std::max<ssize_t>(length, 0)));
    }
    std::string read_all() {
        std::string all;
        for (std::string text = read(); !text.empty(); text = read()) {
            all += text;
        }
        return all;
    }
    // Reads a text into `objects`. @return whether there was one.
    bool follow() {
        std::string text = read();
        last_was_start = text.starts_with("#@");
        struct kivo_record record = {};
        for (char *cursor = text.data();;) {
            const int result = kivoparse(&cursor, nullptr, nullptr, &record, 0);
            switch (result) {
            case KIVO_END:
                return !text.empty();
            case KIVO_OBJECT_DELETED:
                objects.erase(record.object);
                break;
            case KIVO_OBJECT_TRUNCATED:
                objects[record.object].clear();
                break;
            case KIVO_ATTRIBUTE:
                objects[record.object][record.attribute] = record.value;
                break;
            case KIVO_ATTRIBUTE_DELETED:
                objects[record.object].erase(record.attribute);
                break;
            case KIVO_ERROR:
                ADD_FAILURE() << "cannot be parsed: " << cursor;
                return false;
            default:
                objects[record.object];
            }
        }
    }
    int arm(int signal = wake_signal) const {
        const struct ipc_event event = {IPC_EVENT_SIGNAL_THREAD, signal, 0, 0, 0};
        return notify_arm(descriptor, NOTIFY_TEST_AND_ARM, NOTIFY_INPUT, &event);
    }

    const int descriptor;
    int error = 0;
    bool last_was_start = false;
    std::map<std::string, std::map<std::string, std::string>> objects;

  private:
    std::string buffer_ = std::string(OBJECT_CHANGE_MAX, '\0');
};

// Blocks the wake signals in this thread; takes what is pending at the end.
class WakeSignals {
  public:
    WakeSignals() {
        sigemptyset(&set_);
        sigaddset(&set_, wake_signal);
        sigaddset(&set_, SIGIO);
        pthread_sigmask(SIG_BLOCK, &set_, &previous_);
    }
    ~WakeSignals() {
        take();
        pthread_sigmask(SIG_SETMASK, &previous_, nullptr);
    }
    // Blocks for a wake. @return the signal, or -1 if it is long overdue.
    int wait() const {
        const struct timespec overdue = {20, 0};
        return sigtimedwait(&set_, nullptr, &overdue);
    }
    // Takes what is pending. @return how many.
    int take() const {
        int count = 0;
        const struct timespec at_once = {};
        while (sigtimedwait(&set_, nullptr, &at_once) > 0) {
            ++count;
        }
        return count;
    }

  private:
    sigset_t set_, previous_;
};

// Blocks until there is something to read.
inline void wait_for_input(const Reader &reader, const WakeSignals &signals) {
    if (reader.arm() == 0) {
        ASSERT_GT(signals.wait(), 0);
        notify_disarm(reader.descriptor);
        signals.take();
    }
}

} // namespace vantro::test

#endif
