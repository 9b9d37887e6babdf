// Objects as their readers see them: which texts, in which order, and what is refused.
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>

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
    // A new reader gets the same, and nothing of the history.
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
    // Another file in its place does not affect a reader of the old one.
    Reader reader;
    std::filesystem::rename(base + "dead/ring", base + "kitchen/ring");
    set(publisher, "o", "a", "1");
    EXPECT_EQ(reader.read(), "@o\na::1\n");
    EXPECT_EQ(Reader().descriptor, -1);
    EXPECT_EQ(errno, EBADMSG);
    EXPECT_EQ(object_publisher_open("/sys/csm/kitchen"), nullptr);
    EXPECT_EQ(object_publisher_open("/kivo/../kitchen"), nullptr);
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
        ASSERT_EQ(reader.arm(), 0) << "armed again";
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
    // If no real-time signal can be queued, the other comes.
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
}

TEST(Notification, RefusesWhatIsNoSignal) {
    const RuntimeDirectory runtime;
    const Publisher publisher = publish_in();
    const Reader reader;
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

TEST(Notification, ComesWhenAHolderOfTheBellLetsGo) {
    const RuntimeDirectory runtime;
    const WakeSignals signals;
    const Publisher publisher = publish_in();
    set(publisher, "o", "a", "1");
    Reader reader;
    reader.read_all();
    ASSERT_EQ(reader.arm(), 0);
    object_hold_bell(publisher.get());
    object_release_bell(publisher.get());
    EXPECT_EQ(signals.take(), 0) << "nothing was published";
    object_hold_bell(publisher.get());
    object_hold_bell(publisher.get());
    set(publisher, "o", "a", "2");
    object_delete(publisher.get(), "o");
    EXPECT_EQ(signals.take(), 0);
    EXPECT_EQ(reader.read_all(), "@o\na::2\n-@o\n") << "what is published can be read at once";
    object_release_bell(publisher.get());
    EXPECT_EQ(signals.wait(), wake_signal);
    ASSERT_EQ(reader.arm(), 0);
    object_release_bell(publisher.get());
    EXPECT_EQ(signals.take(), 0) << "who was woken is not woken again";
    set(publisher, "o", "a", "3");
    EXPECT_EQ(signals.wait(), wake_signal);
    object_release_bell(publisher.get()); // one call too many
    ASSERT_EQ(reader.arm(), NOTIFY_INPUT);
    reader.read_all();
    ASSERT_EQ(reader.arm(), 0);
    set(publisher, "o", "a", "4");
    EXPECT_EQ(signals.wait(), wake_signal);
    object_hold_bell(nullptr);
    object_release_bell(nullptr);
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

} // namespace
} // namespace vantro::test
