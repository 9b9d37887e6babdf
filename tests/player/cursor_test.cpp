// Cursors: each entry once over any number of pages, and the failure if a list changes.
#include <algorithm>
#include <cstring>
#include <numeric>

#include <vantro/extras.h>
#include <vantro/protocol.h>

#include "tests/player/service.h"

namespace {

std::vector<int> listed, asked; // The ids of the list, and the counts that were asked for.
int refusals = 0;
void (*change)(); // Changes the list after the first page.

int32_t give_page(MsgOsb *open, MsgContext *context) {
    int32_t range[2];
    std::memcpy(range, static_cast<const char *>(context->payload) + sizeof(RequestHeader) + 4,
                sizeof range);
    asked.push_back(range[1]);
    const auto size = static_cast<int32_t>(listed.size());
    const int32_t first = std::min(range[0], size), end = std::min(range[0] + range[1], size);
    std::string all = words({refusals-- > 0 ? EIO : 0, end - first});
    for (int32_t i = first; i < end; ++i) {
        all +=
            words({1, 12, 3, 2}) + text(std::to_string(listed[static_cast<size_t>(i)])) + text("");
    }
    if (asked.size() == 1) {
        change();
    }
    return callout_reply(open, context, 0, all.data(), static_cast<int32_t>(all.size()));
}

TEST_F(Player, CursorsGiveEachEntryOnceOrTellOfAChange) {
    const struct {
        const char *what;
        size_t size;
        void (*change)();
        int given, failure;
        std::vector<int> asked;
    } rows[] = {
        {"nothing", 0, [] {}, 0, 0, {100}},
        {"a page and one entry", 101, [] {}, 101, 0, {100, 201}},
        {"whole pages", 300, [] {}, 300, 0, {100, 201, 401}},
        {"many pages", 3000, [] {}, 3000, 0, {100, 201, 401, 801, 1000, 1000}},
        {"a refusal", 250, [] { refusals = 1; }, 250, 0, {100, 201, 201}},
        {"more at the end", 100, [] { listed.push_back(100); }, 101, 0, {100, 201}},
        {"more in front", 200, [] { listed.insert(listed.begin(), -1); }, 100, ESTALE, {100, 201}},
        {"less in front", 200, [] { listed.erase(listed.begin()); }, 100, ESTALE, {100, 201}},
        {"all gone", 200, [] { listed.clear(); }, 100, ESTALE, {100, 201}},
    };
    will_respond(give_page);
    for (const auto &row : rows) {
        SCOPED_TRACE(row.what);
        {
            const std::lock_guard<std::mutex> lock(guard);
            listed.resize(row.size);
            std::iota(listed.begin(), listed.end(), 0);
            asked.clear();
            change = row.change;
        }
        VantroCursor *const cursor = vantro_cursor_browse(handle, 3, "songs", 0, 0);
        const MediaNode *node = nullptr;
        VantroFailure why = {};
        int given = 0, result = 0;
        do {
            result = vantro_cursor_next(cursor, &node, nullptr);
            if (result == 1) {
                EXPECT_EQ(node->id, std::to_string(given++));
            } else if (result == -1) {
                vantro_last_failure(&why);
            }
        } while (result == 1 || (result == -1 && why.number == EIO));
        EXPECT_EQ(given, row.given);
        EXPECT_EQ(result == 0 ? 0 : why.number, row.failure);
        EXPECT_EQ(why.reason == VANTRO_FAILURE_CHANGED, row.failure == ESTALE);
        take(lines);
        EXPECT_EQ(asked, row.asked);
        vantro_cursor_close(cursor);
    }
    EXPECT_EQ(vantro_cursor_browse(handle, 3, "songs", -1, 0), nullptr);
    EXPECT_EQ(std::exchange(errno, 77), EINVAL);
    take(lines);
}

} // namespace
