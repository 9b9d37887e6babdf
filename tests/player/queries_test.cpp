// The catalogue's queries and the track sessions: the bytes that the service sees, answers of any
// length, and the effect of each answer, correct or not, on the call's result and the caller's
// pointers.
#include <cerrno>
#include <cstring>
#include <functional>
#include <optional>
#include <semaphore>
#include <thread>

#include <vantro/extras.h>
#include <vantro/protocol.h>

#include "player/handle.h"
#include "tests/player/query_calls.h"
#include "tests/player/service.h"

namespace {

const char *const three_keys[] = {"a", "key", "", nullptr};
const char *const no_keys[] = {nullptr};

const std::vector<Call> &all_calls() { // NOLINT(readability-function-size): a table
    static const std::vector<Call> calls{
        {"sources", "5 vantro_get_media_sources() failed", get_sources, request(2),
         words({0, 2}) + source_bytes("Disc") + source_bytes("Stick"), "0 2 Disc Stick", true,
         Call::short_area, 8},
        {"browse", "5 vantro_browse() failed", [](auto h) { return browse(h, ""); },
         request(7, words({3, -2, 5, 0})), words({0, 2}) + node_bytes("Rock") + node_bytes("Pop"),
         "0 2 Rock Pop", true, Call::long_area, 8},
        {"search", "5 vantro_search() failed", [](auto h) { return search(h, "album", "x y"); },
         request(8, words({3, 0, 5}) + text("album") + text("x y")),
         words({0, 1}) + node_bytes("Rock"), "0 1 Rock", true, Call::long_area, 8},
        {"tracks", "5 vantro_get_trksession_tracks() failed",
         [](auto h) {
             return list_nodes([&](int *count, MediaNode **nodes) {
                 return vantro_get_trksession_tracks(h, 0x200000001, 9, count, nodes);
             });
         },
         request(9, words({1, 2, 9, 5})), words({0, 1}) + node_bytes("Rock"), "0 1 Rock", false,
         Call::long_area, 8},
        {"metadata", "5 vantro_get_metadata() failed", [](auto h) { return get_metadata(h, "id"); },
         request(10, words({3}) + text("id")), words({0}) + metadata_bytes("Song"), "0 Song", true,
         Call::short_area, 4},
        {"values", "5 vantro_get_extended_metadata() failed",
         [](auto h) { return get_values(h, "id", three_keys); },
         request(11, words({3}) + text("id") + words({3}) + text("a") + text("key") + text("")),
         words({0}) + text("one") + words({-1}) + text("three"), "0 one - three", false,
         Call::long_area, 4},
        {"create", "5 vantro_create_trksession() failed",
         [](auto h) {
             const int32_t first = 6;
             uint64_t tsid = 5;
             const int result = vantro_create_trksession(h, 3, "node", &first, -1, &tsid);
             EXPECT_EQ(tsid == 5, result == -1);
             return std::to_string(result) + (result == 0 ? " " + std::to_string(tsid) : "");
         },
         words({12, 16, 0, 0, 3, 6, -1}) + text("node"), words({0, 1, 2}), "0 8589934593", true,
         Call::fixed, 12},
        {"destroy", "5 vantro_destroy_trksession() failed",
         [](auto h) { return std::to_string(vantro_destroy_trksession(h, 0x300000004)); },
         request(14, words({4, 3})), words({0}), "0", true, Call::fixed, 4},
        {"jump", "5 vantro_set_trksession_index() failed",
         [](auto h) { return std::to_string(vantro_jump(h, -7)); }, request(18, words({-7})),
         words({0}), "0", true, Call::fixed, 4},
        {"browse with metadata", "5 vantro_browse_metadata() failed",
         [](auto h) {
             return list_described([&](int *count, MediaNode **nodes, Metadata **metadata) {
                 return vantro_browse_metadata(h, 3, "n", -2, count, nodes, metadata);
             });
         },
         request(265, words({3, -2, 5}) + text("n")),
         described_bytes(node_bytes("Rock"), metadata_bytes("T")), "0 1 Rock T", true,
         Call::long_area, 12},
        {"search with metadata", "5 vantro_search_metadata() failed",
         [](auto h) {
             return list_described([&](int *count, MediaNode **nodes, Metadata **metadata) {
                 return vantro_search_metadata(h, 3, nullptr, "t", 0, count, nodes, metadata);
             });
         },
         request(266, words({3, 0, 5, 0}) + text("t")),
         described_bytes(node_bytes("Rock"), metadata_bytes("T")), "0 1 Rock T", true,
         Call::long_area, 12},
        {"tracks with metadata", "5 vantro_get_trksession_tracks_metadata() failed",
         [](auto h) {
             return list_described([&](int *count, MediaNode **nodes, Metadata **metadata) {
                 return vantro_get_trksession_tracks_metadata(h, 0x200000001, 9, count, nodes,
                                                              metadata);
             });
         },
         request(267, words({1, 2, 9, 5})),
         described_bytes(node_bytes("Rock"), metadata_bytes("T")), "0 1 Rock T", false,
         Call::long_area, 12},
        {"players", "5 vantro_list_players() failed",
         [](auto h) {
             char *before = nullptr, **names = &before;
             const int count = vantro_list_players(h, &names);
             std::string line = std::to_string(count);
             EXPECT_EQ(count < 0, names == &before);
             for (int i = 0; i < count; i++) {
                 line += std::string(" ") + names[i];
             }
             if (names != &before) {
                 EXPECT_EQ(names[count], nullptr);
                 std::free(names);
             }
             return line;
         },
         request(264), words({0, 2}) + text("main") + text("attic"), "2 main attic", false,
         Call::long_area, 8},
        {"status", "5 vantro_get_status() failed", get_status, request(272),
         status_bytes(node_bytes("Rock"), metadata_bytes("T")),
         "0 1 3 5 30064771078 8 9 10 11 Rock T", true, Call::long_area, 60},
    };
    return calls;
}

class Queries : public Player {
  protected:
    void expect(const Call &c, VantroHandle *with, const std::string &outcome,
                const Lines &logged) {
        EXPECT_EQ(c.call(with), outcome);
        EXPECT_EQ(take(lines), logged);
    }
};

TEST_F(Queries, SendTheirBytesAndTakeWholeAnswersOnly) {
    for (const Call &c : all_calls()) {
        SCOPED_TRACE(c.name);
        take(requests);
        expect(c, nullptr, "-1", {"5 Invalid vantro handle"});
        EXPECT_EQ(take(requests), Lines{});
        will_answer(c.answer);
        char *name = std::exchange(handle->player_name, nullptr);
        expect(c, handle, c.needs_player ? "-1" : c.outcome,
               c.needs_player ? Lines{"5 Invalid vantro handle"} : Lines{});
        handle->player_name = name;
        EXPECT_EQ(take(requests).size(), c.needs_player ? 0U : 1U);
        expect(c, handle, c.outcome, {});
        EXPECT_EQ(take(requests), Lines{c.sent});
        will_answer(words({7}) + c.answer.substr(4));
        expect(c, handle, "-1", {c.failure});
        for (size_t size = 0; size < c.answer.size(); size++) {
            SCOPED_TRACE(size);
            will_answer(c.answer.substr(0, size));
            if (size < c.words) {
                expect(c, handle, "-1", {c.failure});
            } else if (c.failure != all_calls()[5].failure && (c.words == 8 || size > 4)) {
                expect(c, handle, "-1", {}); // The bytes end within a record.
            }
        }
    }
}

TEST_F(Queries, ArgumentsAreJudgedInTheirOrder) {
    const auto check = [](const std::string &outcome, const char *wanted, const std::string &sent,
                          const std::string &logged = "", int error = 77) {
        EXPECT_EQ(outcome, wanted);
        EXPECT_EQ(std::exchange(errno, 77), error);
        EXPECT_EQ(take(requests), sent.empty() ? Lines{} : Lines{sent});
        EXPECT_EQ(take(lines), logged.empty() ? Lines{} : Lines{logged});
    };
    const std::string bad_handle = "5 Invalid vantro handle", bad_id = "5 Invalid media node id";
    will_answer(words({0, 0}));
    check(browse(handle, nullptr), "-1", "", bad_id, EINVAL);
    check(browse(nullptr, nullptr), "-1", "", bad_handle);
    check(browse(handle, "n"), "0 0", request(7, words({3, -2, 5}) + text("n")));
    check(search(nullptr, "", nullptr), "-1", "", bad_handle);
    check(search(handle, "", nullptr), "-1", "", "5 Invalid term to be searched", EINVAL);
    check(search(handle, "", ""), "0 0", "");
    for (const char *filter : {"", static_cast<const char *>(nullptr)}) {
        check(search(handle, filter, "t"), "0 0", request(8, words({3, 0, 5, 0}) + text("t")));
    }
    will_answer(words({0}));
    check(get_metadata(nullptr, nullptr), "-1", "");
    check(get_metadata(nullptr, ""), "-1", "");
    check(get_metadata(handle, "n"), "0 null", request(10, words({3}) + text("n")));
    check(get_values(nullptr, "", nullptr), "-1", "", bad_id);
    check(get_values(nullptr, nullptr, no_keys), "-1", "", bad_id);
    check(get_values(nullptr, "n", nullptr), "-1", "", "5 Invalid keyv or valuev");
    EXPECT_EQ(vantro_get_extended_metadata(nullptr, 3, "n", no_keys, nullptr), -1);
    check("", "", "", "5 Invalid keyv or valuev");
    check(get_values(handle, "n", no_keys), "0", request(11, words({3}) + text("n") + words({0})));
    will_answer(words({0, 1, 0}));
    uint64_t tsid = 0;
    EXPECT_EQ(vantro_create_trksession(handle, 3, nullptr, nullptr, 0, nullptr), -1);
    check("", "", "", "5 The media node id cannot be NULL");
    EXPECT_EQ(vantro_create_trksession(handle, 3, "", nullptr, 0, &tsid), 0);
    check("", "", words({12, 12, 0, 0, 3, 0, 0, 0}));
}

// An answer that the server half would not give: `status` and `length` are what the peer states,
// and `held` is kept at the service for the fetch.
struct Forged {
    int32_t status;
    uint32_t length;
    std::string bytes;
    std::optional<std::string> held = {};
    int32_t held_status = 0;
};

void forge(const Forged &forged) {
    const std::lock_guard<std::mutex> lock(guard);
    respond = [forged](MsgOsb *open, MsgContext *context) {
        TransportHeader header = *context->header;
        header.reply_length = forged.length;
        const iovec reply[] = {{&header, sizeof header},
                               {const_cast<char *>(forged.bytes.data()), forged.bytes.size()}};
        if (forged.held) {
            const iovec part = {const_cast<char *>(forged.held->data()), forged.held->size()};
            callout_reply2(open, context->receive_id, 0, forged.held_status, &part, 1);
        } else {
            _msgserver_lock_then_decr_inuse_and_release_osb_if_closed(open);
        }
        return ipc_replyv(context->receive_id, forged.status, reply, 2);
    };
}

// False values that a call accepts since they do no harm, and those that it reports. The fuzzer of
// replies tries the rest.
TEST_F(Queries, AnswersThatLieHarmNobody) {
    const Call &browsing = all_calls()[1], &metadata = all_calls()[4], &values = all_calls()[5],
               &creating = all_calls()[6];
    const std::string one = words({0, 1}) + node_bytes("Rock");
    const std::string far = words({0, 1}) + node_bytes(std::string(70000, 'x'));
    const std::string song = words({0}) + metadata_bytes("Song");
    const auto big = static_cast<uint32_t>(far.size());
    const std::string not_fetched = "5 msgclient_getv() failed";
    const struct {
        const char *name;
        const Call &call;
        Forged forged;
        std::string outcome, logged;
    } cases[] = {
        {"length", browsing, {0, UINT32_MAX, one}, "0 1 Rock", ""},
        {"no count", browsing, {0, 8, words({0})}, "-1", browsing.failure},
        {"status", browsing, {9, 8, one}, "-1", "3 msgclient_putgetv() failed: "},
        {"held, is not", browsing, {240, 100000, ""}, "-1", not_fetched},
        {"held, huge", browsing, {240, (256U << 20) + 1, ""}, "-1", "3 Cannot allocate memory"},
        {"held, length 0", browsing, {240, 0, "", one}, "0 1 Rock", ""},
        {"held, overstated", browsing, {240, 256 << 20, "", one}, "0 1 Rock", ""},
        {"held, status", browsing, {240, big, "", far, 5}, "-1", not_fetched},
        {"held, understated", browsing, {240, big - 9, "", far}, "-1", not_fetched},
        {"metadata, length", metadata, {0, UINT32_MAX, song}, "0 Song", ""},
        {"no values", values, {0, 4, words({0})}, "0 - - -", ""},
        {"value cut", values, {0, 15, words({0}) + text("12") + text("34")}, "-1", values.failure},
        {"values, length", values, {0, 99, words({0, 0, 0, 0}) + text("4")}, "0 - - -", ""},
        {"half a number", creating, {0, UINT32_MAX, words({0, 1})}, "-1", creating.failure},
        {"number, length", creating, {0, UINT32_MAX, words({0, 1, 0})}, "0 1", ""},
    };
    system_log_set_sink(
        [](auto code, auto severity, auto line, void *data) {
            record_line(code, severity, line, data);
            auto *mutex = static_cast<vantro::Mutex *>(data); // A sink may make a call itself.
            const bool is_free = mutex->try_lock();
            EXPECT_TRUE(is_free);
            if (is_free) {
                mutex->unlock();
            }
        },
        &handle->overflow_lock);
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        forge(c.forged);
        EXPECT_EQ(c.call.call(handle), c.outcome);
        const Lines logged = take(lines);
        EXPECT_EQ(logged.size(), c.logged.empty() ? 0U : 1U);
        EXPECT_EQ(logged.empty() ? "" : logged[0].substr(0, c.logged.size()), c.logged);
    }
}

// The fetched answer states the longest there may be, and so many records that they would fill it.
TEST_F(Queries, RecordsThatDidNotComeTakeNoMemory) {
    {
        const std::lock_guard<std::mutex> lock(guard);
        respond = [](MsgOsb *open, MsgContext *context) {
            _msgserver_lock_then_decr_inuse_and_release_osb_if_closed(open);
            TransportHeader header = *context->header;
            header.reply_length = VANTRO_REPLY_MAX;
            ipc_reply(context->receive_id, MSG_STATUS_QUEUED, &header, sizeof header);
            // The server half would answer the fetch with the true length.
            TransportHeader fetch;
            const iovec place = {&fetch, sizeof fetch};
            int32_t receive_id;
            do {
                receive_id = ipc_receive(service->server->channel, &place, 1, nullptr);
            } while (receive_id == 0);
            std::string bytes = words({0, VANTRO_REPLY_MAX / 24}) + node_bytes("Rock");
            const iovec parts[] = {{&header, sizeof header}, {bytes.data(), bytes.size()}};
            return ipc_replyv(receive_id, 0, parts, 2);
        };
    }
    expect(all_calls()[1], handle, "-1", {});
}

TEST_F(Queries, WhatIsLongerThanTheAreaIsFetchedOnce) {
    for (const Call &c : all_calls()) {
        if (c.kind == Call::fixed) {
            continue;
        }
        SCOPED_TRACE(c.name);
        for (const size_t over : {0U, 1U, 200000U}) {
            // The first name, title or value grows, so that the answer is `over` bytes longer than
            // the area.
            std::string bytes = c.answer;
            const std::string old = c.name == std::string("values")    ? "one"
                                    : c.name == std::string("players") ? "main"
                                    : c.words >= 12                    ? "T"
                                    : c.kind == Call::short_area ? (c.words == 8 ? "Disc" : "Song")
                                                                 : "Rock";
            const std::string grown(65536 + over + c.words - bytes.size() + old.size(), 'x');
            bytes.replace(bytes.find(text(old)), text(old).size(), text(grown));
            ASSERT_EQ(bytes.size(), c.words + 65536 + over);
            if (c.name == std::string("status")) {
                const size_t node = node_bytes("Rock").size();
                bytes.replace(c.words - 4, 4,
                              words({static_cast<int32_t>(bytes.size() - c.words - node)}));
            }
            std::string outcome = c.outcome;
            outcome.replace(outcome.find(old), old.size(), grown);
            will_answer(bytes);
            take(requests);
            if (over && c.kind == Call::short_area) {
                expect(c, handle, "-1", {"3 msgclient_putgetv() failed: Unknown error 240"});
            } else {
                expect(c, handle, outcome, {});
            }
            EXPECT_EQ(take(requests).size(), 1U);
        }
    }
}

// Every long answer of a connection is held under one tag, and a fetch takes the newest.
TEST_F(Queries, ThreadsWithLongAnswersGetTheirOwn) {
    std::string lists[2];
    for (int i = 0; i < 2; i++) {
        lists[i] = words({0, 10000});
        for (int n = 0; n < 10000; n++) {
            lists[i] += node_bytes(std::string(1, i ? 'b' : 'a') + std::to_string(n));
        }
    }
    const std::string sources = words({0, 1}) + source_bytes(std::string(65536, 's'));
    std::counting_semaphore<> asked(0);
    {
        const std::lock_guard<std::mutex> lock(guard);
        respond = [&](MsgOsb *open, MsgContext *context) {
            const auto *bytes = static_cast<const char *>(context->payload);
            const std::string &list = bytes[0] == 7 ? lists[bytes[32] == 'b'] : sources;
            if (bytes[0] == 7) {
                asked.release();
            }
            return callout_reply(open, context, 0, list.data(), static_cast<int32_t>(list.size()));
        };
    }
    const auto list = [&](const char *node_id) {
        for (int turn = 0; turn < 20; turn++) {
            MediaNode *nodes = nullptr;
            int count = 0, right = 0;
            EXPECT_EQ(vantro_browse(handle, 3, node_id, 0, &count, &nodes), 0);
            for (int n = 0; n < count; n++) {
                right += nodes[n].name && nodes[n].name == node_id + std::to_string(n);
            }
            EXPECT_EQ(right, 10000);
            vantro_free_media_nodes(nodes, count);
        }
    };
    std::thread first(list, "a"), second(list, "b");
    for (int turn = 0; turn < 40; turn++) {
        asked.acquire();
        EXPECT_EQ(get_sources(handle), "-1"); // Held, and never fetched.
    }
    first.join();
    second.join();
    errno = 77; // Waiting in this thread may have set it.
    EXPECT_EQ(take(lines), Lines(40, "3 msgclient_putgetv() failed: Unknown error 240"));
}

} // namespace
