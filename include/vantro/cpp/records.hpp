/**
 * @file
 * Owners of the records that queries return, and lists that are fetched page by page.
 */
#ifndef VANTRO_CPP_RECORDS_HPP
#define VANTRO_CPP_RECORDS_HPP

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <iterator>
#include <memory>
#include <optional>
#include <span>
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

// A text that ends with a NUL. Ids and most terms need no allocation.
class Text {
  public:
    explicit Text(std::string_view text) {
        char *to = short_.data();
        if (text.size() >= short_.size()) {
            long_ = std::make_unique<char[]>(text.size() + 1);
            to = long_.get();
        }
        text.copy(to, text.size());
        to[text.size()] = '\0';
    }

    const char *get() const { return long_ ? long_.get() : short_.data(); }

  private:
    std::array<char, 64> short_{};
    std::unique_ptr<char[]> long_;
};

} // namespace detail

/** Records of one kind, owned. A range of them, and convertible to a span. */
template <typename Record>
class List {
  public:
    /** An empty list. */
    List() = default;
    /** Takes a block that a query returned. @param records, count the block, and its records. */
    List(Record *records, int count)
        : records_(records), count_(records && count > 0 ? static_cast<size_t>(count) : 0) {}
    ~List() { release(); }
    /** @param other the list whose records this one takes; empty afterwards. */
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
    /** @return all records, which stay the list's. */
    std::span<const Record> span() const { return {records_, count_}; }

  private:
    void release() { detail::free_records(records_, static_cast<int>(count_)); }

    Record *records_ = nullptr;
    size_t count_ = 0;
};

/** An entry of a list with what is known of it. Both belong to the list. */
struct DescribedNode {
    const MediaNode *node;    /**< The entry. */
    const Metadata *metadata; /**< What is known of it; its strings may all be NULL. */
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

/** What a player is doing: `media_node` and `metadata` may be NULL. */
using Status = std::unique_ptr<VantroStatus, detail::FreeStatus>;

/** What is known of a node; NULL if the service has nothing. */
using MetadataPtr = std::unique_ptr<Metadata, detail::FreeMetadata>;

/** A text of the catalogue; NULL if there is none. */
using Value = std::unique_ptr<char, detail::FreeBlock>;

/**
 * A list that is fetched page by page while it is walked. It is walked once; begin() fetches the
 * first page. A node of an earlier page is no more when the next page is fetched. If a page
 * cannot be fetched, or the list has changed meanwhile (Reason::changed), the walk ends, and
 * done() says why:
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
    /** @param cursor taken over; NULL where a call could not make one. */
    explicit Pages(VantroCursor *cursor) : cursor_(cursor) {
        if (!cursor) {
            failure_ = Failure::last();
        }
    }

    /** A place in the list; all places of one list are the same one. */
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
        /** @return as operator*. */
        const MediaNode *operator->() const
            requires(!described)
        {
            return pages_->entry_.node;
        }
        /** Goes to the next entry; blocks if a page is to be fetched. @return this iterator. */
        Iterator &operator++() {
            pages_->advance();
            return *this;
        }
        /** As the prefix form. */
        void operator++(int) { ++*this; }
        /** @return whether the walk has ended; done() of the list says why. */
        bool operator==(std::default_sentinel_t) const { return !pages_->entry_.node; }

      private:
        Pages *pages_;
    };

    /** Blocks for the first page. @return the place of the first entry. */
    Iterator begin() {
        if (!std::exchange(begun_, true)) {
            advance();
        }
        return Iterator(*this);
    }
    /** @return what the walk ends at. */
    std::default_sentinel_t end() const { return {}; }

    /** @return done, where every page that was asked for came; else why one did not. */
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
