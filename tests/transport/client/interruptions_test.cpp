// Every call of a client, interrupted at any moment: each answer is the answer to its own request.
#include <cerrno>
#include <map>
#include <set>

#include "tests/support/interruptions.h"
#include "tests/transport/support.h"

namespace vantro::test {
namespace {

constexpr int callers = 3;

// Bytes that no other request of the test has.
std::string text_of(uint64_t id, size_t length) {
    std::string text;
    while (text.size() < length) {
        text.append(reinterpret_cast<const char *>(&id), sizeof id);
    }
    text.resize(length);
    return text;
}

// A thread that makes call after call, on a client of its own and on one that it shares.
class Caller {
  public:
    Caller(unsigned number, MsgClient *shared)
        : id_(uint64_t{number} << 32), random_(number), shared_(shared) {}

    void run(const InterruptionsLeft &left) {
        const Interruptions interruptions(static_cast<unsigned>(id_ >> 32));
        while (left && !testing::Test::HasFailure()) {
            reopen();
            for (int i = 0; i < 100 && left && !testing::Test::HasFailure(); i++) {
                call();
            }
        }
        msgclient_close(client_);
    }

    long answered = 0, given_up = 0;

  private:
    uint16_t code() { return random_() % 2 == 0 ? ECHO : SLOWLY; }
    size_t up_to(size_t most) { return random_() % (most + 1); }

    // Whether a call was answered. One that was not must have been interrupted.
    bool checked(int result, int expected = 0) {
        EXPECT_TRUE(result == expected || result == EINTR) << result << " and not " << expected;
        ++(result == expected ? answered : given_up);
        return result == expected;
    }

    void reopen() {
        msgclient_close(client_);
        left_behind_.clear();
        asked_.clear();
        while (!(client_ = msgclient_open("s", nullptr, ECHO))) {
            ASSERT_EQ(errno, EINTR);
        }
        while (!checked(msgclient_notify_pulse(client_, 8)) && !testing::Test::HasFailure()) {
        }
    }

    void call() {
        text_ = text_of(++id_, 8 + up_to(2000));
        switch (up_to(3)) {
        case 0:
            return ask(shared_);
        case 1:
            return ask(client_);
        case 2:
            text_ = text_of(id_, up_to(20) == 0 ? 200'000 : text_.size());
            return ask_for_a_long_answer();
        default:
            return put();
        }
    }

    // An answer that fits, through vectors of two parts.
    void ask(MsgClient *client) {
        std::string answer(text_.size(), '\0');
        const size_t half = up_to(text_.size());
        const iovec send[] = {{text_.data(), half}, {&text_[half], text_.size() - half}};
        const iovec reply[] = {{answer.data(), half}, {&answer[half], text_.size() - half}};
        if (checked(msgclient_putgetv(client, send, 2, reply, 2, nullptr, code()))) {
            EXPECT_EQ(answer, text_);
        }
    }

    // An answer that is held and fetched.
    void ask_for_a_long_answer() {
        uint32_t length = 0;
        if (checked(msgclient_putget(client_, text_.data(), static_cast<uint32_t>(text_.size()),
                                     nullptr, 0, &length, code()),
                    MSG_STATUS_QUEUED)) {
            EXPECT_EQ(length, text_.size());
            fetch(0, text_, 1);
        }
    }

    // @param lost whether the answer may be lost, or not yet made. @return whether it was fetched.
    bool fetch(uint32_t tag, const std::string &expected, int tries, bool lost = false) {
        for (; tries > 0; tries--) {
            std::string answer(expected.size(), '\0');
            uint32_t length = 0;
            const int result = msgclient_get(client_, tag, answer.data(),
                                             static_cast<uint32_t>(answer.size()), &length, 0);
            if (result == ENOMSG && lost) {
                return false;
            }
            if (checked(result)) {
                EXPECT_EQ(length, expected.size());
                EXPECT_EQ(answer, expected);
                return true;
            }
            lost = true; // an interrupted fetch may have taken it
        }
        return false;
    }

    // An answer that is announced and fetched. After an interruption it may be on its way.
    void put() {
        const auto tag = static_cast<uint32_t>(id_);
        asked_.insert(tag);
        const int result =
            msgclient_put(client_, tag, text_.data(), static_cast<uint32_t>(text_.size()), code());
        if (result == EAGAIN && !left_behind_.empty()) {
            return fetch_what_is_left_behind();
        }
        if (!checked(result)) {
            left_behind_[tag] = text_;
            return;
        }
        // The signals go on, and end a wait for a pulse that never comes.
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        uint32_t told;
        while ((told = msgclient_wait_pulse(client_)) != tag) {
            ASSERT_TRUE(told == 0 || asked_.count(told)) << "nobody asked with " << told;
            ASSERT_LT(std::chrono::steady_clock::now(), end) << "never announced";
        }
        if (!fetch(tag, text_, 3)) {
            left_behind_[tag] = text_;
        }
    }

    void fetch_what_is_left_behind() {
        std::erase_if(left_behind_,
                      [this](const auto &put) { return fetch(put.first, put.second, 3, true); });
    }

    uint64_t id_;
    std::minstd_rand random_;
    MsgClient *shared_;
    MsgClient *client_ = nullptr;
    std::string text_;
    std::set<uint32_t> asked_;                    // tags of this client's puts
    std::map<uint32_t, std::string> left_behind_; // tags whose answers may be held, now or later
};

class Interrupted : public testing::TestWithParam<int> {};

IN_BOTH_MODES(Interrupted);

TEST_P(Interrupted, EveryAnswerIsItsOwnRequests) {
    Server server(GetParam());
    ASSERT_EQ(server.add("s"), 0);
    server.start(3);
    const Client shared("s");
    std::vector<Caller> all;
    for (unsigned i = 1; i <= callers; i++) {
        all.emplace_back(i, shared.client);
    }
    const InterruptionsLeft left(interruptions_wanted / 2); // in each mode
    std::vector<std::thread> threads;
    threads.reserve(all.size());
    for (Caller &caller : all) {
        threads.emplace_back([&] { caller.run(left); });
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
    long answered = 0, given_up = 0;
    for (const Caller &caller : all) {
        answered += caller.answered;
        given_up += caller.given_up;
    }
    std::printf("%d signals: %ld answered, %ld given up\n", Interruptions::sent.load(), answered,
                given_up);
    EXPECT_GT(answered, 0);
    EXPECT_GT(given_up, 0);
}

} // namespace
} // namespace vantro::test
