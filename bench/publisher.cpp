#include "bench/publisher.h"

#include <array>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <vantro/messaging.h>
#include <vantro/platform/objects.h>

#include <fmt/format.h>

#include "bench/run.h"

namespace vantro::bench {

namespace {

constexpr int source_count = 16;
constexpr size_t ring_and_more_bytes = 1200 * 1024;

enum class Act : uint32_t { publish, change_objects, overtake, wake };

struct Order {
    Act act;
    uint32_t count_or_means;
};

// The answer to an order: times in nanoseconds, or a number.
using Answer = std::array<int64_t, batch_size>;

// A request as long as the floor's.
struct Wake {
    int64_t at;
    char filling[36];
} __attribute__((packed));
static_assert(sizeof(Wake) == 44);

struct Value {
    const char *name;
    kivo_encoding encoding;
    std::string text;
};

class Objects {
  public:
    explicit Objects(const std::string &directory)
        : publisher_(object_publisher_open(directory.c_str())) {
        if (!publisher_) {
            fail_errno(directory);
        }
        change_objects();
    }

    void publish_position() {
        const std::string position = fmt::to_string(++number_ * 1000);
        const object_attribute attribute{"position", KIVO_NUMBER, position.c_str()};
        publish("status", &attribute, 1);
    }

    // The changes of a player that goes to another track and whose sources are scanned again.
    int64_t change_objects() {
        ++number_;
        const auto n = number_;
        // A value never comes back, or a reader that missed changes could see no change at all.
        set("state", {{"status", KIVO_TEXT, "playing"},
                      {"rate", KIVO_NUMBER, fmt::to_string(n)},
                      {"repeat", KIVO_TEXT, "off"},
                      {"shuffle", KIVO_TEXT, "off"}});
        set("trksession", {{"type", KIVO_NUMBER, "1"},
                           {"length", KIVO_NUMBER, "312"},
                           {"tsid", KIVO_NUMBER, "7"}});
        set("track",
            {{"index", KIVO_NUMBER, fmt::to_string(n % 312)},
             {"tsid", KIVO_NUMBER, "7"},
             {"media_node", KIVO_JSON,
              fmt::format(R"({{"name":"Title of the track number {0}","id":"s{0:016x}","type":1,)"
                          R"("count":0,"ms_id":1,"ms_type":1}})",
                          n)},
             {"metadata", KIVO_JSON,
              fmt::format(R"({{"title":"Title of the track number {0}","artist":"Artist {0}",)"
                          R"("album":"Album {0}","genre":"Genre","year":"1999",)"
                          R"("artwork":"/sys/csm/artwork/{0:016x}","duration":{1},"width":500,)"
                          R"("height":500,"disc":1,"track":{2}}})",
                          n, 180000 + n % 1000, n % 30)}});
        set("status", {{"position", KIVO_NUMBER, fmt::to_string(n * 1000)}});
        for (int source = 0; source < source_count; ++source) {
            set(fmt::format("mediasource{}", source).c_str(),
                {{"type", KIVO_NUMBER, "1"},
                 {"media_source", KIVO_JSON,
                  fmt::format(R"({{"name":"music{0}","view_name":"Music of the folder {0}",)"
                              R"("uid":"/home/music/{0}","id":{0},"type":1,"status":{1},)"
                              R"("capabilities":4294967303}})",
                              source, n % 3)}});
        }
        return source_count + 4;
    }

    int64_t overtake() {
        int64_t objects = 0;
        for (bytes_ = 0; bytes_ < ring_and_more_bytes;) {
            objects = change_objects();
        }
        return objects;
    }

  private:
    void set(const char *object, const std::vector<Value> &values) {
        std::vector<object_attribute> attributes;
        for (const Value &value : values) {
            attributes.push_back({value.name, value.encoding, value.text.c_str()});
            bytes_ += value.text.size();
        }
        publish(object, attributes.data(), attributes.size());
    }

    void publish(const char *object, const object_attribute *attributes, size_t count) {
        if (object_publish(publisher_, object, 0, attributes, count) != 0) {
            fail_errno("publishing");
        }
    }

    object_publisher *publisher_;
    int64_t number_ = 0;
    size_t bytes_ = 0;
};

int32_t agree(MsgOsb *open, MsgContext *context, MsgService *) {
    const int32_t granted = 0;
    return callout_reply(open, context, 0, &granted, sizeof granted);
}

int64_t wake(Objects &objects, Publisher::Means means, int socket) {
    const pid_t sleeper = getppid();
    while (!is_asleep(sleeper, sleeper)) {
    }
    Wake wake = {};
    wake.at = now_ns();
    switch (means) {
    case Publisher::Means::message:
        break;
    case Publisher::Means::signal:
        kill(sleeper, Publisher::wake_signal);
        break;
    case Publisher::Means::publication:
        objects.publish_position();
        break;
    }
    return send(socket, &wake, sizeof wake, MSG_NOSIGNAL);
}

void time_positions(Objects &objects, size_t count, Answer &times) {
    for (size_t i = 0; i < count && i < times.size(); ++i) {
        const int64_t begin = now_ns();
        objects.publish_position();
        times[i] = now_ns() - begin;
    }
}

void order(int socket, Act act, uint32_t count_or_means) {
    const Order order{act, count_or_means};
    if (send(socket, &order, sizeof order, MSG_NOSIGNAL) != static_cast<ssize_t>(sizeof order)) {
        fail_errno("the publisher takes no orders");
    }
}

template <typename Message>
Message receive(int socket) {
    Message message;
    if (recv(socket, &message, sizeof message, 0) != static_cast<ssize_t>(sizeof message)) {
        fail("the publisher does not answer");
    }
    return message;
}

} // namespace

Publisher::Publisher() {
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) < 0) {
        fail_errno("socketpair");
    }
    socket_ = ends[0];
    child_ = std::make_unique<Child>(std::vector<std::string>{program_beside(""), "--serve",
                                                              fmt::format("publisher:{}", ends[1])},
                                     ends[1]);
    close(ends[1]);
    child_->wait_for_line("ready");
}

Publisher::~Publisher() {
    close(socket_);
}

void Publisher::publish(size_t count, Samples &samples) {
    order(socket_, Act::publish, static_cast<uint32_t>(count));
    const auto times = receive<Answer>(socket_);
    for (size_t i = 0; i < count; ++i) {
        samples.add(times.at(i));
    }
}

size_t Publisher::change_objects() {
    order(socket_, Act::change_objects, 0);
    return static_cast<size_t>(receive<Answer>(socket_)[0]);
}

size_t Publisher::overtake() {
    order(socket_, Act::overtake, 0);
    return static_cast<size_t>(receive<Answer>(socket_)[0]);
}

void Publisher::wake(Means means) {
    order(socket_, Act::wake, static_cast<uint32_t>(means));
}

int64_t Publisher::woken_at() {
    return receive<Wake>(socket_).at;
}

bool is_asleep(pid_t process, pid_t thread) {
    const std::string path = fmt::format("/proc/{}/task/{}/stat", process, thread);
    const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (file < 0) {
        fail_errno(path);
    }
    char text[256] = {};
    [[maybe_unused]] const ssize_t length = read(file, text, sizeof text - 1);
    close(file);
    // The state follows the name, which is in brackets and may contain any character.
    const char *const name_end = std::strrchr(text, ')');
    return name_end && std::strncmp(name_end, ") S", 3) == 0;
}

int serve_publisher(int socket) {
    MsgServer *server = msgserver_create(1024, 16, MSGSERVER_FLAG_PATH);
    if (!server ||
        msgserver_add(server, "vantro.sys", nullptr, nullptr, 1024, agree, nullptr, nullptr) < 0) {
        fail_errno("the bench's own player");
    }
    Objects objects(fmt::format("/kivo/services/vantro/{}", Publisher::player));
    std::thread([server] { msgserver_thread_loop(server); }).detach();
    std::puts("ready");
    std::fflush(stdout);

    if (socket < 0) {
        for (;;) {
            pause();
        }
    }
    Order order;
    while (recv(socket, &order, sizeof order, 0) > 0) {
        Answer answer = {};
        switch (order.act) {
        case Act::publish:
            time_positions(objects, order.count_or_means, answer);
            break;
        case Act::change_objects:
            answer[0] = objects.change_objects();
            break;
        case Act::overtake:
            answer[0] = objects.overtake();
            break;
        case Act::wake:
            wake(objects, static_cast<Publisher::Means>(order.count_or_means), socket);
            continue;
        }
        if (send(socket, &answer, sizeof answer, MSG_NOSIGNAL) < 0) {
            break;
        }
    }
    std::_Exit(0);
}

} // namespace vantro::bench
