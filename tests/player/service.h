// A player service of the tests' own on the library's server half: it keeps the bytes of each
// request, and gives the answer that the test has chosen. Every line of the log is kept too.
#ifndef VANTRO_TESTS_PLAYER_SERVICE_H
#define VANTRO_TESTS_PLAYER_SERVICE_H

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include <vantro/messaging.h>
#include <vantro/platform/log.h>
#include <vantro/player.h>

#include "tests/support/local_service.h"

using Lines = std::vector<std::string>;

inline std::string words(std::initializer_list<int32_t> values) {
    return std::string(reinterpret_cast<const char *>(values.begin()), values.size() * 4);
}

inline std::string request(uint16_t command, const std::string &parameters = "") {
    return words({command, static_cast<int32_t>(parameters.size()), 0, 0}) + parameters;
}

inline std::string text(const std::string &value) {
    return words({static_cast<int32_t>(value.size())}) + value;
}

inline std::mutex guard; // Guards the four below, which the service's thread and the test share.
inline Lines requests;
inline Lines lines;
inline std::string answer;
// If a test sets it, it answers instead.
inline std::function<int32_t(MsgOsb *, MsgContext *)> respond;

inline int32_t record_and_answer(MsgOsb *open, MsgContext *context, MsgService *) {
    const std::lock_guard<std::mutex> lock(guard);
    requests.emplace_back(static_cast<const char *>(context->payload),
                          context->header->send_length);
    EXPECT_EQ(context->header->code, 0);
    if (respond) {
        return respond(open, context);
    }
    return callout_reply(open, context, 0, answer.data(), static_cast<int32_t>(answer.size()));
}

inline void record_line(uint32_t code, int severity, const char *line, void *) {
    const std::string prefix = std::string(program_invocation_short_name) + ": ";
    const std::lock_guard<std::mutex> lock(guard);
    EXPECT_EQ(code, 0x06B02710U);
    EXPECT_EQ(std::string(line).substr(0, prefix.size()), prefix);
    lines.push_back(std::to_string(severity) + " " + (line + prefix.size()));
}

inline Lines take(Lines &from) {
    const std::lock_guard<std::mutex> lock(guard);
    return std::exchange(from, {});
}

inline void will_answer(const std::string &bytes) {
    const std::lock_guard<std::mutex> lock(guard);
    answer = bytes;
}

inline void will_respond(std::function<int32_t(MsgOsb *, MsgContext *)> with) {
    const std::lock_guard<std::mutex> lock(guard);
    respond = std::move(with);
}

class Player : public testing::Test {
  protected:
    static void SetUpTestSuite() {
        service.emplace(record_and_answer);
        directory = service->directory;
        std::filesystem::create_directories(directory + "/nobody/vantro");
        std::filesystem::permissions(directory + "/nobody", std::filesystem::perms::owner_all);
    }
    static void TearDownTestSuite() { service.reset(); }

    void SetUp() override {
        system_log_set_sink(record_line, nullptr);
        will_answer(words({0}));
        handle = vantro_connect();
        ASSERT_NE(handle, nullptr);
        ASSERT_EQ(vantro_open(handle, "main"), 0);
        EXPECT_EQ(take(requests), Lines{request(0, text("main"))});
        EXPECT_EQ(take(lines), Lines{});
        errno = 77; // No call below may change it, unless it says so.
    }

    void TearDown() override {
        EXPECT_EQ(errno, 77);
        will_respond(nullptr);
        will_answer(words({0}));
        EXPECT_EQ(vantro_disconnect(handle), 0);
        EXPECT_EQ(take(lines), Lines{});
        take(requests);
        system_log_set_sink(nullptr, nullptr);
    }

    inline static std::optional<vantro::test::LocalService> service;
    inline static std::string directory;
    VantroHandle *handle = nullptr;
};

#endif
