// Objects as their readers see them: what is told, in which order, and what is refused.
#include <malloc.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <random>

#include "platform/linux/objects/ring.h"
#include "tests/platform/objects/objects_support.h"

namespace vantro::test {
namespace {

TEST(Objects, AreToldInFullAndThenChangeByChange) {
    const RuntimeDirectory runtime;
    const Publisher publisher = publish_in();
    ASSERT_NE(publisher, nullptr) << strerror(errno);
    EXPECT_EQ(Reader("state").read(), "") << "an object need not exist yet";
    const struct object_attribute attributes[] = {{"status", KIVO_TEXT, "playing"},
                                                  {"rate", KIVO_NUMBER, "1"},
                                                  {"a:b", KIVO_JSON, "{\"x\":\"\\n\"}"},
                                                  {"rate", KIVO_NUMBER, "2"}};
    ASSERT_EQ(object_publish(publisher.get(), "state", 0, attributes, 4), 0);
    ASSERT_EQ(set(publisher, "status", "position", "0"), 0);
    ASSERT_EQ(set(publisher, "track", "index", "1"), 0);
    ASSERT_EQ(set(publisher, "gone", "x", "y"), 0);
    ASSERT_EQ(set(publisher, "status", "position", "7"), 0);
    ASSERT_EQ(object_delete(publisher.get(), "gone"), 0);

    Reader all, state("state");
    EXPECT_EQ(all.read(), "@state\na\\:b:json:{\"x\":\"\\\\n\"}\nrate:n:2\nstatus::playing\n");
    EXPECT_EQ(all.read(), "@track\nindex::1\n");
    EXPECT_EQ(all.read(), "@status\nposition::7\n") << "published last, so it comes last";
    EXPECT_EQ(all.read(), "");
    EXPECT_EQ(state.read_all(),
              "@state\na\\:b:json:{\"x\":\"\\\\n\"}\nrate:n:2\nstatus::playing\n");

    const struct object_attribute change[] = {
        {"a:b", KIVO_TEXT, nullptr}, {"none", KIVO_TEXT, nullptr}, {"on", KIVO_BOOLEAN, "true"}};
    object_publish(publisher.get(), "state", 0, change, 3);
    set(publisher, "gone", "x", "z");
    set(publisher, "track", "index", "2", OBJECT_TRUNCATE);
    object_publish(publisher.get(), "track", 0, nullptr, 0);
    object_delete(publisher.get(), "state");
    EXPECT_EQ(all.read(), "@state\n-a\\:b\n-none\non:b:true\n");
    EXPECT_EQ(all.read(), "+@gone\nx::z\n");
    char small[8];
    EXPECT_EQ(platform_read(all.descriptor, small, sizeof small), -1);
    EXPECT_EQ(errno, EMSGSIZE);
    EXPECT_EQ(all.read(), "#@track\nindex::2\n");
    EXPECT_EQ(all.read(), "@track\n");
    EXPECT_EQ(all.read(), "-@state\n");
    EXPECT_EQ(state.read_all(), "@state\n-a\\:b\n-none\non:b:true\n-@state\n");
    EXPECT_EQ(platform_write(all.descriptor, "x", 1), -1);
}

TEST(Objects, AreRefusedBeyondTheirLimitsAndThenUnchanged) {
    const RuntimeDirectory runtime;
    const Publisher publisher = publish_in();
    set(publisher, "o", "a", "1");
    Reader reader;
    reader.read_all();
    const auto filled = [](size_t length) { return std::string(length, 'x'); };
    const std::string long_name(OBJECT_NAME_MAX + 1, 'n');
    const struct {
        const char *object;
        const char *name;
        std::string value;
        int error;
    } cases[] = {
        {"o", "a", filled(OBJECT_CHANGE_MAX), EMSGSIZE},      // the change
        {"o", "b", filled(OBJECT_CHANGE_MAX - 10), EMSGSIZE}, // what the object becomes
        {"o", "", "v", EINVAL},
        {"a b", "a", "v", EINVAL},
        {"", "a", "v", EINVAL},
        {".all", "a", "v", EINVAL},
        {long_name.c_str(), "a", "v", EINVAL},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(set(publisher, c.object, c.name, c.value), -1) << c.object;
        EXPECT_EQ(errno, c.error) << c.object;
    }
    struct object_attribute unknown = {"a", KIVO_TEXT, "v"};
    std::memset(&unknown.encoding, 9, sizeof unknown.encoding);
    EXPECT_EQ(object_publish(publisher.get(), "o", 0, &unknown, 1), -1);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(object_delete(publisher.get(), "none"), -1);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(reader.read(), "");

    // A text is its sign and name, each line's end, and "a::" before the value.
    EXPECT_EQ(set(publisher, "o", "a", filled(OBJECT_CHANGE_MAX - 8)), 0) << strerror(errno);
    EXPECT_EQ(reader.read().size(), size_t{OBJECT_CHANGE_MAX} - 1);
    for (const char name : std::string("pqrstuv")) {
        EXPECT_EQ(set(publisher, std::string(1, name).c_str(), "a", filled(OBJECT_CHANGE_MAX - 8)),
                  0);
    }
    EXPECT_EQ(set(publisher, "more", "a", ""), -1);
    EXPECT_EQ(errno, ENOSPC);
    object_delete(publisher.get(), "p");
    EXPECT_EQ(set(publisher, "more", "a", filled(OBJECT_CHANGE_MAX - 11)), 0);
    EXPECT_EQ(Reader().read_all().size(), size_t{OBJECT_CHANGE_MAX} * 8 - 8);
}

TEST(Objects, ALateReaderIsToldToStartOver) {
    const RuntimeDirectory runtime;
    const Publisher publisher = publish_in();
    for (const char *object : {"kept", "gone", "again", "status"}) {
        set(publisher, object, "a", "1");
    }
    Reader all, kept("kept"), gone("gone"), again("again");
    for (Reader *reader : {&all, &kept, &gone, &again}) {
        reader->read_all();
    }
    for (const char *object : {"gone", "again"}) {
        object_delete(publisher.get(), object);
    }
    set(publisher, "again", "b", "2");
    set(publisher, "kept", "b", "2");
    set(publisher, "new", "a", "3");
    const std::string filling(1000, 'x');
    for (size_t published = 0; published < 3 * platform::ring_capacity; published += 1000) {
        set(publisher, "status", "position", filling);
    }
    set(publisher, "status", "position", "9");
    EXPECT_EQ(all.read(), "-@gone\n");
    EXPECT_EQ(all.read(), "-@again\n");
    EXPECT_EQ(all.read(), "+@again\nb::2\n");
    EXPECT_EQ(all.read(), "#@kept\na::1\nb::2\n");
    EXPECT_EQ(all.read(), "#@new\na::3\n");
    EXPECT_EQ(all.read(), "#@status\na::1\nposition::9\n");
    EXPECT_EQ(all.read(), "");
    EXPECT_EQ(kept.read_all(), "#@kept\na::1\nb::2\n");
    EXPECT_EQ(gone.read_all(), "-@gone\n");
    EXPECT_EQ(again.read_all(), "-@again\n+@again\nb::2\n");
    // One that opens now is told the same, and nothing of what led there.
    EXPECT_EQ(Reader().read_all(),
              "@again\nb::2\n@kept\na::1\nb::2\n@new\na::3\n@status\na::1\nposition::9\n");
    set(publisher, "kept", "a", "4");
    EXPECT_EQ(all.read_all(), "@kept\na::4\n");
}

TEST(Objects, OnlyWhatIsARingIsOpened) {
    const RuntimeDirectory runtime;
    const std::string base = runtime.path() + "/vantro/kivo/services/vantro/";
    const Publisher publisher = publish_in();
    std::filesystem::create_directories(base + "other");
    std::filesystem::create_directories(base + "dead");
    ASSERT_EQ(mkfifo((base + "other/ring").c_str(), 0644), 0);
    std::filesystem::copy_file(base + "kitchen/ring", base + "dead/ring");
    const struct {
        std::string path;
        int flags, error;
    } cases[] = {
        {"/kivo/services/vantro/none/.all?delta", O_RDONLY, ENOENT},
        {"/kivo/services/vantro/../vantro/kitchen/.all?delta", O_RDONLY, ENOENT},
        {"/kivo/services/vantro/kitchen/.all?delta", O_RDWR, EACCES},
        {"/kivo/services/vantro/kitchen/.all?wait", O_RDONLY, EINVAL},
        {"/kivo/services/vantro/kitchen/a b?delta", O_RDONLY, EINVAL},
        {"/kivo/services/vantro/kitchen/?delta", O_RDONLY, EINVAL},
        {"/kivo/services/vantro/kitchen/" + std::string(250, 'x') + "?delta", O_RDONLY,
         ENAMETOOLONG},
        {"/kivo/services/vantro/other/.all?delta", O_RDONLY, EBADMSG},
        {"/kivo/services/vantro/dead/.all?delta", O_RDONLY, ECONNREFUSED},
    };
    const int before = open_descriptors();
    for (const auto &c : cases) {
        EXPECT_EQ(platform_open(c.path.c_str(), c.flags), -1) << c.path;
        EXPECT_EQ(errno, c.error) << c.path;
    }
    chmod((base + "dead/ring").c_str(), 0644);
    for (const size_t bytes : {size_t{0}, size_t{100}, platform::ring_file_bytes - 1}) {
        std::filesystem::resize_file(base + "dead/ring", bytes);
        EXPECT_EQ(Reader(".all", "/kivo/services/vantro/dead").descriptor, -1);
        EXPECT_EQ(errno, EBADMSG) << bytes;
    }
    EXPECT_EQ(open_descriptors(), before);
    const int descriptor = platform_open("/kivo/services/vantro/kitchen/.all?delta", O_RDONLY);
    EXPECT_NE(fcntl(descriptor, F_GETFD) & FD_CLOEXEC, 0) << "a real descriptor";
    EXPECT_EQ(platform_close(descriptor), 0);
    EXPECT_EQ(platform_close(descriptor), -1);
    EXPECT_EQ(object_publisher_open("/sys/csm/kitchen"), nullptr);
    EXPECT_EQ(object_publisher_open("/kivo/../kitchen"), nullptr);
}

// The reader goes for the oldest record, which the publisher is about to overwrite.
TEST(Ring, WhatIsOverwrittenWhileItIsCopiedIsNotBelieved) {
    const UniqueFd file(memfd_create("ring", MFD_CLOEXEC));
    platform::RingWriter writer;
    ASSERT_TRUE(writer.create(file.get()));
    platform::RingView view;
    ASSERT_TRUE(view.open(file.get()));
    constexpr size_t length = 16376;
    constexpr size_t bytes = platform::record_bytes(length);
    static_assert(platform::ring_capacity % bytes == 0);
    const uint64_t start = view.committed();
    std::atomic<bool> done{false};
    std::thread publishing([&] {
        for (unsigned n = 0; !done; ++n) {
            writer.append(platform::RecordKind::change, std::string(length, char('A' + n % 53)));
        }
    });
    int good = 0, overtaken = 0;
    while ((good < 2000 || overtaken < 2000) && !testing::Test::HasFailure()) {
        const uint64_t end = view.committed();
        if (end < start + platform::ring_capacity) {
            continue;
        }
        // Every other time one that is safe for long enough.
        const uint64_t n = (end - start) / bytes - (good > overtaken ? 64 : 32);
        platform::RecordKind kind;
        std::string text;
        uint64_t next = 0;
        const auto got = view.get(start + n * bytes, end, kind, text, next);
        EXPECT_NE(got, platform::RingView::Got::corrupt);
        if (got == platform::RingView::Got::record) {
            ++good;
            EXPECT_EQ(text.find_first_not_of(char('A' + n % 53)), text.npos);
            EXPECT_EQ(next, start + (n + 1) * bytes);
        } else {
            ++overtaken;
        }
    }
    done = true;
    publishing.join();
}

// Whoever may write the file may write anything: it costs the reader its reading, and no more.
TEST(Objects, NoiseInARingIsRefusedForGood) {
    const RuntimeDirectory runtime;
    const Publisher publisher = publish_in();
    const std::string path = runtime.path() + "/vantro/kivo/services/vantro/kitchen/ring";
    chmod(path.c_str(), 0644);
    const UniqueFd ring(open(path.c_str(), O_RDWR));
    std::mt19937_64 random(7);
    const auto write_word = [&](off_t offset, uint64_t word) {
        ASSERT_EQ(pwrite(ring.get(), &word, sizeof word, offset), ssize_t{sizeof word});
    };
    constexpr off_t reserved = offsetof(platform::RingHeader, reserved);
    constexpr uint64_t edges[] = {0,   1,          7,         8,          64,   1u << 20,
                                  ~0u, 1ull << 40, ~0ull - 7, ~0ull - 15, ~0ull};
    int noise = 0;
    for (int round = 0; round < 3000; ++round) {
        set(publisher, "o", "a", std::string(random() % 300, 'x'));
        Reader fresh, old;
        if (round % 2 == 0) {
            old.read_all();
        }
        std::vector<char> before(4096 + 65536);
        ASSERT_GT(pread(ring.get(), before.data(), before.size(), 0), 0);
        for (uint64_t changes = random() % 4; changes < 4; ++changes) {
            const off_t place = random() % 2 ? reserved + static_cast<off_t>(random() % 3 * 8)
                                             : static_cast<off_t>(4096 + random() % 4096 * 8);
            write_word(place, random() % 2 ? edges[random() % std::size(edges)]
                                           : random() % platform::ring_capacity / 8 * 8);
        }
        for (Reader *reader : {&fresh, &old}) {
            // Some of the noise is a ring that tells something else; there is an end to it.
            for (int reads = 0; reads < 50000 && !reader->read().empty(); ++reads) {
            }
            if (reader->error == EBADMSG) {
                ++noise;
                EXPECT_EQ(reader->read(), "");
                EXPECT_EQ(reader->error, EBADMSG);
                EXPECT_EQ(reader->arm(), NOTIFY_INPUT);
            } else {
                EXPECT_EQ(reader->error, 0);
                EXPECT_EQ(reader->arm(), 0) << "or whoever waits would never sleep";
                notify_disarm(reader->descriptor);
            }
        }
        ASSERT_GT(pwrite(ring.get(), before.data(), before.size(), 0), 0);
    }
    EXPECT_GT(noise, 1000);
    Reader reader;
    EXPECT_TRUE(reader.read().starts_with("@o\na::")) << "the ring is whole again";
    // Another file in its place is no business of who reads the old one.
    close(open((path + ".other").c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0644));
    std::filesystem::rename(path + ".other", path);
    set(publisher, "o", "b", "2");
    EXPECT_EQ(reader.read(), "@o\nb::2\n");
    EXPECT_EQ(Reader().descriptor, -1);
    EXPECT_EQ(errno, EBADMSG);
}

TEST(Notification, FiresOnceForWhatComesAfterIt) {
    const RuntimeDirectory runtime;
    const WakeSignals signals;
    Publisher publisher = publish_in();
    set(publisher, "o", "a", "1");
    Reader reader, state("state");
    EXPECT_EQ(reader.arm(), NOTIFY_INPUT);
    EXPECT_EQ(state.arm(), 0) << "another object's change is no input";
    EXPECT_EQ(notify_disarm(state.descriptor), 0);
    EXPECT_EQ(signals.take(), 0);
    reader.read_all();
    for (int round = 0; round < 3; ++round) {
        ASSERT_EQ(reader.arm(), 0);
        ASSERT_EQ(reader.arm(), 0) << "anew";
        EXPECT_EQ(signals.take(), 0);
        set(publisher, "o", "a", "2");
        set(publisher, "o", "a", "3");
        EXPECT_EQ(signals.wait(), wake_signal);
        errno = EDOM;
        EXPECT_EQ(notify_disarm(reader.descriptor), 0);
        EXPECT_EQ(errno, EDOM);
        EXPECT_EQ(signals.take(), 0);
        set(publisher, "o", "a", "4");
        EXPECT_EQ(reader.arm(), NOTIFY_INPUT);
        EXPECT_EQ(reader.read_all(), "@o\na::2\n@o\na::3\n@o\na::4\n");
        EXPECT_EQ(signals.take(), 0);
    }
    // Where no real-time signal can be queued, the other comes.
    struct rlimit limit, none = {};
    getrlimit(RLIMIT_SIGPENDING, &limit);
    none.rlim_max = limit.rlim_max;
    setrlimit(RLIMIT_SIGPENDING, &none);
    ASSERT_EQ(reader.arm(), 0);
    set(publisher, "o", "a", "5");
    EXPECT_EQ(signals.wait(), SIGIO);
    setrlimit(RLIMIT_SIGPENDING, &limit);
    notify_disarm(reader.descriptor);

    reader.read_all();
    ASSERT_EQ(reader.arm(), 0);
    set(publisher, "o", "a", "6");
    publisher.reset();
    EXPECT_EQ(signals.wait(), wake_signal);
    EXPECT_EQ(reader.arm(), NOTIFY_INPUT);
    EXPECT_EQ(reader.read(), "@o\na::6\n") << "what was published before it left";
    EXPECT_EQ(reader.read(), "");
    EXPECT_EQ(reader.error, ESTALE);
    EXPECT_EQ(reader.arm(), NOTIFY_INPUT);
    EXPECT_FALSE(std::filesystem::exists(runtime.path() + "/vantro/kivo/services/vantro/kitchen"));

    const struct ipc_event wrong[] = {{IPC_EVENT_PULSE, 57, 0, 0, 0},
                                      {IPC_EVENT_SIGNAL_THREAD, 0, 0, 0, 0},
                                      {IPC_EVENT_SIGNAL_THREAD, SIGKILL, 0, 0, 0},
                                      {IPC_EVENT_SIGNAL_THREAD, 65, 0, 0, 0}};
    for (const struct ipc_event &event : wrong) {
        EXPECT_EQ(notify_arm(reader.descriptor, NOTIFY_TEST_AND_ARM, NOTIFY_INPUT, &event), -1);
        EXPECT_EQ(errno, EINVAL);
    }
    EXPECT_EQ(notify_disarm(0), -1);
    EXPECT_EQ(errno, EBADF);
}

// Each change comes while its reader is on its way from having read the last to waiting.
TEST(Notification, MissesNothingThatComesWhileItIsArmed) {
    const RuntimeDirectory runtime;
    const WakeSignals signals;
    const Publisher publisher = publish_in();
    constexpr int last = rounds(20000);
    std::atomic<int> read{0};
    std::thread reading([&] {
        Reader reader;
        while (read < last && !testing::Test::HasFailure()) {
            if (reader.read().empty()) {
                wait_for_input(reader, signals);
            } else {
                ++read;
                read.notify_all();
            }
        }
        read = last;
        read.notify_all();
    });
    for (int published = 0; published < last; ++published) {
        for (int count = read; count < published; count = read) {
            read.wait(count);
        }
        for (int spin = published % 64 * 100; spin > 0; --spin) {
            read.load();
        }
        set(publisher, "o", "a", "1");
    }
    reading.join();
}

TEST(Notification, WakesTheThreadThatArmedIt) {
    const RuntimeDirectory runtime;
    const WakeSignals signals;
    const Publisher publisher = publish_in();
    std::atomic<int> armed{0}, woken{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i) {
        threads.emplace_back([&] {
            Reader reader;
            for (int round = 1; round <= 20; ++round) {
                EXPECT_EQ(reader.arm(), 0);
                armed.fetch_add(1);
                armed.notify_all();
                EXPECT_EQ(signals.wait(), wake_signal);
                notify_disarm(reader.descriptor);
                EXPECT_EQ(signals.take(), 0);
                EXPECT_NE(reader.read_all(), "");
                woken.fetch_add(1);
                woken.notify_all();
                for (int count = woken; count < 8 * round; count = woken) {
                    woken.wait(count);
                }
            }
        });
    }
    for (int round = 1; round <= 20; ++round) {
        for (int count = armed; count < 8 * round; count = armed) {
            armed.wait(count);
        }
        set(publisher, "o", "a", std::to_string(round));
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
}

TEST(Notification, OpenWaitAndCloseLeaveNothingBehind) {
    const RuntimeDirectory runtime;
    const Publisher publisher = publish_in();
    sigset_t mask_before = {}, mask = {};
    pthread_sigmask(SIG_SETMASK, nullptr, &mask_before);
    int descriptors = 0;
    size_t bytes = 0;
    constexpr int warm_up = 100;
    for (int round = 0; round < rounds(10000); ++round) {
        const WakeSignals signals;
        Reader reader;
        reader.read();
        ASSERT_EQ(reader.arm(), 0) << strerror(errno);
        set(publisher, "o", "a", "1");
        ASSERT_EQ(signals.wait(), wake_signal);
        notify_disarm(reader.descriptor);
        if (round == warm_up) {
            descriptors = open_descriptors();
            bytes = mallinfo2().uordblks;
        }
    }
    {
        const Reader reader;
        EXPECT_EQ(open_descriptors(), descriptors);
        // The smallest block that each round left would be many times as much.
        EXPECT_LT(mallinfo2().uordblks, bytes + rounds(10000));
    }
    pthread_sigmask(SIG_SETMASK, nullptr, &mask);
    EXPECT_EQ(memcmp(&mask, &mask_before, sizeof mask), 0);
}

} // namespace
} // namespace vantro::test
