// The ring while it is changed: readers end, give texts of the promised form, and report a corrupt
// ring instead of crashing. If only the publisher writes, every reader learns exactly what was
// published.
//
// An input is a list of steps, each a byte that chooses one and the bytes that it takes. The steps
// that tamper write to the file as a hostile publisher could. In a race another thread writes while
// a reader reads: it repeats the tampering so far, or publishes if there was none.
#include <fcntl.h>
#include <signal.h>
#include <time.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include <vantro/platform/change.h>
#include <vantro/platform/io.h>
#include <vantro/platform/notify.h>
#include <vantro/platform/objects.h>

#include "fuzz/support.h"
#include "platform/linux/base/mapping.h"
#include "platform/linux/base/unique_fd.h"
#include "platform/linux/objects/ring.h"
#include "platform/linux/objects/ring_words.h"
#include "platform/portable/change_line.h"

namespace {

using vantro::fuzz::require;
using namespace vantro::platform;

constexpr char directory[] = "/kivo/services/vantro/fuzz";
constexpr int wake_signal = 57;
constexpr int changes_of_a_lap = ring_capacity / 30000 + 2; // of those that fill() publishes

class Input {
  public:
    Input(const uint8_t *data, size_t size) : at_(data), end_(data + size) {}
    bool at_end() const { return at_ == end_; }
    uint8_t byte() { return at_end() ? 0 : *at_++; }
    uint64_t number() {
        uint64_t value = 0;
        for (int i = 0; i < 8; i++) {
            value = value << 8 | byte();
        }
        return value;
    }
    std::string text() {
        const size_t wanted = byte(); // taken before the rest is measured
        const size_t length = std::min(wanted, static_cast<size_t>(end_ - at_));
        std::string made(reinterpret_cast<const char *>(at_), length);
        at_ += length;
        return made;
    }

  private:
    const uint8_t *at_;
    const uint8_t *end_;
};

// Objects and their attributes. "born" counts the objects, so that two of one name differ.
using Attributes = std::map<std::string, std::string>;
using Objects = std::map<std::string, Attributes>;

// The objects that a reader derived from the texts that it read.
class Mirror {
  public:
    void apply(std::string text) {
        struct kivo_record record = {};
        for (char *cursor = text.data();;) {
            switch (kivoparse(&cursor, nullptr, nullptr, &record, 0)) {
            case KIVO_END:
                return;
            case KIVO_OBJECT:
                objects[record.object];
                break;
            case KIVO_OBJECT_CREATED:
                require(!objects.contains(record.object));
                objects[record.object];
                break;
            case KIVO_OBJECT_DELETED:
                require(objects.erase(record.object) == 1);
                born_.erase(record.object);
                break;
            case KIVO_OBJECT_TRUNCATED:
                objects[record.object].clear();
                break;
            case KIVO_ATTRIBUTE:
                objects[record.object][record.attribute] = record.value;
                if (std::strcmp(record.attribute, "born") == 0) {
                    // Another object of this name may come only after the end of this one.
                    require(born_.emplace(record.object, record.value).first->second ==
                            record.value);
                }
                break;
            case KIVO_ATTRIBUTE_DELETED:
                objects[record.object].erase(record.attribute);
                break;
            default:
                require(false);
            }
        }
    }

    Objects objects;

  private:
    Attributes born_;
};

class Reader {
  public:
    explicit Reader(std::string object)
        : object_(std::move(object)),
          descriptor_(platform_open((std::string(directory) + "/" + object_ + "?delta").c_str(),
                                    O_RDONLY)) {}
    ~Reader() {
        if (descriptor_ >= 0) {
            platform_close(descriptor_);
        }
    }
    Reader(const Reader &) = delete;

    bool is_open() const { return descriptor_ >= 0; }

    // Reads a text. @return what platform_read() does.
    ssize_t read(bool is_tampered) {
        if (descriptor_ < 0) {
            return 0;
        }
        buffer_.assign(OBJECT_CHANGE_MAX, '\0');
        const ssize_t length = platform_read(descriptor_, buffer_.data(), buffer_.size());
        if (length < 0) {
            require(errno == ESTALE || (is_tampered && errno == EBADMSG));
            require(!is_noise_ || errno == EBADMSG);
            is_noise_ = errno == EBADMSG;
        } else if (length > 0) {
            require(!is_noise_ && length <= OBJECT_CHANGE_MAX);
            buffer_.resize(static_cast<size_t>(length));
            const std::string_view text = buffer_;
            const ObjectLine head = parse_object_line(text.substr(0, text.find('\n')));
            require(buffer_.ends_with('\n') && head.result > KIVO_END);
            require(object_ == ".all" || head.name == object_);
            if (!is_tampered) {
                mirror_.apply(buffer_);
            }
        }
        return length;
    }

    // Arms, and looks whether a read agrees with the answer.
    void arm(bool is_tampered) {
        const struct ipc_event event = {IPC_EVENT_SIGNAL_THREAD, wake_signal, 0, 0, 0};
        const int answer = notify_arm(descriptor_, NOTIFY_TEST_AND_ARM, NOTIFY_INPUT, &event);
        if (answer >= 0) {
            require((answer == NOTIFY_INPUT) == (read(is_tampered) != 0));
        }
        notify_disarm(descriptor_);
    }

    // Whether the mirror has exactly the objects that this reader follows.
    bool knows(const Objects &published) const {
        if (descriptor_ < 0 || object_ == ".all") {
            return descriptor_ < 0 || mirror_.objects == published;
        }
        const auto found = published.find(object_);
        return mirror_.objects ==
               (found == published.end() ? Objects{} : Objects{{object_, found->second}});
    }

  private:
    std::string object_;
    int descriptor_;
    std::string buffer_;
    Mirror mirror_;
    bool is_noise_ = false;
};

struct World {
    const vantro::fuzz::RuntimeDirectory runtime; // every input makes a ring

    World() {
        sigset_t signals;
        sigemptyset(&signals);
        sigaddset(&signals, wake_signal);
        sigaddset(&signals, SIGIO);
        pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    }
    std::string ring() const { return runtime.path + "/vantro" + directory + "/ring"; }
};

// A publisher, its readers, and a second mapping of its ring to tamper with.
class Play {
  public:
    Play(const World &world, Input input)
        : input_(input), publisher_(object_publisher_open(directory)) {
        require(publisher_ != nullptr);
        const UniqueFd file(::open(world.ring().c_str(), O_RDWR | O_CLOEXEC));
        mapping_ = Mapping(file.get(), ring_file_bytes, PROT_READ | PROT_WRITE);
        require(static_cast<bool>(mapping_));
    }
    ~Play() { object_publisher_close(publisher_); }
    Play(const Play &) = delete;

    void run() {
        for (int steps = 0; steps < 100 && !input_.at_end(); steps++) {
            step();
        }
        finish();
    }

  private:
    void step() {
        switch (input_.byte() % 12) {
        case 0:
        case 1:
            return publish(input_.byte() % 8 == 0 ? OBJECT_TRUNCATE : 0);
        case 2:
            return remove();
        case 3:
            return fill();
        case 4:
            return open_reader();
        case 5:
        case 6:
            return read(input_.byte() % 16);
        case 7:
            return with_reader([&](Reader &reader) { reader.arm(is_tampered_); });
        case 8:
            return tamper_header();
        case 9:
            return tamper_data();
        case 10:
            return forge();
        default:
            return race();
        }
    }

    std::string name() { return std::array{"state", "track", "a", "b-2"}[input_.byte() % 4]; }

    void publish(unsigned flags) {
        const std::string object = name();
        const std::string attribute = std::array{"x", "y:", "@z", "-"}[input_.byte() % 4];
        std::string value = input_.text();
        value.erase(std::min(value.find('\0'), value.size()));
        set(object, attribute, value, flags);
    }
    void set(const std::string &object, const std::string &attribute, const std::string &value,
             unsigned flags) {
        const bool is_new = !published_.contains(object);
        const std::string born = is_new ? std::to_string(++births_) : published_[object]["born"];
        const struct object_attribute attributes[] = {
            {"born", KIVO_NUMBER, born.c_str()}, {attribute.c_str(), KIVO_TEXT, value.c_str()}};
        if (object_publish(publisher_, object.c_str(), flags, attributes, 2) != 0) {
            require(errno == ENOSPC || errno == EMSGSIZE);
            if (is_new) {
                published_.erase(object);
            }
            return;
        }
        Attributes &mine = published_[object];
        if (flags & OBJECT_TRUNCATE) {
            mine.clear();
        }
        mine["born"] = born;
        mine[attribute] = value;
    }
    void remove() {
        const std::string object = name();
        require((object_delete(publisher_, object.c_str()) == 0) ==
                (published_.erase(object) == 1));
    }
    // Mostly publishes a little; sometimes more than the ring holds, which takes a hundred times as
    // long.
    void fill() {
        const uint8_t amount = input_.byte();
        fill(amount < 240 ? amount % 8 : changes_of_a_lap);
    }
    void fill(int count) {
        for (int i = 0; i < count; i++) {
            set("fill", "x", std::string(30000, static_cast<char>('a' + i % 26)), 0);
        }
    }

    void open_reader() {
        const unsigned which = input_.byte();
        readers_[which % readers_.size()] =
            std::make_unique<Reader>(which & 0x80 ? name() : std::string(".all"));
    }
    void with_reader(const std::function<void(Reader &)> &work) {
        if (const auto &reader = readers_[input_.byte() % readers_.size()]) {
            work(*reader);
        }
    }
    void read(int count) {
        with_reader([&](Reader &reader) {
            for (int i = 0; i < count && reader.read(is_tampered_) > 0; i++) {
            }
        });
    }

    RingHeader *header() { return reinterpret_cast<RingHeader *>(mapping_.data()); }
    // Any number, or one near a position in the ring.
    uint64_t position() {
        const uint8_t kind = input_.byte();
        // May be negative. NOLINTNEXTLINE(bugprone-signed-char-misuse)
        const auto by = static_cast<int64_t>(static_cast<int8_t>(input_.byte()));
        const uint64_t step = kind & 0x80 ? by : 8 * by;
        switch (kind % 5) {
        case 0:
            return input_.number();
        case 1:
            return __atomic_load_n(&header()->reserved, __ATOMIC_RELAXED) + step;
        case 2:
            return __atomic_load_n(&header()->snapshot, __ATOMIC_RELAXED) + step;
        case 3:
            return __atomic_load_n(&header()->committed, __ATOMIC_RELAXED) - ring_capacity + step;
        default:
            return __atomic_load_n(&header()->committed, __ATOMIC_RELAXED) + step;
        }
    }
    void tamper(std::function<void()> work) {
        is_tampered_ = true;
        work();
        tampering_.push_back(std::move(work));
    }
    void tamper_header() {
        const uint8_t field = input_.byte() % 4;
        const uint64_t value = position();
        tamper([=, this] {
            if (field == 3) {
                __atomic_store_n(&header()->retired, value % 2, __ATOMIC_RELEASE);
                return;
            }
            uint64_t *const fields[] = {&header()->reserved, &header()->committed,
                                        &header()->snapshot};
            __atomic_store_n(fields[field], value, __ATOMIC_RELEASE);
        });
    }
    // Bytes anywhere in the ring.
    void tamper_data() {
        const uint64_t at = position() / record_alignment * record_alignment;
        tamper([this, at, bytes = input_.text()] {
            store_words(mapping_.data(), at, bytes.data(), bytes.size());
        });
    }
    // A forged record, whose head may be false.
    void forge() {
        const uint8_t how = input_.byte();
        const std::string text = input_.text();
        const RecordHead head{static_cast<uint32_t>(text.size() + (how & 4 ? how : 0U)),
                              static_cast<RecordKind>(how % 4)};
        tamper([=, this] {
            const uint64_t begin = __atomic_load_n(&header()->committed, __ATOMIC_RELAXED) /
                                   record_alignment * record_alignment;
            const uint64_t end = begin + record_bytes(head.length);
            __atomic_store_n(&header()->reserved, end, __ATOMIC_RELAXED);
            store_words(mapping_.data(), begin, &head, sizeof head);
            store_words(mapping_.data(), begin + sizeof head, text.data(), text.size());
            __atomic_store_n(&header()->committed, end, __ATOMIC_RELEASE);
            if (head.kind == RecordKind::snapshot) {
                __atomic_store_n(&header()->snapshot, begin, __ATOMIC_RELEASE);
            }
        });
    }
    void race() {
        std::atomic<bool> done{false};
        std::thread writer([&] {
            if (!is_tampered_) {
                fill(changes_of_a_lap);
            }
            for (int round = 0; round < 100 && is_tampered_ && !done; round++) {
                for (const auto &work : tampering_) {
                    work();
                }
            }
            done = true;
        });
        with_reader([&](Reader &reader) {
            for (int i = 0; i < 300 && !done && reader.read(is_tampered_) >= 0; i++) {
            }
        });
        done = true;
        writer.join();
    }

    void finish() {
        for (const auto &reader : readers_) {
            // At most as many texts as there can be: one for every record and object.
            for (size_t i = 0; reader && reader->read(is_tampered_) > 0; i++) {
                require(i < 2 * ring_capacity / record_alignment);
            }
            require(is_tampered_ || !reader || reader->knows(published_));
        }
        object_publisher_close(publisher_);
        publisher_ = nullptr;
        for (const auto &reader : readers_) {
            require(is_tampered_ || !reader || !reader->is_open() ||
                    (reader->read(false) == -1 && errno == ESTALE));
        }
    }

    Input input_;
    struct object_publisher *publisher_;
    Mapping mapping_;
    Objects published_;
    int births_ = 0;
    std::array<std::unique_ptr<Reader>, 3> readers_;
    bool is_tampered_ = false;
    std::vector<std::function<void()>> tampering_;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static const World world;
    Play(world, Input(data, size)).run();
    sigset_t wakes;
    sigemptyset(&wakes);
    sigaddset(&wakes, wake_signal);
    sigaddset(&wakes, SIGIO);
    const struct timespec at_once = {};
    while (sigtimedwait(&wakes, nullptr, &at_once) > 0) {
    }
    return 0;
}
