// Exchanges: messages of every size arrive, and each answer reaches the client that asked.
#include <pthread.h>
#include <signal.h>
#include <sys/resource.h>

#include <condition_variable>
#include <mutex>
#include <numeric>

#include "tests/platform/support.h"

namespace vantro::test {
namespace {

std::string pattern(size_t length) {
    std::string text(length, '\0');
    for (size_t i = 0; i < length; ++i) {
        // Differs from the text of any other length.
        text[i] = static_cast<char>(i * 7 + i / 251 + length);
    }
    return text;
}

std::vector<UniqueFd> copies_of_descriptors() {
    std::vector<UniqueFd> copies;
    for (int descriptor = 3; descriptor < 64; ++descriptor) {
        copies.emplace_back(fcntl(descriptor, F_DUPFD_CLOEXEC, 64));
    }
    return copies;
}

// Sizes around every limit: of the receive vector, the socket and the reply vector.
TEST(Exchange, CarriesEverySizeBothWays) {
    const RuntimeDirectory runtime;
    constexpr size_t capacity = 1000;
    const ChannelServer server(
        [](const Message &message) {
            const auto total = static_cast<size_t>(message.info.total_length);
            std::string whole = message.bytes;
            if (total >= capacity) {
                whole.assign(total, '\0');
                // In two reads, the second beginning in the middle and asking for too much.
                const ssize_t first = ipc_read(message.receive_id, whole.data(), total / 2, 0);
                const ssize_t rest = ipc_read(message.receive_id, whole.data() + first, total,
                                              static_cast<size_t>(first));
                if (first + rest != static_cast<ssize_t>(total) ||
                    ipc_read(message.receive_id, whole.data(), 1, total) != 0) {
                    ipc_error(message.receive_id, EILSEQ);
                    return;
                }
            } else if (char byte; ipc_read(message.receive_id, &byte, 1, 0) != 0) {
                ipc_error(message.receive_id, EILSEQ); // nothing is kept of what fitted
                return;
            }
            const struct iovec parts[] = {{whole.data(), total / 3},
                                          {whole.data() + total / 3, total - total / 3}};
            ipc_replyv(message.receive_id, 7, parts, 2);
        },
        {}, 1, capacity);
    const int connection = connect_to_test();
    for (const size_t size :
         {size_t{0}, size_t{1}, capacity - 1, capacity, capacity + 1, size_t{IPC_INLINE_MAX},
          size_t{IPC_INLINE_MAX} + 1, size_t{200'000}, size_t{1} << 20, size_t{300'000},
          (size_t{1} << 20) + 1, size_t{IPC_INLINE_MAX} + 2}) {
        std::string sent = pattern(size);
        for (const size_t room : {size, size / 2, size + 10}) {
            std::string got(room, '\xee');
            std::vector<struct iovec> parts; // more than fit the stack
            for (size_t i = 0; i < 40; ++i) {
                const size_t from = room * i / 40;
                parts.push_back({got.data() + from, room * (i + 1) / 40 - from});
            }
            const struct iovec out[] = {{sent.data(), size / 2},
                                        {sent.data() + size / 2, size - size / 2}};
            ASSERT_EQ(ipc_send(connection, out, 2, parts.data(), 40), 7) << size << " " << room;
            const size_t common = std::min(room, size);
            ASSERT_EQ(got.substr(0, common), sent.substr(0, common)) << size << " " << room;
            ASSERT_EQ(got.substr(common), std::string(room - common, '\xee'));
        }
    }
    global_name_close(connection);
}

// A lane's answer file is passed once. If the client had no descriptor free for it, it is passed
// again, and no answer is read from an older file.
TEST(Exchange, AnAnswerFileThatDidNotArriveIsPassedAgain) {
    const RuntimeDirectory runtime;
    int start[2];
    ASSERT_EQ(pipe(start), 0);
    const pid_t child = in_child([&] { // made before there are threads, since it allocates
        char byte;
        [[maybe_unused]] const ssize_t n = read(start[0], &byte, 1);
        const int connection = connect_to_test();
        const auto answer_to = [connection](size_t size) {
            const std::string request = std::to_string(size);
            std::string got(size, '\0');
            const int status =
                ipc_send_simple(connection, request.data(), request.size(), got.data(), size);
            return status == 7 && got == pattern(size) ? 0 : errno;
        };
        for (const size_t size : {400'000, 250'000, 260'000}) {
            if (answer_to(size) != 0) {
                _exit(1);
            }
        }
        struct rlimit limit, few = {};
        getrlimit(RLIMIT_NOFILE, &limit);
        few.rlim_max = limit.rlim_max;
        setrlimit(RLIMIT_NOFILE, &few); // no descriptor more
        if (answer_to(700'000) != EMFILE) {
            _exit(2);
        }
        setrlimit(RLIMIT_NOFILE, &limit);
        for (const size_t size : {700'000, 600'000, 800'000, 150'000}) {
            if (answer_to(size) != 0) {
                _exit(3);
            }
        }
        _exit(0);
    });
    const ChannelServer server([](const Message &message) {
        const std::string bytes = pattern(std::stoul(message.bytes));
        ipc_reply(message.receive_id, 7, bytes.data(), bytes.size());
    });
    [[maybe_unused]] const ssize_t n = write(start[1], "s", 1);
    EXPECT_EQ(exit_status(child), 0);
    close(start[0]);
    close(start[1]);
}

TEST(Exchange, RefusesWhatItCannotCarry) {
    const RuntimeDirectory runtime;
    const ChannelServer server(echo);
    const int connection = connect_to_test();
    const std::vector<struct iovec> many(1023, {nullptr, 0});
    char byte;
    const struct iovec huge = {&byte, size_t{IPC_MESSAGE_MAX} + 1};
    const struct {
        const struct iovec *send;
        int send_count;
        const struct iovec *reply;
        int reply_count;
        int error;
    } cases[] = {
        {many.data(), 1023, nullptr, 0, EINVAL},
        {nullptr, 0, many.data(), 1023, EINVAL},
        {nullptr, -1, nullptr, 0, EINVAL},
        {&huge, 1, nullptr, 0, EMSGSIZE},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(ipc_send(connection, c.send, c.send_count, c.reply, c.reply_count), -1);
        EXPECT_EQ(errno, c.error);
    }
    EXPECT_EQ(ipc_send(connection, many.data(), 1022, nullptr, 0), 0);
    EXPECT_TRUE(is_served(connection));
    EXPECT_EQ(ipc_send_simple(connection + 1, "x", 1, nullptr, 0), -1);
    EXPECT_EQ(errno, EBADF);
    global_name_close(connection);
    EXPECT_EQ(ipc_send_simple(connection, "x", 1, nullptr, 0), -1);
    EXPECT_EQ(errno, EBADF);
    EXPECT_EQ(global_name_close(connection), -1);
}

TEST(Exchange, AnswersOnceAndOnlyToTheOneWhoAsked) {
    const RuntimeDirectory runtime;
    std::atomic<int> first_id{0};
    std::atomic<int> stale{0};
    {
        const ChannelServer server([&](const Message &message) {
            if (first_id == 0) {
                first_id = message.receive_id;
            } else {
                // The first exchange is over: its id is not valid any more, also on the same lane.
                stale += ipc_reply(first_id, 1, nullptr, 0) == -1 && errno == ESRCH;
                stale += ipc_read(first_id, nullptr, 0, 0) == -1 && errno == ESRCH;
            }
            ipc_error(message.receive_id, EDOM);
            stale += ipc_reply(message.receive_id, 1, nullptr, 0) == -1 && errno == ESRCH;
        });
        const int connection = connect_to_test();
        for (int i = 0; i < 3; ++i) {
            EXPECT_EQ(ipc_send_simple(connection, "x", 1, nullptr, 0), -1);
            EXPECT_EQ(errno, EDOM);
        }
        global_name_close(connection);
    } // with the server's thread ended, its counting is too
    EXPECT_EQ(stale, 2 * 2 + 3);
    for (const int invented : {0, -1, 1, 0x7fffffff}) {
        EXPECT_EQ(ipc_reply(invented, 0, nullptr, 0), -1);
        EXPECT_EQ(errno, ESRCH);
    }
}

// More threads than lanes, answers in any order from one other thread.
TEST(Exchange, ManyThreadsShareOneConnection) {
    const RuntimeDirectory runtime;
    std::mutex lock;
    std::condition_variable arrived;
    std::vector<Message> held;
    bool stop = false;
    std::thread answerer([&] {
        std::unique_lock guard(lock);
        for (;;) {
            arrived.wait(guard, [&] { return stop || !held.empty(); });
            if (held.empty()) {
                return;
            }
            const Message message = held.back(); // newest first
            held.pop_back();
            guard.unlock();
            echo(message);
            guard.lock();
        }
    });
    {
        const ChannelServer server(
            [&](const Message &message) {
                const std::lock_guard guard(lock);
                held.push_back(message);
                arrived.notify_one();
            },
            {}, 4);
        const int connection = connect_to_test();
        std::atomic<int> wrong{0};
        std::vector<std::thread> clients;
        clients.reserve(IPC_LANES_MAX + 16);
        for (int t = 0; t < IPC_LANES_MAX + 16; ++t) {
            clients.emplace_back([&, t] {
                for (int i = 0; i < 25; ++i) {
                    const std::string sent = std::to_string(t) + ":" + std::to_string(i);
                    char got[32] = {};
                    const int status =
                        ipc_send_simple(connection, sent.data(), sent.size(), got, sizeof got);
                    wrong += status != static_cast<int>(sent.size()) || sent != got;
                }
            });
        }
        for (std::thread &client : clients) {
            client.join();
        }
        EXPECT_EQ(wrong, 0);
        global_name_close(connection);
    }
    {
        const std::lock_guard guard(lock);
        stop = true;
        arrived.notify_one();
    }
    answerer.join();
}

TEST(Exchange, ASignalGivesUpOneExchangeAndNoMore) {
    const RuntimeDirectory runtime;
    struct sigaction action = {};
    action.sa_handler = [](int) {};
    sigaction(SIGUSR1, &action, nullptr); // without SA_RESTART
    const pthread_t client = pthread_self();
    std::atomic<int> late{0};
    std::atomic<bool> given_up{false};
    std::atomic<bool> quiet{false};
    const ChannelServer server(
        [&](const Message &message) {
            if (message.bytes == "wait") {
                // A forked child has such copies, and for a moment the server that made a lane.
                const std::vector<UniqueFd> copies = copies_of_descriptors();
                while (!given_up) { // one may come before the client blocks
                    pthread_kill(client, SIGUSR1);
                    std::this_thread::yield();
                }
                EXPECT_EQ(ipc_waiting(message.receive_id), 0);
                late = message.receive_id;
                quiet = true;
            } else {
                // The answer to the abandoned exchange reaches no caller.
                ipc_reply(late.exchange(0), 99, "wrong", 5);
                echo(message);
            }
        },
        {}, 2);
    const int connection = connect_to_test();
    for (int i = 0; i < 200; ++i) {
        given_up = quiet = false;
        ASSERT_EQ(ipc_send_simple(connection, "wait", 4, nullptr, 0), -1);
        ASSERT_EQ(errno, EINTR);
        given_up = true;
        while (!quiet) {
            std::this_thread::yield();
        }
        ASSERT_TRUE(is_served(connection));
    }
    global_name_close(connection);
    signal(SIGUSR1, SIG_DFL);
}

// Otherwise a late answer could be taken for another's, since ids are used again.
TEST(Exchange, AnIdIsNotGivenAgainWhileItsAnswerIsOwed) {
    const RuntimeDirectory runtime;
    struct sigaction action = {};
    action.sa_handler = [](int) {};
    sigaction(SIGUSR1, &action, nullptr);
    const pthread_t client = pthread_self();
    std::atomic<bool> given_up{false};
    std::atomic<bool> quiet{false}; // no more signals come
    std::atomic<int> owed{0};
    std::atomic<int> given_again{0};
    const ChannelServer server([&](const Message &message) {
        if (message.bytes == "wait") {
            owed = message.receive_id;
            while (!given_up) {
                pthread_kill(client, SIGUSR1);
                std::this_thread::yield();
            }
            quiet = true;
        } else {
            given_again += message.receive_id == owed;
            echo(message);
        }
    });
    const int connection = connect_to_test();
    ASSERT_EQ(ipc_send_simple(connection, "wait", 4, nullptr, 0), -1);
    given_up = true;
    while (!quiet) {
        std::this_thread::yield();
    }
    for (int i = 0; i < 2000; ++i) {
        ASSERT_TRUE(is_served(connection));
    }
    EXPECT_EQ(given_again, 0);
    global_name_close(connection);
    signal(SIGUSR1, SIG_DFL);
}

TEST(Exchange, AThreadIsNotCancelledInTheMiddle) {
    const RuntimeDirectory runtime;
    std::atomic<pthread_t> client{};
    const ChannelServer server([&](const Message &message) {
        if (message.bytes == "cancel") {
            pthread_cancel(client);
        }
        echo(message);
    });
    const int connection = connect_to_test();
    int status = -1;
    std::thread thread([&] {
        client = pthread_self();
        status = ipc_send_simple(connection, "cancel", 6, nullptr, 0);
        pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr);
    });
    thread.join();
    EXPECT_EQ(status, 6);
    EXPECT_TRUE(is_served(connection));
    global_name_close(connection);
}

TEST(Exchange, AChildHasNoneOfItsParentsConnections) {
    const RuntimeDirectory runtime;
    const ChannelServer server(echo, {}, 2);
    const int connection = connect_to_test();
    const int pulses = connect_attach(0, 0, server.channel, 0, 0); // not the child's to announce
    const pid_t child = in_child([&] {
        if (ipc_send_simple(connection, "ping", 4, nullptr, 0) != -1 || errno != EBADF ||
            channel_destroy(server.channel) != -1) {
            _exit(1);
        }
        const int own = connect_to_test();
        _exit(own >= 0 && is_served(own) && global_name_close(connection) == -1 ? 0 : 2);
    });
    EXPECT_EQ(exit_status(child), 0);
    EXPECT_TRUE(is_served(connection));
    connect_detach(pulses);
    global_name_close(connection);
}

// Threads are cancelled at the moment at which messages reach them; each message is answered.
TEST(Exchange, ACancelledThreadHandsItsMessageOn) {
#ifdef __SANITIZE_THREAD__
    GTEST_SKIP() << "the sanitizer misses the locks that a thread takes while it is cancelled";
#endif
    const RuntimeDirectory runtime;
    const ChannelServer server(echo, {}, 0); // its threads come and go here
    std::atomic<bool> done{false};
    std::thread client([&done] {
        const int connection = connect_to_test();
        while (!done) {
            EXPECT_TRUE(is_served(connection));
        }
        global_name_close(connection);
    });
    const auto serve = [](void *channel) -> void * {
        char buffer[64];
        const struct iovec part = {buffer, sizeof buffer};
        struct ipc_info info;
        for (;;) {
            const int receive_id = ipc_receive(*static_cast<const int *>(channel), &part, 1, &info);
            if (receive_id > 0) {
                ipc_reply(receive_id, info.msg_length, buffer,
                          static_cast<size_t>(info.msg_length));
            } else if (receive_id < 0) {
                return nullptr;
            }
        }
    };
    int channel = server.channel;
    pthread_t last{};
    ASSERT_EQ(pthread_create(&last, nullptr, serve, &channel), 0);
    for (int i = 0; i < 3000; ++i) {
        pthread_t next{};
        ASSERT_EQ(pthread_create(&next, nullptr, serve, &channel), 0);
        pthread_cancel(last);
        pthread_join(last, nullptr);
        last = next;
    }
    done = true;
    client.join();
    channel_destroy(channel);
    pthread_join(last, nullptr);
}

} // namespace
} // namespace vantro::test
