// Arbitrary answers to the queries that hand out records and values. A real service in this process
// gives them. Whatever they are, each call has a documented result, and what it gives can be read
// and freed.
//
// An input is the query (1 byte), the reply's status (1 byte), the length that the reply claims
// (4 bytes), how much of the rest is the reply itself (2 bytes), that much, and then the answer
// that the service holds for a fetch.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <thread>
#include <utility>

#include <vantro/extras.h>
#include <vantro/messaging.h>
#include <vantro/platform/log.h>

#include "common/locks.h"
#include "fuzz/support.h"

namespace {

using vantro::fuzz::require;

struct Forged {
    int32_t status;
    uint32_t length;
    std::string reply, held;
};

vantro::Mutex guard; // The requesting thread continues before the service has finished its answer.
Forged &forged GUARDED_BY(guard) =
    *new Forged; // Never freed, since the service's thread does not end.

void will_give(Forged next) {
    const vantro::MutexLock lock(guard);
    forged = std::move(next);
}

// An answer with only a result word of 0.
Forged consent() {
    return {0, 4, std::string(4, '\0'), ""};
}

int32_t give(MsgOsb *open, MsgContext *context, MsgService *) {
    const vantro::MutexLock lock(guard);
    TransportHeader header = *context->header;
    const int32_t receive_id = context->receive_id;
    header.reply_length = forged.length;
    const iovec held = {forged.held.data(), forged.held.size()};
    callout_reply2(open, receive_id, 0, 0, &held, 1);
    const iovec reply[] = {{&header, sizeof header}, {forged.reply.data(), forged.reply.size()}};
    return ipc_replyv(receive_id, forged.status, reply, 2);
}

void ignore(uint32_t, int, const char *, void *) {}

struct World {
    const vantro::fuzz::RuntimeDirectory runtime;

    World() {
        system_log_set_sink(ignore, nullptr);
        MsgServer *server = msgserver_create(4096, 1, MSGSERVER_FLAG_PATH);
        require(server && msgserver_add(server, "vantro.sys", nullptr, nullptr, 256, give, nullptr,
                                        nullptr) == 0);
        std::thread(msgserver_thread_loop, server).detach();
    }
};

void read_text(const char *text) {
    require(!text || std::strlen(text) < 1U << 28);
}

void list_nodes(VantroHandle *handle, unsigned how) {
    MediaNode untouched{}, *nodes = &untouched;
    int count = 7;
    const int result = how == 0   ? vantro_browse(handle, 1, "", 0, &count, &nodes)
                       : how == 1 ? vantro_search(handle, 1, "", "x", 0, &count, &nodes)
                                  : vantro_get_trksession_tracks(handle, 1, 0, &count, &nodes);
    require(result == 0 ? count >= 0 : count == 7 && (!nodes || nodes == &untouched));
    require(result != 0 || (count == 0) == (nodes == &untouched));
    if (nodes == &untouched) {
        return;
    }
    for (int i = 0; nodes && i < count; i++) {
        read_text(nodes[i].id);
        read_text(nodes[i].name);
    }
    vantro_free_media_nodes(nodes, count);
}

void ask(VantroHandle *handle, unsigned query) {
    const char *const keys[] = {"a", "b", "c", nullptr};
    char *values[3] = {};
    Metadata *metadata = nullptr;
    MediaSource *sources = nullptr;
    VantroTrackInfo *track = nullptr;
    VantroStatus *status = nullptr;
    int count = 0;
    switch (query) {
    case 3:
        require(vantro_get_media_sources(handle, &sources, &count) == 0 || !sources);
        return vantro_free_media_sources(sources, count);
    case 4:
        require(vantro_get_metadata(handle, 1, "n", &metadata) == 0 || !metadata);
        return vantro_free_metadata(metadata, 1);
    case 5:
        vantro_get_current_track_info(handle, &track);
        return vantro_free_track_info(track);
    case 7:
        require(vantro_get_status(handle, &status) == 0 || !status);
        return vantro_free_status(status);
    case 6:
        count = vantro_get_extended_metadata(handle, 1, "n", keys, values);
        for (char *value : values) {
            require(count == 0 || !value);
            read_text(value);
            std::free(value);
        }
        return;
    default:
        return list_nodes(handle, query);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static World world;
    if (size < 8) {
        return 0;
    }
    will_give(consent());
    // A new connection for each input, so that no answer is held from an earlier one. The fuzzing
    // engine's timer may interrupt either, once a second.
    VantroHandle *handle = nullptr;
    for (int tries = 0; !handle || vantro_open(handle, "main") != 0; ++tries) {
        require(tries < 3);
        handle = handle ? handle : vantro_connect();
    }
    uint32_t length = 0;
    std::memcpy(&length, data + 2, sizeof length);
    const size_t direct = std::min<size_t>(data[6] | data[7] << 8, size - 8);
    const auto *rest = reinterpret_cast<const char *>(data + 8);
    will_give({data[1], length, std::string(rest, direct),
               std::string(rest + direct, size - 8 - direct)});
    ask(handle, data[0] % 8);
    will_give(consent());
    require(vantro_disconnect(handle) == 0);
    return 0;
}
