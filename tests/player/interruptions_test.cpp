// The player's calls, interrupted at any moment: each result is that of its own request.
#include <cerrno>
#include <cstring>

#include <vantro/extras.h>
#include <vantro/protocol.h>

#include "tests/player/service.h"
#include "tests/support/interruptions.h"

namespace {

using vantro::test::Interruptions;
using vantro::test::InterruptionsLeft;

// The number in a request: the first word of its parameters, or the text at their end.
int number_in(const std::string &bytes) {
    if (bytes[0] == VANTRO_COMMAND_SEEK) {
        int32_t position;
        std::memcpy(&position, &bytes[sizeof(RequestHeader)], sizeof position);
        return position;
    }
    return std::stoi(bytes.substr(bytes.rfind('#') + 1));
}

// Answers a listing with nodes named after the request, and accepts only seeks to even positions.
int32_t answer_by_number(MsgOsb *open, MsgContext *context) {
    const std::string bytes(static_cast<const char *>(context->payload),
                            context->header->send_length);
    std::string reply = words({0});
    if (bytes[0] == VANTRO_COMMAND_BROWSE || bytes[0] == VANTRO_COMMAND_SEARCH) {
        const int number = number_in(bytes), count = number % 60;
        reply = words({0, count});
        for (int i = 0; i < count; i++) {
            reply += words({1, 12, 3, 2}) + text("7") + text(std::to_string(number));
        }
    } else if (bytes[0] == VANTRO_COMMAND_SEEK) {
        reply = words({number_in(bytes) % 2});
    }
    requests.clear();
    return callout_reply(open, context, 0, reply.data(), static_cast<int32_t>(reply.size()));
}

class InterruptedPlayer : public Player {
  protected:
    void SetUp() override {
        Player::SetUp();
        will_respond(answer_by_number);
    }
    void TearDown() override {
        errno = 77;
        Player::TearDown();
    }

    // Whether a call succeeded. One that failed was interrupted, unless it was to be refused.
    bool checked(int result, bool refused = false) {
        bool interrupted = false;
        for (const std::string &line : take(lines)) {
            interrupted |= line.find("Interrupted") != line.npos;
        }
        EXPECT_TRUE(interrupted || result == (refused ? -1 : 0));
        EXPECT_FALSE(result == 0 && (interrupted || refused));
        ++(interrupted ? given_up : answered);
        return result == 0;
    }

    void list(int number) {
        const std::string what = "#" + std::to_string(number);
        MediaNode *nodes = nullptr;
        int count = 0;
        const bool granted = checked(
            number % 2 ? vantro_browse(handle, 3, what.c_str(), 0, &count, &nodes)
                       : vantro_search(handle, 3, "album", what.c_str(), 0, &count, &nodes));
        if (granted) {
            EXPECT_EQ(count, number % 60);
            for (int i = 0; i < count; i++) {
                EXPECT_STREQ(nodes[i].name, std::to_string(number).c_str());
            }
            vantro_free_media_nodes(nodes, count);
        }
    }

    void open_again() {
        while (!HasFailure() && !checked(vantro_close(handle, "main"))) {
        }
        while (!HasFailure() && !checked(vantro_open(handle, "main"))) {
        }
    }

    long answered = 0, given_up = 0;
};

TEST_F(InterruptedPlayer, EveryResultIsItsOwnRequests) {
    const InterruptionsLeft left(vantro::test::interruptions_wanted / 2);
    {
        const Interruptions interruptions(1);
        for (int number = 0; left && !HasFailure(); number++) {
            list(number);
            checked(vantro_seek(handle, number), number % 2 == 1);
            if (number % 50 == 0) {
                open_again();
            }
        }
    }
    std::printf("%d signals: %ld answered, %ld given up\n", Interruptions::sent.load(), answered,
                given_up);
    EXPECT_GT(answered, 0);
    EXPECT_GT(given_up, 0);
}

} // namespace
