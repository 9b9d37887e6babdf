// vantrod as a process of its own, and a client of its requests, byte by byte.
#ifndef VANTRO_TESTS_SERVICE_VANTROD_H
#define VANTRO_TESTS_SERVICE_VANTROD_H

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include <vantro/catalogue.h>
#include <vantro/extras.h>
#include <vantro/messaging.h>
#include <vantro/player.h>
#include <vantro/protocol.h>

#include "tests/support/music.h"
#include "tests/support/process.h"

namespace vantro::service {

template <typename... Values>
inline std::string bytes(Values... values) {
    std::string all;
    (all.append(reinterpret_cast<const char *>(&values), sizeof values), ...);
    return all;
}

inline std::string request(uint16_t command, const std::string &rest = "") {
    return bytes(command, uint16_t{0}, static_cast<uint32_t>(rest.size()), uint64_t{0}) + rest;
}

inline std::string name(const std::string &text) {
    return bytes(static_cast<uint32_t>(text.size())) + text;
}

struct Client {
    MsgClient *client = msgclient_open(VANTRO_SERVICE_NAME, nullptr, 0);
    Client() = default;
    ~Client() { msgclient_close(client); }
    Client(const Client &) = delete;
    Client &operator=(const Client &) = delete;

    // The answer to a request, fetched if it is held.
    std::string ask(const std::string &what) const {
        std::string answer(VANTRO_REPLY_AREA, 'u');
        uint32_t length = 0;
        int result = msgclient_putget(client, what.data(), static_cast<uint32_t>(what.size()),
                                      answer.data(), VANTRO_REPLY_AREA, &length, 0);
        answer.resize(length);
        if (result == MSG_STATUS_QUEUED) {
            result = msgclient_get(client, 0, answer.data(), length, &length, 0);
        }
        EXPECT_EQ(result, 0);
        return answer;
    }
    // The nodes of a listing, as their names and ids.
    std::vector<std::pair<std::string, std::string>> list(const std::string &what) const {
        return nodes_in(ask(what));
    }
    static std::vector<std::pair<std::string, std::string>> nodes_in(const std::string &answer) {
        int32_t words[2] = {-1, -1};
        EXPECT_GE(answer.size(), sizeof words);
        std::memcpy(words, answer.data(), std::min(answer.size(), sizeof words));
        EXPECT_EQ(words[0], 0);
        std::vector<std::pair<std::string, std::string>> nodes;
        MediaNode *records = nullptr;
        if (words[1] == 0 ||
            unpack_media_node(answer.data() + 8, static_cast<int>(answer.size()) - 8, words[1],
                              &records) != 0) {
            return nodes;
        }
        for (int i = 0; i < words[1]; ++i) {
            nodes.emplace_back(records[i].name ? records[i].name : "",
                               records[i].id ? records[i].id : "");
        }
        vantro_free_media_nodes(records, words[1]);
        return nodes;
    }
    // The result word of a request whose answer is nothing else.
    int32_t result(const std::string &what) const {
        const std::string answer = ask(what);
        int32_t word = -1;
        EXPECT_EQ(answer.size(), sizeof word);
        std::memcpy(&word, answer.data(), std::min(answer.size(), sizeof word));
        return word;
    }
};

class Vantrod : public test::RuntimeDirectory {
  protected:
    void start(const std::vector<std::string> &arguments) {
        std::vector<std::string> words = {VANTROD};
        words.insert(words.end(), arguments.begin(), arguments.end());
        if (std::find(words.begin(), words.end(), "--audio") == words.end()) {
            words.insert(words.end(), {"--audio", "clock"});
        }
        service.emplace(words);
    }
    // The next line that the service itself prints; its log is between them.
    std::string told() {
        std::string line;
        do {
            line = service->line();
        } while (!line.empty() && line.rfind("vantrod: ", 0) != 0);
        return line;
    }
    std::optional<test::Process> service;
};

class Serving : public Vantrod {
  protected:
    void SetUp() override {
        Vantrod::SetUp();
        const std::filesystem::path music = path_ + "/music";
        test::make_music(music / "1.flac", 20'000, {"TITLE=One", "ARTIST=Anna", "TRACKNUMBER=1"});
        test::make_music(music / "2.ogg", 5'000, {"TITLE=Two", "TRACKNUMBER=2"});
        test::write_file(music / "3.mp3", "not music");
        start({"--music", music, "--player", "main", "--player", "kitchen", "--threads", "3"});
        ASSERT_EQ(told(), "vantrod: ready (0 tracks, players: main, kitchen)");
        ASSERT_EQ(told(), "vantrod: scanned (2 tracks)");
    }
};

inline const std::string open_main = request(VANTRO_COMMAND_OPEN, name("main"));
inline const std::string close_main = request(VANTRO_COMMAND_CLOSE, name("main"));
inline const std::string open_kitchen = request(VANTRO_COMMAND_OPEN, name("kitchen"));
inline const std::string state = request(VANTRO_COMMAND_GET_CURRENT_STATE);
inline const std::string track = request(VANTRO_COMMAND_GET_CURRENT_TRACK_INFO);
inline const std::string position = request(VANTRO_COMMAND_GET_CURRENT_TRACK_POSITION);
inline const std::string session = request(VANTRO_COMMAND_GET_CURRENT_TRKSESSION_INFO);
inline const std::string play = request(VANTRO_COMMAND_PLAY);
inline const std::string sources = request(VANTRO_COMMAND_GET_MEDIA_SOURCES);

inline std::string browse(int32_t source, const std::string &node, int32_t offset = 0,
                          int32_t count = 0) {
    return request(VANTRO_COMMAND_BROWSE, bytes(source, offset, count) + name(node));
}

inline std::string search(int32_t source, const std::string &filter, const std::string &term,
                          int32_t offset = 0, int32_t count = 0) {
    return request(VANTRO_COMMAND_SEARCH, bytes(source, offset, count) + name(filter) + name(term));
}

inline std::string tracks(uint64_t tsid, int32_t offset = 0, int32_t count = 0) {
    return request(VANTRO_COMMAND_GET_TRKSESSION_TRACKS, bytes(tsid, offset, count));
}

inline std::string metadata(int32_t source, const std::string &node) {
    return request(VANTRO_COMMAND_GET_METADATA, bytes(source) + name(node));
}

inline std::string values(int32_t source, const std::string &node,
                          const std::vector<std::string> &keys) {
    std::string rest = bytes(source) + name(node) + bytes(static_cast<int>(keys.size()));
    for (const std::string &key : keys) {
        rest += name(key);
    }
    return request(VANTRO_COMMAND_GET_EXTENDED_METADATA, rest);
}

// In the library's form: the length in the header is 4 too small.
inline std::string create(int32_t source, const std::string &node, int32_t index, int32_t start) {
    std::string whole =
        request(VANTRO_COMMAND_CREATE_TRKSESSION, bytes(source, index, start) + name(node));
    whole[4] = static_cast<char>(whole[4] - 4);
    return whole;
}

inline std::string destroy(uint64_t tsid) {
    return request(VANTRO_COMMAND_DESTROY_TRKSESSION, bytes(tsid));
}

// The same request under another command.
inline std::string as(uint16_t command, std::string whole) {
    std::memcpy(whole.data(), &command, sizeof command);
    return whole;
}

inline const std::string players = request(VANTRO_COMMAND_LIST_PLAYERS);

inline std::string jump(int32_t index) {
    return request(VANTRO_COMMAND_JUMP, bytes(index));
}

// The track session's id, which ends the answers to create and session.
inline uint64_t id_in(const std::string &answer) {
    uint64_t tsid = 0;
    EXPECT_GE(answer.size(), 12u);
    std::memcpy(&tsid, answer.data() + std::max<size_t>(answer.size(), 8) - 8, sizeof tsid);
    return tsid;
}

} // namespace vantro::service

#endif
