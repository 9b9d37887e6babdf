/**
 * @file
 * Owners of the records that queries return, and lists that are fetched page by page.
 */
#ifndef VANTRO_CPP_RECORDS_HPP
#define VANTRO_CPP_RECORDS_HPP

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <iterator>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

#include <vantro/cpp/result.hpp>
#include <vantro/extras.h>

namespace vantro {

/** @return a string of a record as a view, empty for NULL. @param string may be NULL. */
inline std::string_view text(const char *string) {
    return string ? std::string_view(string) : std::string_view();
}

/**
 * A text argument of a call: a C string or a std::string, borrowed until the call returns. A
 * std::string_view is not accepted: it need not end with a NUL, and a copy that does would be an
 * allocation.
 */
class TextArgument {
  public:
    /** @param text ends with a NUL; NULL is passed on as it is. */
    TextArgument(const char *text) : text_(text) {}
    /** @param text outlives the call. */
    TextArgument(const std::string &text) : text_(text.c_str()) {}

    /** @return the text, which ends with a NUL. */
    const char *get() const { return text_; }

  private:
    const char *text_;
};

namespace detail {

inline void free_records(MediaSource *records, int count) {
    vantro_free_media_sources(records, count);
}
inline void free_records(MediaNode *records, int count) {
    vantro_free_media_nodes(records, count);
}
inline void free_records(Metadata *records, int count) {
    vantro_free_metadata(records, count);
}

struct FreeBlock {
    void operator()(void *block) const { std::free(block); }
};
struct FreeTrack {
    void operator()(VantroTrackInfo *track) const { vantro_free_track_info(track); }
};
struct FreeStatus {
    void operator()(VantroStatus *status) const { vantro_free_status(status); }
};
struct FreeMetadata {
    void operator()(Metadata *metadata) const { vantro_free_metadata(metadata, 1); }
};

} // namespace detail

/** Records of one kind, owned. A range of them, and convertible to a span. */
template <typename Record>
class List {
  public:
    /** An empty list. */
    List() = default;
    /** Takes a block that a query returned. @param records, count the block, and the number of its
     * records. */
    List(Record *records, int count)
        : records_(records), count_(records && count > 0 ? static_cast<size_t>(count) : 0) {}
    ~List() { release(); }
    /** @param other the list from which the records are taken; empty afterwards. */
    List(List &&other) noexcept
        : records_(std::exchange(other.records_, nullptr)),
          count_(std::exchange(other.count_, size_t{0})) {}
    /** @param other as for the constructor. @return this list. */
    List &operator=(List &&other) noexcept {
        if (this != &other) {
            release();
            records_ = std::exchange(other.records_, nullptr);
            count_ = std::exchange(other.count_, size_t{0});
        }
        return *this;
    }

    /** @return the first record. */
    const Record *begin() const { return records_; }
    /** @return the place after the last record. */
    const Record *end() const { return records_ + count_; }
    /** @return the number of records. */
    size_t size() const { return count_; }
    /** @return whether there are none. */
    bool empty() const { return count_ == 0; }
    /** @param at below size(), which is not checked. @return that record. */
    const Record &operator[](size_t at) const { return records_[at]; }
    /** @return all records, which the list owns. */
    std::span<const Record> span() const { return {records_, count_}; }

  private:
    void release() { detail::free_records(records_, static_cast<int>(count_)); }

    Record *records_ = nullptr;
    size_t count_ = 0;
};

/** An entry of a list with its metadata. Both belong to the list. */
struct DescribedNode {
    const MediaNode *node;    /**< The entry. */
    const Metadata *metadata; /**< The entry's metadata; all strings may be NULL. */
};

/** Nodes, each with its metadata, owned. */
class DescribedList {
  public:
    /** An empty list. */
    DescribedList() = default;
    /** Takes the blocks that a query returned. @param nodes, metadata, count both blocks, and the
     *  records of each. */
    DescribedList(MediaNode *nodes, Metadata *metadata, int count)
        : nodes_(nodes, count), metadata_(metadata, count) {}

    /** @return the number of nodes. */
    size_t size() const { return nodes_.size(); }
    /** @return whether there are none. */
    bool empty() const { return nodes_.empty(); }
    /** @param at below size(), which is not checked. @return that node. */
    DescribedNode operator[](size_t at) const { return {&nodes_[at], &metadata_[at]}; }

  private:
    List<MediaNode> nodes_;
    List<Metadata> metadata_;
};

/** Names that a query returned, owned. A range of C strings. */
class Names {
  public:
    /** No names. */
    Names() = default;
    /** Takes the block that a query returned. @param names, count the block, and its names. */
    Names(char **names, int count)
        : names_(names), count_(names && count > 0 ? static_cast<size_t>(count) : 0) {}

    /** @return the first name. */
    const char *const *begin() const { return names_.get(); }
    /** @return the place after the last name. */
    const char *const *end() const { return names_.get() + count_; }
    /** @return the number of names. */
    size_t size() const { return count_; }
    /** @param at below size(), which is not checked. @return that name. */
    const char *operator[](size_t at) const { return names_.get()[at]; }

  private:
    std::unique_ptr<char *[], detail::FreeBlock> names_;
    size_t count_ = 0;
};

/** The current track: `media_node` and `metadata` may be NULL. */
using Track = std::unique_ptr<VantroTrackInfo, detail::FreeTrack>;

/** The status of a player: `media_node` and `metadata` may be NULL. */
using Status = std::unique_ptr<VantroStatus, detail::FreeStatus>;

/** The metadata of a node; NULL if the service has none. */
using MetadataPtr = std::unique_ptr<Metadata, detail::FreeMetadata>;

/** A text of the catalogue; NULL if there is none. */
using Value = std::unique_ptr<char, detail::FreeBlock>;

/**
 * A list that is fetched page by page while iterating. It can be iterated once; begin() fetches the
 * first page. Fetching the next page frees the nodes of the previous one. If a page cannot be
 * fetched, or the list has changed meanwhile (Reason::changed), iterating ends, and done() returns
 * the reason:
 *
 *     #include <cstdio>
 *     #include <vantro/vantro.hpp>
 *
 *     void print_names(vantro::Player &player, int32_t ms_id) {
 *         auto nodes = player.browse(ms_id);
 *         for (const MediaNode &node : nodes) {
 *             std::puts(node.name ? node.name : "");
 *         }
 *         nodes.done().or_throw();
 *     }
 *
 * `Entry` is MediaNode, or DescribedNode for a cursor that was made with metadata.
 */
template <typename Entry>
class Pages {
    static constexpr bool described = std::is_same_v<Entry, DescribedNode>;
    using Given = std::conditional_t<described, DescribedNode, const MediaNode &>;

  public:
    /** @param cursor taken over; NULL if a call could not make one. */
    explicit Pages(VantroCursor *cursor) : cursor_(cursor) {
        if (!cursor) {
            failure_ = Failure::last();
        }
    }

    /** An iterator; all iterators of one list have the same position. */
    class Iterator {
      public:
        using value_type = Entry;               /**< For the standard library. */
        using difference_type = std::ptrdiff_t; /**< For the standard library. */

        /** @param pages outlives the iterator. */
        explicit Iterator(Pages &pages) : pages_(&pages) {}
        /** @return the entry, which lives until the next page is fetched. */
        Given operator*() const {
            if constexpr (described) {
                return pages_->entry_;
            } else {
                return *pages_->entry_.node;
            }
        }
        /** @return a pointer to the entry. */
        const MediaNode *operator->() const
            requires(!described)
        {
            return pages_->entry_.node;
        }
        /** Goes to the next entry; blocks if a page must be fetched. @return this iterator. */
        Iterator &operator++() {
            pages_->advance();
            return *this;
        }
        /** Like the prefix form. */
        void operator++(int) { ++*this; }
        /** @return whether iterating has ended; done() of the list returns the reason. */
        bool operator==(std::default_sentinel_t) const { return !pages_->entry_.node; }

      private:
        Pages *pages_;
    };

    /** Blocks for the first page. @return an iterator at the first entry. */
    Iterator begin() {
        if (!std::exchange(begun_, true)) {
            advance();
        }
        return Iterator(*this);
    }
    /** @return the end of the list. */
    std::default_sentinel_t end() const { return {}; }

    /** @return success if every requested page came; else the failure. */
    Result<void> done() const { return failure_ ? Result<void>(*failure_) : Result<void>(); }

  private:
    struct Close {
        void operator()(VantroCursor *cursor) const { vantro_cursor_close(cursor); }
    };

    void advance() {
        const int result =
            cursor_ ? vantro_cursor_next(cursor_.get(), &entry_.node, &entry_.metadata) : 0;
        if (result < 0) {
            failure_ = Failure::last();
        }
        if (result != 1) {
            entry_ = {};
        }
    }

    std::unique_ptr<VantroCursor, Close> cursor_;
    DescribedNode entry_{};
    bool begun_ = false;
    std::optional<Failure> failure_;
};

} // namespace vantro

#endif
