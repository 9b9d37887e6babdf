// A session bus of the test's own, and a client of it that keeps the signals it receives.
#ifndef VANTRO_TESTS_BRIDGES_MPRIS_SESSION_BUS_H
#define VANTRO_TESTS_BRIDGES_MPRIS_SESSION_BUS_H

#include <cstdlib>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <fmt/format.h>
#include <gtest/gtest.h>
#include <systemd/sd-bus.h>

#include "tests/support/process.h"

namespace vantro::mpris {

// The rest of a message, in words: "{a: 1, b: [x, y]}".
inline std::string words_of(sd_bus_message *message) {
    std::string words;
    char type = 0;
    const char *contents = nullptr;
    while (sd_bus_message_peek_type(message, &type, &contents) > 0) {
        if (!words.empty()) {
            words += type == 'v' ? " " : ", ";
        }
        if (type == 'a' || type == 'v' || type == 'r' || type == 'e') {
            sd_bus_message_enter_container(message, type, contents);
            const std::string inner = words_of(message);
            sd_bus_message_exit_container(message);
            const std::string ends = type != 'a' ? "" : *contents == '{' ? "{}" : "[]";
            words += ends.substr(0, 1) + inner + ends.substr(ends.size() / 2);
        } else if (type == 's' || type == 'o') {
            const char *text = nullptr;
            sd_bus_message_read_basic(message, type, &text);
            words += text;
        } else if (type == 'd') {
            double number = 0;
            sd_bus_message_read_basic(message, type, &number);
            words += fmt::format("{}", number);
        } else {
            int64_t number = 0; // wide enough for any of them, and the machine is little-endian
            sd_bus_message_read_basic(message, type, &number);
            words += std::to_string(number);
        }
    }
    return words;
}

class SessionBus {
  public:
    SessionBus()
        : daemon_({"/usr/bin/dbus-daemon", "--session", "--nofork", "--nopidfile",
                   "--print-address=1",
                   fmt::format("--address=unix:dir={}", std::getenv("XDG_RUNTIME_DIR"))}) {
        std::string address = daemon_.line();
        while (!address.empty() && !address.starts_with("unix:")) {
            address = daemon_.line(); // a warning
        }
        setenv("DBUS_SESSION_BUS_ADDRESS", address.c_str(), 1);
        EXPECT_GE(sd_bus_open_user(&bus_), 0);
        for (const char *match : {"type='signal',path='/org/mpris/MediaPlayer2'",
                                  "type='signal',member='NameOwnerChanged'"}) {
            EXPECT_GE(sd_bus_add_match(bus_, nullptr, match, keep, this), 0);
        }
    }
    ~SessionBus() { sd_bus_close_unref(bus_); }
    SessionBus(const SessionBus &) = delete;
    SessionBus &operator=(const SessionBus &) = delete;

    sd_bus *bus() { return bus_; }

    // Waits until the name has an owner, or none.
    void wait_for_name(const std::string &name, bool owned) {
        while (std::stoi(call("org.freedesktop.DBus", "/org/freedesktop/DBus",
                              "org.freedesktop.DBus", "NameHasOwner", "s", name.c_str())) !=
               int{owned}) {
            sd_bus_wait(bus_, UINT64_MAX);
            while (sd_bus_process(bus_, nullptr) > 0) {
            }
        }
    }

    // @return the answer in words, or the error's name.
    template <typename... Arguments>
    std::string call(const char *to, const char *path, const char *interface, const char *member,
                     const char *types, Arguments... arguments) {
        sd_bus_message *answer = nullptr;
        sd_bus_error error = {};
        const int result = sd_bus_call_method(bus_, to, path, interface, member, &error, &answer,
                                              types, arguments...);
        std::string words = result < 0 ? std::string(error.name) : words_of(answer);
        sd_bus_error_free(&error);
        sd_bus_message_unref(answer);
        return words;
    }

    // The signals of players since the last call: "Seeked: 5000000". They include every signal that
    // a player sent before the last answer.
    std::vector<std::string> take_signals() {
        while (sd_bus_process(bus_, nullptr) > 0) {
        }
        return std::exchange(signals_, {});
    }
    // Waits for the next signal.
    std::string next_signal() {
        while (sd_bus_process(bus_, nullptr) > 0 || signals_.empty()) {
            if (signals_.empty()) {
                sd_bus_wait(bus_, UINT64_MAX);
            }
        }
        std::string signal = signals_.front();
        signals_.erase(signals_.begin());
        return signal;
    }

  private:
    static int keep(sd_bus_message *signal, void *data, sd_bus_error *) {
        if (sd_bus_message_is_signal(signal, "org.freedesktop.DBus", nullptr) == 0) {
            static_cast<SessionBus *>(data)->signals_.push_back(
                fmt::format("{}: {}", sd_bus_message_get_member(signal), words_of(signal)));
        }
        return 0;
    }

    test::Process daemon_;
    sd_bus *bus_ = nullptr;
    std::vector<std::string> signals_;
};

} // namespace vantro::mpris

#endif
