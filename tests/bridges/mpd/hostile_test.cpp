// vantro-mpd under adverse conditions: file names, many clients, a service that ends.
#include "tests/bridges/mpd/bridge_process.h"

#include <algorithm>

#include <sys/resource.h>

namespace vantro::mpd {
namespace {

// A word of a line.
std::string quoted(const std::string &text) {
    std::string word = "\"";
    for (const char c : text) {
        word += c == '"' || c == '\\' ? std::string{'\\', c} : std::string{c};
    }
    return word + '"';
}

// The value of a key in an answer, at any place in the answer.
std::vector<std::string> values(const std::string &answer, const std::string &key) {
    std::vector<std::string> found;
    for (size_t at = 0; (at = answer.find(key + ": ", at)) != answer.npos; ++at) {
        if (at == 0 || answer[at - 1] == '\n') {
            const size_t begin = at + key.size() + 2;
            found.push_back(answer.substr(begin, answer.find('\n', begin) - begin));
        }
    }
    return found;
}

TEST_F(Bridge, WhateverIsInANameItCanBeGivenBack) {
    std::string low, high;
    for (int byte = 1; byte < 256; ++byte) {
        (byte < 128 ? low : high) += byte == '/' ? "" : std::string(1, static_cast<char>(byte));
    }
    constexpr size_t songs = 3 + 4;
    RawClient client(port_);
    for (const std::filesystem::path &folder : {music_ / low, music_ / high}) {
        std::filesystem::create_directory(folder);
        for (const std::string &name : {low, high}) {
            std::filesystem::copy(music_ / "loose.flac", folder / (name + ".flac"));
        }
    }
    std::vector<std::string> files;
    while ((files = values(client.ask("listall"), "file")).size() < songs) {
        client.ask("idle database");
    }
    for (const std::string &file : files) {
        const std::string word = quoted(file);
        EXPECT_EQ(values(client.ask("lsinfo " + word), "file"), std::vector{file}) << file;
        EXPECT_EQ(client.ask("add " + word), "OK\n") << file;
    }
    EXPECT_EQ(values(client.ask("playlistinfo"), "file"), files);
    for (const std::string &folder : values(client.ask("lsinfo music"), "directory")) {
        EXPECT_EQ(values(client.ask("lsinfo " + quoted(folder)), "file").size(),
                  folder == "music/Red" ? 0 : 2)
            << folder;
    }
}

TEST_F(Bridge, AThousandClientsAreToldOfAChange) {
    struct rlimit files = {};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &files), 0);
    files.rlim_cur = std::min<rlim_t>(files.rlim_max, 4096);
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &files), 0);
    // The bridge raises its own limit.
    test::Process crowded({VANTRO_MPD, "--bind", "127.0.0.1", "--port", "0", "--clients", "1000"},
                          [files] {
                              const struct rlimit few = {256, files.rlim_max};
                              setrlimit(RLIMIT_NOFILE, &few);
                          });
    const std::string said = crowded.line();
    ASSERT_TRUE(said.starts_with("vantro-mpd: ready (127.0.0.1:")) << said;
    const auto port = static_cast<uint16_t>(std::stoi(said.substr(said.find(':', 12) + 1)));
    std::vector<std::unique_ptr<RawClient>> clients(1000);
    for (auto &each : clients) {
        each = std::make_unique<RawClient>(port);
        EXPECT_NE(each->greeting, "");
    }
    EXPECT_EQ(RawClient(port).greeting, ""); // one too many
    for (auto &each : clients) {
        each->send("idle mixer\n");
    }
    EXPECT_EQ(RawClient(port_).ask("setvol 31"), "OK\n");
    for (auto &each : clients) {
        EXPECT_EQ(each->answer(), "changed: mixer\nOK\n");
    }
    clients.resize(10);
    EXPECT_EQ(clients[9]->ask("getvol"), "volume: 31\nOK\n");
    crowded.kill(SIGTERM);
    EXPECT_EQ(crowded.wait(), 0);
}

// The service stops answering while a command waits for it, and then ends.
TEST_F(Bridge, AServiceThatEndsInTheMiddleOfACommand) {
    RawClient other(port_);
    const std::string loose = " music/loose.flac";
    for (const std::string &line :
         {std::string("status"),
          std::string("stats"),
          std::string("play"),
          std::string("pause 1"),
          std::string("next"),
          std::string("stop"),
          std::string("seekcur 3"),
          std::string("setvol 3"),
          std::string("random 1"),
          std::string("repeat 1"),
          std::string("disableoutput 0"),
          std::string("outputs"),
          std::string("playlistinfo"),
          std::string("move 0 1"),
          std::string("delete 0"),
          std::string("shuffle"),
          std::string("clear"),
          "add" + loose,
          "addid" + loose,
          "lsinfo" + loose,
          "albumart" + loose + " 0",
          "readcomments" + loose,
          std::string("listallinfo"),
          std::string("find artist Red"),
          std::string("search any o"),
          std::string("list album group artist"),
          std::string("count"),
          std::string("searchadd any o"),
          std::string("listplaylists"),
          std::string("listplaylist mix"),
          std::string("load mix"),
          std::string("save x replace"),
          std::string("rm x"),
          std::string("update"),
          std::string("listpartitions"),
          std::string("partition kitchen"),
          std::string("listmounts"),
          fmt::format("command_list_begin\nadd{0}\nadd{0}\nplay\ncommand_list_end", loose)}) {
        SCOPED_TRACE(line);
        RawClient client(port_);
        ASSERT_EQ(client.ask("add music"), "OK\n");
        ASSERT_EQ(client.ask("play"), "OK\n");
        vantrod_->stop();
        client.send(line + '\n');
        client.has_answer(50); // an answer that is already known comes at once
        vantrod_->kill(SIGKILL);
        vantrod_->wait();
        const std::string said = client.answer();
        // Only a listing of unlimited length is sent before it is complete.
        const size_t refusal = said.find("ACK [52@");
        EXPECT_TRUE(said.ends_with("OK\n") || refusal == 0 ||
                    (line == "listallinfo" && refusal != said.npos))
            << said;
        EXPECT_EQ(other.ask("ping"), "OK\n");
        start_vantrod();
        EXPECT_EQ(values(client.ask("status"), "state").size(), 1u);
    }
}

} // namespace
} // namespace vantro::mpd
