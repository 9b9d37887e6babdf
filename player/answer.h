// Answers that hold records or values: a few words, then bytes whose length the service chooses.
//
// Each of these exchanges is made with the handle's overflow lock held. The service holds an answer
// that is longer than the offered area. All held answers of a handle have the same tag, and a fetch
// gets the newest of them.
#ifndef VANTRO_PLAYER_ANSWER_H
#define VANTRO_PLAYER_ANSWER_H

#include <sys/uio.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <initializer_list>
#include <memory>

#include "player/failure.h"
#include "player/requests.h"
#include "records/unpack.h"

namespace vantro::player {

struct FreeBlock {
    void operator()(void *block) const { std::free(block); }
};

using Block = std::unique_ptr<unsigned char, FreeBlock>;

// Whether an answer has a number of records before the area.
enum class Counted { no, yes };

class Answer {
  public:
    explicit Answer(Counted counted, unsigned char *area = nullptr, size_t area_size = 0)
        : count_bytes_(counted == Counted::yes ? sizeof count_ : 0), area_(area),
          area_size_(area_size) {}

    // One exchange. Returns the message client's result.
    int ask(const VantroHandle *handle, std::initializer_list<iovec> request)
        REQUIRES(handle->overflow_lock);

    // Whether the service carried out the request, and the answer's words are complete. Logs
    // `failure` if not.
    bool granted(const char *failure) const;

    // Valid only if granted() returned true.
    int32_t count() const { return count_; }
    const unsigned char *bytes() const { return area_; }
    size_t byte_count() const;

  protected:
    int fetch(const VantroHandle *handle) REQUIRES(handle->overflow_lock);
    void set_area(unsigned char *area, size_t size) {
        area_ = area;
        area_size_ = size;
    }
    size_t area_size() const { return area_size_; }
    // Bytes of the whole answer: see putgetv().
    uint32_t length() const { return length_; }

  private:
    size_t word_bytes() const { return sizeof result_ + count_bytes_; }

    int32_t result_ = no_result;
    // Preset like the result word, for an answer that ends before its count.
    int32_t count_ = -1;
    size_t count_bytes_;
    unsigned char *area_;
    size_t area_size_;
    uint32_t length_ = 0;
};

// An answer of any length: the area first has VANTRO_REPLY_AREA bytes of the heap, and grows once
// to the length that the service announces. Unused memory of the area takes only address space, so
// a service that announces more than it sends costs almost nothing.
class LongAnswer : public Answer {
  public:
    using Answer::Answer;

    // Makes the area. Logs a failure.
    bool make_area();

    enum class Completion { complete, unanswered, no_memory, not_fetched };

    // Completes ask(), which returned `status`, under the same lock: fetches the answer if the
    // service holds it.
    Completion complete(const VantroHandle *handle, int status) REQUIRES(handle->overflow_lock);

    // Returns whether there is an answer. Logs a failure.
    static bool is_complete(Completion completion, int status);

  private:
    bool replace_area(size_t size);

    Block block_;
};

// Unpacks `count` records of a granted answer, which lie in these bytes. The caller's pointer
// receives them, or null if there is no memory. It is unchanged if the bytes cannot hold that many
// records.
template <class Record>
int unpack_bytes(const unsigned char *bytes, size_t size, int32_t count, Record **records) {
    const KeepErrno keep;
    Record *block = nullptr;
    const records::Unpacked result = records::unpack_records(bytes, size, count, block);
    if (result == records::Unpacked::done || result == records::Unpacked::no_memory) {
        *records = block;
    }
    if (result == records::Unpacked::no_memory) {
        note_failure(VANTRO_FAILURE_NO_MEMORY, ENOMEM);
    } else if (result != records::Unpacked::done) {
        note_failure(VANTRO_FAILURE_MALFORMED, EPROTO);
    }
    return result == records::Unpacked::done ? 0 : -1;
}

template <class Record>
int unpack_answer(const Answer &answer, int32_t count, Record **records) {
    return unpack_bytes(answer.bytes(), answer.byte_count(), count, records);
}

} // namespace vantro::player

#endif
