// Shared by the tests of the platform: a runtime directory of their own, servers, raw clients.
#ifndef VANTRO_TESTS_PLATFORM_SUPPORT_H
#define VANTRO_TESTS_PLATFORM_SUPPORT_H

#include <dirent.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include <vantro/platform/message.h>
#include <vantro/platform/names.h>

#include "platform/linux/base/unique_fd.h"
#include "platform/linux/messages/wire.h"

namespace vantro::test {

using platform::UniqueFd;

// A private runtime directory for the length of a test.
class RuntimeDirectory {
  public:
    RuntimeDirectory() {
        char path[] = "/tmp/vantro-test-XXXXXX";
        path_ = mkdtemp(path);
        setenv("XDG_RUNTIME_DIR", path_.c_str(), 1);
    }
    ~RuntimeDirectory() { std::filesystem::remove_all(path_); }
    const std::string &path() const { return path_; }

  private:
    std::string path_;
};

inline int open_descriptors() {
    int count = 0;
    DIR *directory = opendir("/proc/self/fd");
    while (readdir(directory)) {
        ++count;
    }
    closedir(directory);
    return count;
}

// One message as a server thread got it.
struct Message {
    int receive_id = 0;
    struct ipc_info info = {};
    std::string bytes;
};

// Whether all channels of this run hand over.
inline bool handing_over_always() {
    return getenv("VANTRO_TEST_HAND_OVER") != nullptr;
}
inline bool handing_over = handing_over_always();

// How many descriptors are opened later in that case: for each processor a thread's wait set and
// both ends of a lane.
inline int later_descriptors() {
    return handing_over ? 3 * static_cast<int>(std::thread::hardware_concurrency()) : 0;
}

// A named channel with threads that hand each message or pulse to a function.
class ChannelServer {
  public:
    using OnMessage = std::function<void(const Message &)>;
    using OnPulse = std::function<void(const struct ipc_pulse &)>;

    explicit ChannelServer(OnMessage on_message, OnPulse on_pulse = {}, int threads = 1,
                           size_t capacity = 1024)
        : channel(channel_create(CHANNEL_DISCONNECT)), dispatch(path_dispatch_create(channel, 0)),
          on_message_(std::move(on_message)), on_pulse_(std::move(on_pulse)) {
        if ((handing_over && channel_hand_over(channel) != 0) ||
            !global_name_attach(dispatch, "csm/test/default", 0)) {
            ADD_FAILURE() << strerror(errno);
        }
        for (int i = 0; i < threads; ++i) {
            threads_.emplace_back([this, capacity] { run(capacity); });
        }
    }
    ~ChannelServer() {
        channel_destroy(channel);
        for (std::thread &thread : threads_) {
            thread.join();
        }
        path_dispatch_destroy(dispatch);
    }

    const int channel;
    struct path_dispatch *const dispatch;

  private:
    void run(size_t capacity) {
        std::vector<char> buffer(capacity);
        for (;;) {
            Message message;
            const struct iovec part = {buffer.data(), buffer.size()};
            message.receive_id = ipc_receive(channel, &part, 1, &message.info);
            if (message.receive_id < 0 && errno == EBADF) {
                return;
            }
            if (message.receive_id == 0) {
                struct ipc_pulse pulse;
                memcpy(&pulse, buffer.data(), sizeof pulse);
                if (on_pulse_) {
                    on_pulse_(pulse);
                }
                if (pulse.code == PULSE_CODE_DISCONNECT) {
                    connect_detach(pulse.conn_id);
                }
            } else if (message.receive_id > 0) {
                message.bytes.assign(buffer.data(), static_cast<size_t>(message.info.msg_length));
                on_message_(message);
            }
        }
    }

    OnMessage on_message_;
    OnPulse on_pulse_;
    std::vector<std::thread> threads_;
};

// Answers with the bytes received and their number as the status.
inline void echo(const Message &message) {
    ipc_reply(message.receive_id, static_cast<int>(message.bytes.size()), message.bytes.data(),
              message.bytes.size());
}

inline int connect_to_test() {
    return global_name_open("csm/test/default", 0);
}

// Whether a well-behaved client is served.
inline bool is_served(int connection) {
    char reply[8] = {};
    return ipc_send_simple(connection, "ping", 4, reply, sizeof reply) == 4 &&
           strcmp(reply, "ping") == 0;
}

// Sends one packet, with a descriptor if one is given.
inline void send_on(int socket, const void *bytes, size_t length, int descriptor = -1) {
    const struct iovec part = {const_cast<void *>(bytes), length};
    platform::send_packet(socket, &part, 1, descriptor, 0);
}

inline platform::Frame frame(uint32_t length, uint32_t flags = 0) {
    return {.length = length, .status = 0, .flags = flags, .processor = 0};
}

// A client that uses the sockets itself, and so can do what the library never would.
class RawClient {
  public:
    explicit RawClient(const std::string &runtime) {
        struct sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        const std::string path = runtime + "/vantro/name/csm/test/default";
        strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
        control.reset(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
        if (connect(control.get(), reinterpret_cast<struct sockaddr *>(&address), sizeof address) !=
            0) {
            ADD_FAILURE() << strerror(errno);
        }
    }
    // Receives a lane: the first, or one that was asked for.
    UniqueFd receive_lane() {
        platform::ControlRecord record;
        struct iovec part = {&record, sizeof record};
        platform::Arrival arrival;
        platform::receive_packet(control.get(), &part, 1, 0, arrival);
        return UniqueFd(arrival.descriptor.release());
    }
    // Whether the server has ended the connection; waits for it.
    bool is_cut_off() {
        char byte;
        return recv(control.get(), &byte, 1, 0) <= 0;
    }

    UniqueFd control;
};

// Runs a function in a child process, which ends with the test whatever fails.
template <typename Function>
pid_t in_child(Function function) {
    const pid_t child = fork();
    if (child == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        function();
        _exit(0);
    }
    return child;
}

inline int exit_status(pid_t child) {
    int status = 0;
    waitpid(child, &status, 0);
    return status;
}

} // namespace vantro::test

#endif
