// Publishers that die, start again and end, and many readers, as processes and threads.
#include <sys/mman.h>

#include <random>

#include "tests/platform/objects/objects_support.h"

namespace vantro::test {
namespace {

// The value published as number n: the number determines its text.
std::string value_of(uint64_t n) {
    return std::to_string(n) + std::string(n * 2654435761 % 9000, static_cast<char>('a' + n % 26));
}

int publish_number(const Publisher &publisher, uint64_t n) {
    return set(publisher, "o", "n", value_of(n));
}

// Reads one text and checks that it is what was published, and the one after the last, unless the
// reader is told to start over. @return whether there was one.
bool follow_numbers(Reader &reader, uint64_t &last) {
    if (!reader.follow()) {
        return false;
    }
    if (!reader.objects.contains("o")) {
        return true; // it belongs to another object
    }
    const std::string &value = reader.objects["o"]["n"];
    const uint64_t n = std::strtoull(value.c_str(), nullptr, 10);
    EXPECT_EQ(value, value_of(n));
    if (reader.last_was_start || last == 0) {
        EXPECT_GE(n, last);
    } else {
        EXPECT_EQ(n, last + 1);
    }
    last = n;
    return true;
}

// The counts are kept in memory that outlives the publisher.
struct Shared {
    std::atomic<uint64_t> published{0}; // the last whose publishing returned
};

TEST(Publisher, KilledAnywhereLeavesWholeEventsInOrder) {
    const RuntimeDirectory runtime;
    const WakeSignals signals;
    int ready[2];
    ASSERT_EQ(pipe(ready), 0);
    auto *const shared =
        new (mmap(nullptr, 4096, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0)) Shared;
    std::mt19937 random(11);
    std::unique_ptr<Reader> left_behind;
    for (int round = 0; round < rounds(1000) && !testing::Test::HasFailure(); ++round) {
        const pid_t child = in_child([&] {
            const Publisher publisher = publish_in();
            const uint64_t first = shared->published + 1;
            for (uint64_t n = first; publish_number(publisher, n) == 0; ++n) {
                shared->published = n;
                if (n == first && write(ready[1], "r", 1) != 1) {
                    break;
                }
            }
            _exit(1);
        });
        char byte;
        ASSERT_EQ(read(ready[0], &byte, 1), 1);
        if (left_behind) {
            while (left_behind->follow()) {
            }
            ASSERT_EQ(left_behind->error, ESTALE) << "the successor retires the ring";
        }
        auto reader = std::make_unique<Reader>();
        ASSERT_GE(reader->descriptor, 0) << strerror(errno);
        uint64_t last = 0;
        for (auto reads = random() % 30; reads > 0;) {
            if (follow_numbers(*reader, last)) {
                --reads;
            } else {
                wait_for_input(*reader, signals);
            }
        }
        kill(child, SIGKILL);
        ASSERT_EQ(exit_status(child), SIGKILL);
        while (follow_numbers(*reader, last)) {
        }
        ASSERT_EQ(reader->error, 0);
        // The last change may have been appended although its publisher died before it could count
        // it.
        ASSERT_GE(last, shared->published);
        ASSERT_LE(last, shared->published + 1);
        shared->published = last;
        if (round % 2 == 0) {
            ASSERT_EQ(reader->arm(), NOTIFY_INPUT) << "the publisher is gone, and the lock tells";
            EXPECT_FALSE(reader->follow());
            ASSERT_EQ(reader->error, ESTALE);
            ASSERT_EQ(Reader().descriptor, -1);
            ASSERT_EQ(errno, ECONNREFUSED);
        }
        left_behind = std::move(reader);
    }
    munmap(shared, 4096);
    close(ready[0]);
    close(ready[1]);
}

TEST(Publisher, WhoseDeathWakesThoseWhoWait) {
    const RuntimeDirectory runtime;
    const WakeSignals signals;
    for (int round = 0; round < 50; ++round) {
        int ready[2], last_words[2];
        ASSERT_EQ(pipe(ready) + pipe(last_words), 0);
        const pid_t child = in_child([&] {
            const Publisher publisher = publish_in();
            set(publisher, "o", "a", "1");
            char byte;
            if (write(ready[1], "r", 1) + read(last_words[0], &byte, 1) == 2) {
                set(publisher, "o", "a", "2");
            }
            raise(SIGKILL);
        });
        char byte;
        ASSERT_EQ(read(ready[0], &byte, 1), 1);
        EXPECT_EQ(publish_in(), nullptr);
        EXPECT_EQ(errno, EADDRINUSE);
        Reader reader;
        EXPECT_EQ(reader.read_all(), "@o\na::1\n");
        ASSERT_EQ(reader.arm(), 0);
        if (round % 2) {
            kill(child, SIGKILL);
        } else {
            ASSERT_EQ(write(last_words[1], "w", 1), 1);
            EXPECT_EQ(exit_status(child), SIGKILL);
        }
        EXPECT_EQ(signals.wait(), wake_signal);
        notify_disarm(reader.descriptor);
        signals.take();
        std::string read = reader.read_all();
        for (; reader.error == 0; read += reader.read_all()) {
            wait_for_input(reader, signals); // the wake came before the end
        }
        EXPECT_EQ(read, round % 2 ? "" : "@o\na::2\n");
        EXPECT_EQ(reader.error, ESTALE);
        if (round % 2) {
            exit_status(child);
        }
        for (const int descriptor : {ready[0], ready[1], last_words[0], last_words[1]}) {
            close(descriptor);
        }
    }
}

// A child that outlives the publisher must not block its place, and must not publish for it.
TEST(Publisher, IsNotTheChildsAfterFork) {
    const RuntimeDirectory runtime;
    const WakeSignals signals;
    int held[2], ready[2];
    ASSERT_EQ(pipe(held), 0);
    ASSERT_EQ(pipe(ready), 0);
    const pid_t parent = in_child([&] {
        Publisher publisher = publish_in();
        set(publisher, "o", "a", "1");
        const Reader reader;
        in_child([&] {
            prctl(PR_SET_PDEATHSIG, 0);
            close(held[1]);
            char byte;
            const bool silent = set(publisher, "o", "a", "2") == -1 && errno == EBADF &&
                                platform_read(reader.descriptor, &byte, 1) == -1 &&
                                errno == EBADF && reader.arm() == -1 && errno == EBADF;
            [[maybe_unused]] ssize_t n = write(ready[1], silent ? "y" : "n", 1);
            n = read(held[0], &byte, 1);
            publisher.reset();
        });
        close(held[1]);
        pause();
    });
    char byte = 0;
    ASSERT_EQ(read(ready[0], &byte, 1), 1);
    EXPECT_EQ(byte, 'y');
    Reader reader;
    EXPECT_EQ(reader.read_all(), "@o\na::1\n");
    kill(parent, SIGKILL);
    exit_status(parent);
    EXPECT_EQ(reader.arm(), NOTIFY_INPUT);
    EXPECT_NE(publish_in(), nullptr) << strerror(errno);
    for (const int descriptor : {held[0], held[1], ready[0], ready[1]}) {
        close(descriptor);
    }
}

// Also a child that is made while a thread of its parent becomes a publisher, or ceases to be one.
TEST(Publisher, IsNotThatOfAChildMadeMeanwhile) {
    const RuntimeDirectory runtime;
    prctl(PR_SET_CHILD_SUBREAPER, 1);
    int made[2];
    ASSERT_EQ(pipe(made), 0);
    for (int round = 0; round < 20; ++round) {
        const pid_t parent = in_child([&] {
            std::atomic<int> turns{0};
            std::thread comes_and_goes([&] {
                for (;; ++turns) {
                    publish_in();
                }
            });
            while (turns < round % 5) {
            }
            in_child([&] {
                prctl(PR_SET_PDEATHSIG, 0);
                alarm(60);
                const pid_t self = getpid();
                [[maybe_unused]] const ssize_t n = write(made[1], &self, sizeof self);
                pause();
            });
            pause(); // if it ended now, its child could still end with it
        });
        pid_t child = 0;
        ASSERT_EQ(read(made[0], &child, sizeof child), ssize_t{sizeof child});
        kill(parent, SIGKILL);
        exit_status(parent);
        EXPECT_NE(publish_in(), nullptr) << strerror(errno);
        kill(child, SIGKILL);
        exit_status(child);
    }
    close(made[0]);
    close(made[1]);
}

TEST(Publisher, FiftyReadersAtTheirOwnSpeedEndWithTheSameObjects) {
    const RuntimeDirectory runtime;
    Publisher publisher = publish_in();
    std::atomic<int> opened{0}, start_overs{0};
    std::vector<std::thread> threads;
    for (unsigned i = 0; i < 50; ++i) {
        threads.emplace_back([&, i] {
            Reader reader(i % 2 ? "o" : ".all");
            EXPECT_GE(reader.descriptor, 0);
            ++opened;
            opened.notify_all();
            std::mt19937 random(i);
            uint64_t last = 0;
            while (reader.error == 0) {
                follow_numbers(reader, last);
                start_overs += reader.last_was_start;
                // Pauses from none up to so long that the publisher overtakes the reader.
                for (auto turns = random() % (1u << i % 12); turns > 0; --turns) {
                    sched_yield();
                }
            }
            EXPECT_EQ(reader.error, ESTALE);
            EXPECT_EQ(last, 4000u);
            EXPECT_EQ(reader.objects.size(), i % 2 ? 1u : 2u);
        });
    }
    for (int count = opened; count < 50; count = opened) {
        opened.wait(count);
    }
    object_publish(publisher.get(), "still", 0, nullptr, 0);
    for (uint64_t n = 1; n <= 4000; ++n) {
        ASSERT_EQ(publish_number(publisher, n), 0);
    }
    publisher.reset();
    for (std::thread &thread : threads) {
        thread.join();
    }
    EXPECT_GT(start_overs, 0);
}

TEST(Publisher, ComesAndGoesWhileOthersDo) {
    const RuntimeDirectory runtime;
    std::atomic<int> published{0};
    std::vector<std::thread> threads(4);
    for (std::thread &thread : threads) {
        thread = std::thread([&] {
            while (published < 400) {
                const Publisher publisher = publish_in();
                if (publisher) {
                    EXPECT_EQ(set(publisher, "o", "a", "1"), 0);
                    ++published;
                    Reader reader;
                    EXPECT_EQ(reader.read_all(), "@o\na::1\n");
                } else {
                    EXPECT_EQ(errno, EADDRINUSE);
                }
            }
        });
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
    EXPECT_TRUE(std::filesystem::is_empty(runtime.path() + "/vantro/kivo/services/vantro"));
}

} // namespace
} // namespace vantro::test
