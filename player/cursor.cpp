// Cursors: lists that are read page by page, and checked for changes between the pages.
#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <new>
#include <utility>

#include <vantro/extras.h>
#include <vantro/protocol.h>

#include "player/answer.h"
#include "player/failure.h"
#include "player/handle.h"
#include "player/log.h"

namespace vantro::player {
namespace {

// The first page is short, so that it comes quickly; later ones are longer, so that a long list
// takes few exchanges.
constexpr int32_t first_page_length = 100;
constexpr int32_t page_length_max = VANTRO_METADATA_PAGE_MAX;

// No page can have more entries than this, whatever the service sends.
constexpr int32_t entries_max = VANTRO_REPLY_MAX;

class Page {
  public:
    Page() = default;
    ~Page() { release(); }
    Page(Page &&other) noexcept { swap(other); }
    Page &operator=(Page &&other) noexcept {
        swap(other);
        return *this;
    }

    MediaNode *nodes = nullptr;
    Metadata *metadata = nullptr; // Null if it was not requested.
    int count = 0;

  private:
    void swap(Page &other) {
        std::swap(nodes, other.nodes);
        std::swap(metadata, other.metadata);
        std::swap(count, other.count);
    }
    void release() {
        vantro_free_media_nodes(nodes, nodes ? count : 0);
        vantro_free_metadata(metadata, metadata ? count : 0);
    }
};

struct FreeText {
    void operator()(char *text) const { std::free(text); }
};
using OwnedText = std::unique_ptr<char, FreeText>;

enum class List { node, search, session };

bool is_same_entry(const MediaNode &one, const MediaNode &other) {
    const char *const first = one.id ? one.id : "";
    const char *const second = other.id ? other.id : "";
    return one.ms_id == other.ms_id && std::strcmp(first, second) == 0;
}

} // namespace
} // namespace vantro::player

using namespace vantro::player;

struct VantroCursor {
    VantroHandle *handle; // Borrowed.
    List list;
    bool with_metadata;
    int32_t next; // The offset after the page's last entry.
    int32_t ms_id = 0;
    uint64_t tsid = 0;
    OwnedText text = nullptr;   // The node's id, or the term.
    OwnedText filter = nullptr; // Of a search; null for any.
    int32_t page_length = first_page_length;
    Page page = {};
    int at = 0;         // The next entry of the page.
    bool ended = false; // The page is the list's last.
};

namespace vantro::player {
namespace {

int invalid(const char *what) {
    note_failure(VANTRO_FAILURE_INVALID, EINVAL);
    msglog(LOG_SEVERITY_INFO, "%s", what);
    errno = EINVAL;
    return -1;
}

VantroCursor *no_memory() {
    note_failure(VANTRO_FAILURE_NO_MEMORY, ENOMEM);
    msglog(LOG_SEVERITY_INFO, "Cannot allocate memory");
    errno = ENOMEM;
    return nullptr;
}

VantroCursor *make_cursor(VantroHandle *handle, List list, int32_t offset, int with_metadata) {
    if (!require_connection(handle)) {
        errno = EINVAL;
        return nullptr;
    }
    if (offset < 0 || with_metadata < 0 || with_metadata > 1) {
        invalid("Invalid cursor");
        return nullptr;
    }
    auto *const cursor = new (std::nothrow) VantroCursor{handle, list, with_metadata != 0, offset};
    return cursor ? cursor : no_memory();
}

// @return whether the texts were copied; if not, the cursor was freed.
bool keep_texts(VantroCursor *&cursor, const char *text, const char *filter) {
    cursor->text.reset(strdup(text));
    cursor->filter.reset(filter ? strdup(filter) : nullptr);
    if (cursor->text && (cursor->filter || !filter)) {
        return true;
    }
    delete std::exchange(cursor, nullptr);
    no_memory();
    return false;
}

// Requests `page.count` entries of the cursor's list.
int ask_page(const VantroCursor &from, int32_t offset, Page &page) {
    const char *const text = from.text.get();
    int *const count = &page.count;
    switch (from.list) {
    case List::node:
        return from.with_metadata
                   ? vantro_browse_metadata(from.handle, from.ms_id, text, offset, count,
                                            &page.nodes, &page.metadata)
                   : vantro_browse(from.handle, from.ms_id, text, offset, count, &page.nodes);
    case List::search:
        return from.with_metadata
                   ? vantro_search_metadata(from.handle, from.ms_id, from.filter.get(), text,
                                            offset, count, &page.nodes, &page.metadata)
                   : vantro_search(from.handle, from.ms_id, from.filter.get(), text, offset, count,
                                   &page.nodes);
    case List::session:
        break;
    }
    return from.with_metadata
               ? vantro_get_trksession_tracks_metadata(from.handle, from.tsid, offset, count,
                                                       &page.nodes, &page.metadata)
               : vantro_get_trksession_tracks(from.handle, from.tsid, offset, count, &page.nodes);
}

// Replaces the present page by the next one. If that fails, the cursor is unchanged.
int turn_page(VantroCursor &cursor) {
    if (cursor.next > INT32_MAX - entries_max) {
        note_failure(VANTRO_FAILURE_OTHER, EOVERFLOW);
        msglog(LOG_SEVERITY_INFO, "vantro_cursor_next() failed: the list is too long");
        return -1;
    }
    const int32_t overlap = cursor.page.count > 0 ? 1 : 0;
    const int32_t wanted = std::min(cursor.page_length + overlap, page_length_max);
    Page page;
    page.count = wanted;
    if (ask_page(cursor, cursor.next - overlap, page) != 0) {
        return -1;
    }
    if (overlap != 0 && (page.count == 0 ||
                         !is_same_entry(cursor.page.nodes[cursor.page.count - 1], page.nodes[0]))) {
        note_failure(VANTRO_FAILURE_CHANGED, ESTALE);
        msglog(LOG_SEVERITY_INFO, "vantro_cursor_next() failed: the list has changed");
        return -1;
    }
    cursor.ended = page.count < wanted;
    cursor.next += page.count - overlap;
    cursor.at = overlap;
    cursor.page = std::move(page);
    cursor.page_length = std::min(2 * cursor.page_length, page_length_max);
    return 0;
}

} // namespace
} // namespace vantro::player

VantroCursor *vantro_cursor_browse(VantroHandle *handle, int32_t ms_id, const char *node_id,
                                   int32_t offset, int with_metadata) {
    if (!node_id) {
        invalid("Invalid media node id");
        return nullptr;
    }
    VantroCursor *cursor = make_cursor(handle, List::node, offset, with_metadata);
    if (cursor && keep_texts(cursor, node_id, nullptr)) {
        cursor->ms_id = ms_id;
    }
    return cursor;
}

VantroCursor *vantro_cursor_search(VantroHandle *handle, int32_t ms_id, const char *filter,
                                   const char *term, int32_t offset, int with_metadata) {
    if (!term) {
        invalid("Invalid term to be searched");
        return nullptr;
    }
    VantroCursor *cursor = make_cursor(handle, List::search, offset, with_metadata);
    if (cursor && keep_texts(cursor, term, filter)) {
        cursor->ms_id = ms_id;
    }
    return cursor;
}

VantroCursor *vantro_cursor_tracks(VantroHandle *handle, uint64_t tsid, int32_t offset,
                                   int with_metadata) {
    VantroCursor *const cursor = make_cursor(handle, List::session, offset, with_metadata);
    if (cursor) {
        cursor->tsid = tsid;
    }
    return cursor;
}

int vantro_cursor_next(VantroCursor *cursor, const MediaNode **node, const Metadata **metadata) {
    if (!cursor) {
        return invalid("Invalid cursor");
    }
    if (cursor->at == cursor->page.count) {
        if (cursor->ended) {
            return 0;
        }
        if (turn_page(*cursor) != 0) {
            return -1;
        }
        if (cursor->at == cursor->page.count) {
            return 0;
        }
    }
    const int at = cursor->at++;
    *node = &cursor->page.nodes[at];
    if (metadata) {
        *metadata = cursor->page.metadata ? &cursor->page.metadata[at] : nullptr;
    }
    return 1;
}

void vantro_cursor_close(VantroCursor *cursor) {
    const KeepErrno keep;
    delete cursor;
}
