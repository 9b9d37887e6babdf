// A service "vantro.sys" of the tests' own, in a thread of this process and a runtime directory.
#ifndef VANTRO_TESTS_SUPPORT_LOCAL_SERVICE_H
#define VANTRO_TESTS_SUPPORT_LOCAL_SERVICE_H

#include <cstdlib>
#include <filesystem>
#include <string>
#include <thread>

#include <gtest/gtest.h>

#include <vantro/messaging.h>

namespace vantro::test {

class LocalService {
  public:
    explicit LocalService(int32_t (*respond)(MsgOsb *, MsgContext *, MsgService *)) {
        EXPECT_NE(mkdtemp(directory.data()), nullptr);
        setenv("XDG_RUNTIME_DIR", directory.c_str(), 1);
        server = msgserver_create(4096, 1, MSGSERVER_FLAG_PATH);
        EXPECT_GE(
            msgserver_add(server, "vantro.sys", nullptr, nullptr, 256, respond, nullptr, nullptr),
            0);
        loop_ = std::thread(msgserver_thread_loop, server);
    }
    ~LocalService() {
        __atomic_store_n(&server->stop, 1, __ATOMIC_SEQ_CST);
        const int wake = connect_attach(0, 0, server->channel, 0, 0);
        pulse_send(wake, 10, 0, 0);
        loop_.join();
        connect_detach(wake);
        std::filesystem::remove_all(directory);
    }

    inline static MsgServer *server; // Servers last as long as their process.
    std::string directory = "/tmp/vantro-service-XXXXXX";

  private:
    std::thread loop_;
};

} // namespace vantro::test

#endif
