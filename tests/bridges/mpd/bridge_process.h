// vantro-mpd with a vantrod of its own, and clients of it.
#ifndef VANTRO_TESTS_BRIDGES_MPD_BRIDGE_PROCESS_H
#define VANTRO_TESTS_BRIDGES_MPD_BRIDGE_PROCESS_H

#include <memory>
#include <string>
#include <vector>

#include <netinet/in.h>
#include <sys/socket.h>

#include "tests/support/music.h"
#include "tests/support/process.h"

namespace vantro::mpd {

// A client that sends and receives single lines.
class RawClient {
  public:
    explicit RawClient(uint16_t port) : socket_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(port);
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        EXPECT_EQ(connect(socket_, reinterpret_cast<sockaddr *>(&address), sizeof address), 0);
        input_ = fdopen(socket_, "r");
        greeting = line();
    }
    ~RawClient() { std::fclose(input_); }
    RawClient(const RawClient &) = delete;
    RawClient &operator=(const RawClient &) = delete;

    // Sends raw bytes, as many as the bridge accepts.
    void send(const std::string &bytes) {
        for (size_t at = 0; at < bytes.size();) {
            const ssize_t sent =
                ::send(socket_, bytes.data() + at, bytes.size() - at, MSG_NOSIGNAL);
            if (sent <= 0) {
                return;
            }
            at += static_cast<size_t>(sent);
        }
    }

    // The next line; empty if the bridge has closed the connection.
    std::string line() {
        std::string text;
        for (int c = 0; (c = std::fgetc(input_)) != EOF && c != '\n';) {
            text += static_cast<char>(c);
        }
        return text;
    }

    // The lines up to the one that ends an answer, included; empty if the connection is closed.
    std::string answer() {
        std::string all;
        while (true) {
            const std::string next = line();
            if (next.empty()) {
                return all + "(closed)";
            }
            all += next + '\n';
            if (next == "OK" || next.starts_with("ACK ")) {
                return all;
            }
        }
    }
    std::string ask(const std::string &command) {
        send(command + '\n');
        return answer();
    }
    // Whether data arrive within the time.
    bool has_answer(int ms) const {
        pollfd input = {socket_, POLLIN, 0};
        return poll(&input, 1, ms) == 1;
    }

    std::string greeting;

  private:
    int socket_;
    std::FILE *input_;
};

class Bridge : public test::RuntimeDirectory {
  protected:
    void SetUp() override {
        RuntimeDirectory::SetUp();
        music_ = path_ + "/music";
        test::make_music(music_ / "Red" / "Way \"1\"" / "1.flac", 100'000,
                         {"TITLE=One", "ARTIST=Red", "ALBUM=The Way", "TRACKNUMBER=1", "DATE=2001",
                          "GENRE=Rock"});
        test::make_music(music_ / "Red" / "Way \"1\"" / "2.ogg", 60'000,
                         {"TITLE=Zw\xC3\x96lf", "ARTIST=Red", "ALBUM=The Way", "TRACKNUMBER=2",
                          "COMPOSER=Bach", "DATE=2001"});
        test::make_music(music_ / "loose.flac", 30'000,
                         {"TITLE=Loose", "ARTIST=Blue", "GENRE=Rock"});
        test::write_file(music_ / "mix.m3u", "loose.flac\nRed/Way \"1\"/1.flac\n");
        test::write_file(music_ / "cover.png", cover_);
        start_vantrod();
        bridge_ = std::make_unique<test::Process>(
            std::vector<std::string>{VANTRO_MPD, "--port", "0", "--clients", "8"});
        std::string said = bridge_->line();
        while (!said.empty() && !said.starts_with("vantro-mpd: ready (127.0.0.1:")) {
            said = bridge_->line(); // about the address that this host may not have
        }
        ASSERT_FALSE(said.empty());
        port_ = static_cast<uint16_t>(std::stoi(said.substr(said.find(':', 12) + 1)));
        setenv("MPD_HOST", "127.0.0.1", 1);
        setenv("MPD_PORT", std::to_string(port_).c_str(), 1);
    }
    void TearDown() override {
        bridge_->kill(SIGTERM);
        EXPECT_EQ(bridge_->wait(), 0);
        RuntimeDirectory::TearDown();
    }

    void start_vantrod() {
        vantrod_ = std::make_unique<test::Process>(
            std::vector<std::string>{VANTROD, "--audio", "clock", "--music", music_, "--player",
                                     "main", "--player", "kitchen"});
        std::string line = vantrod_->line();
        while (!line.empty() && !line.starts_with("vantrod: scanned")) {
            line = vantrod_->line();
        }
        ASSERT_FALSE(line.empty());
    }

    // What mpc prints, including its error messages.
    static std::string mpc(std::vector<std::string> words) {
        words.insert(words.begin(), MPC);
        test::Process process(words);
        std::string said = process.rest();
        process.wait();
        return said;
    }

    // A picture of one point.
    const std::string cover_ = std::string(
        "\x89PNG\r\n\x1a\n\0\0\0\rIHDR\0\0\0\1\0\0\0\1\x08\2\0\0\0\x90wS\xde\0\0\0\x0cIDATx\x9c"
        "c\xf8\xcf\xc0\0\0\3\1\1\0\xc9\xfe\x92\xef\0\0\0\0IEND\xae"
        "B`\x82",
        69);
    std::filesystem::path music_;
    std::unique_ptr<test::Process> vantrod_;
    std::unique_ptr<test::Process> bridge_;
    uint16_t port_ = 0;
};

} // namespace vantro::mpd

#endif
