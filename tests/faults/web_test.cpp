// vantro-web with allocations and system calls failing in turn under its clients. A failure costs
// at most the client that needed the call; afterwards every answer is right again.
#include <chrono>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <thread>

#include <netinet/in.h>
#include <sys/socket.h>

#include "tests/faults/control_file.h"
#include "tests/support/music.h"
#include "tests/support/process.h"

namespace vantro::faults {

namespace {

using Clock = std::chrono::steady_clock;

// How long a client waits for bytes.
constexpr timeval patience = {20, 0};

// One connection, with one request.
class WebClient {
  public:
    // @param body of a POST; without it the request is a GET.
    WebClient(uint16_t port, const std::string &path, const char *body = nullptr)
        : socket_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(port);
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        setsockopt(socket_, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
        if (connect(socket_, reinterpret_cast<sockaddr *>(&address), sizeof address) != 0) {
            return; // there is no answer then
        }
        std::string request = fmt::format("{} {} HTTP/1.1\r\nHost: 127.0.0.1:{}\r\n"
                                          "Connection: close\r\n",
                                          body ? "POST" : "GET", path, port);
        if (body) {
            request += fmt::format("Content-Type: application/json\r\nContent-Length: {}\r\n",
                                   std::string_view(body).size());
        }
        request += "\r\n";
        request += body ? body : "";
        ::send(socket_, request.data(), request.size(), MSG_NOSIGNAL);
    }
    ~WebClient() { close(socket_); }
    WebClient(const WebClient &) = delete;
    WebClient &operator=(const WebClient &) = delete;

    // The next bytes; empty at the end, or if none arrive.
    std::string read() const {
        char bytes[16384];
        const ssize_t got = recv(socket_, bytes, sizeof bytes, 0);
        EXPECT_FALSE(got < 0 && errno == EAGAIN) << "no answer";
        return {bytes, static_cast<size_t>(std::max<ssize_t>(got, 0))};
    }
    // The status and the body of the answer; "" if the connection is closed without one.
    std::string answer() const {
        std::string all;
        for (std::string part; !(part = read()).empty();) {
            all += part;
        }
        const size_t end = all.find("\r\n\r\n");
        return end == all.npos ? "" : all.substr(9, 3) + all.substr(end + 2);
    }
    bool has_answer(int ms) const {
        pollfd input = {socket_, POLLIN, 0};
        return poll(&input, 1, ms) == 1;
    }

  private:
    int socket_;
};

class Web : public test::RuntimeDirectory {
  protected:
    void SetUp() override {
        RuntimeDirectory::SetUp();
        for (int i = 0; i < 5; ++i) {
            test::make_music(fmt::format("{}/music/Red/{}.flac", path_, i), 100'000,
                             {fmt::format("TITLE=One {}", i), "ARTIST=Red", "ALBUM=The Way"});
        }
        vantrod_ = std::make_unique<test::Process>(
            std::vector<std::string>{VANTROD, "--audio", "clock", "--music", path_ + "/music"});
        file_.name_in_environment();
        web_ = std::make_unique<test::Process>(
            std::vector<std::string>{VANTRO_WEB, "--port", "0", "--clients", "16"});
        wait_for(*vantrod_, "vantrod: scanned");
        const std::string ready = wait_for(*web_, "vantro-web: ready");
        ASSERT_NE(ready, "");
        port_ = static_cast<uint16_t>(std::stoi(ready.substr(ready.rfind(':') + 1)));
    }
    void TearDown() override {
        web_->kill(SIGTERM);
        const std::string said = web_->rest();
        EXPECT_EQ(web_->wait(), 0) << said;
        RuntimeDirectory::TearDown();
    }
    static std::string wait_for(test::Process &process, const char *beginning) {
        std::string line = "-";
        while (!line.empty() && !line.starts_with(beginning)) {
            line = process.readable(20'000) ? process.line() : "";
        }
        EXPECT_FALSE(line.empty()) << beginning;
        return line;
    }
    std::string ask(const std::string &path, const char *body = nullptr) const {
        return WebClient(port_, path, body).answer();
    }

    // After a failure to reach the service, the bridge pauses before it tries again.
    std::string ask_until_reachable(const std::string &path) const {
        const auto end = Clock::now() + std::chrono::seconds(10);
        std::string told = ask(path);
        while (told.starts_with("503") && Clock::now() < end) {
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
            told = ask(path);
        }
        return told;
    }

    ControlFile file_;
    std::unique_ptr<test::Process> vantrod_;
    std::unique_ptr<test::Process> web_;
    uint16_t port_ = 0;
};

TEST_F(Web, FailsInTurnUnderItsClients) {
    const std::string api = "/api/v1", player = api + "/players/main";
    ASSERT_EQ(
        ask(player + "/queue/load", R"({"nodes":[{"source_id":1,"id":"songs"}]})").substr(0, 3),
        "200");
    const std::string questions[] = {
        "/",
        "/no/such/page",
        api + "/players",
        api + "/sources",
        api + "/browse?source_id=1&id=songs",
        api + "/search?source_id=1&q=one",
        api + "/playlists",
        player + "/queue",
    };
    std::map<std::string, std::string> right;
    for (const std::string &question : questions) {
        right[question] = ask(question);
        EXPECT_NE(right[question], "") << question;
    }
    std::optional<WebClient> follower;
    const auto clients = [&](int) {
        follower.emplace(port_, player + "/events");
        for (const std::string &question : questions) {
            ask(question);
        }
        ask(player + "/modes", R"({"repeat": "all"})");
    };
    const auto check = [&](int, const std::string &what) {
        for (const auto &[question, answer] : right) {
            EXPECT_EQ(ask_until_reachable(question), answer) << what << ": " << question;
        }
        // The follower is told of a change, unless its connection was closed.
        std::string told = "-", all;
        EXPECT_EQ(ask(player + "/modes", R"({"repeat": "one"})"), "204\r\n");
        while (!told.empty() && all.find("\"one\"") == all.npos) {
            EXPECT_TRUE(follower->has_answer(5000)) << what;
            all += told = follower->has_answer(0) ? follower->read() : "";
        }
        EXPECT_EQ(ask(player + "/modes", R"({"repeat": "off"})"), "204\r\n");
    };
    fail_in_turn(*file_.get(), *web_, clients, check);
}

} // namespace

} // namespace vantro::faults
