// Requests without memory: each allocation of each command fails in turn.
#include "service/requests/answers.h"

#include <cerrno>
#include <cstring>
#include <new>

#include <gtest/gtest.h>

#include <vantro/player.h>
#include <vantro/protocol.h>

#include "tests/support/failing_new.h"
#include "tests/support/memory_catalogue.h"
#include "tests/support/process.h"

namespace vantro::service::requests {

namespace {

template <typename... Values>
std::string request(uint16_t command, Values... values) {
    std::string rest;
    (rest.append(reinterpret_cast<const char *>(&values), sizeof values), ...);
    std::string all(sizeof(RequestHeader), '\0');
    std::memcpy(all.data(), &command, sizeof command);
    return all + rest;
}

struct Service {
    test::MemoryCatalogue catalogue{{1000, 2000, 3000}};
    playback::Players players{catalogue, {"main"}, [] { return std::chrono::nanoseconds(1); }};
    Answers answers{catalogue, players};
    Bytes answer; // empty, as a thread's first one

    Service() {
        const object_readers own = {OBJECT_READERS_OWN, OBJECT_READERS_OWN, 0400};
        EXPECT_FALSE(players.publish(own, [](int, const std::string &) {}));
        answers.opens().reset(0);
        answers.opens().open(0, 0);
    }
    int32_t ask(const std::string &what) {
        publishing::HeldBell bell;
        answers.respond(0, what.data(), what.size(), answer, bell);
        int32_t result = -1;
        std::memcpy(&result, answer.data(), sizeof result);
        return result;
    }
    // Everything that a command can change.
    std::string picture() {
        const playback::Engine::Snapshot now = players[0].snapshot();
        std::string all = std::to_string(now.modes.state) + "/" + std::to_string(now.modes.shuffle);
        all += " song " + std::to_string(now.index) + ", sessions";
        for (uint64_t tsid = 1; tsid < 20; ++tsid) {
            all += players[0].session(tsid) ? " " + std::to_string(tsid) : "";
        }
        return all + " current " + std::to_string(now.session ? now.session->tsid : 0);
    }
};

using AnswersWithoutMemory = test::RuntimeDirectory;

TEST_F(AnswersWithoutMemory, ARefusedCommandChangesNothing) {
    const std::string load =
        request(VANTRO_COMMAND_CREATE_TRKSESSION, 1, 1, VANTRO_TRKSESSION_LOAD, 0);
    const struct {
        const char *name;
        std::string prepare;
        std::string command;
    } rows[] = {
        {"create", "", load},
        {"create beside another", load, load},
        {"destroy", load, request(VANTRO_COMMAND_DESTROY_TRKSESSION, uint64_t{1})},
        {"jump", load, request(VANTRO_COMMAND_JUMP, 2)},
        {"play of all songs", "", request(VANTRO_COMMAND_PLAY)},
        {"play", load, request(VANTRO_COMMAND_PLAY)},
        {"shuffle", load, request(VANTRO_COMMAND_SHUFFLE, 1)},
        {"next", load, request(VANTRO_COMMAND_NEXT)},
    };
    for (const auto &row : rows) {
        bool refused = true;
        for (int failing = 0; refused; ++failing) {
            SCOPED_TRACE(std::string(row.name) + ", allocation " + std::to_string(failing));
            Service service;
            if (!row.prepare.empty()) {
                ASSERT_EQ(service.ask(row.prepare), 0);
            }
            service.answer = {};
            const std::string before = service.picture();
            test::news_left = failing;
            try {
                refused = service.ask(row.command) != 0;
            } catch (const std::bad_alloc &) {
                refused = true;
            }
            test::news_left = -1;
            EXPECT_EQ(service.picture() == before, refused) << before << "; " << service.picture();
            ASSERT_LT(failing, 100);
        }
    }
}

} // namespace

} // namespace vantro::service::requests
