#include "player/answer.h"

#include "player/failure.h"
#include "player/log.h"

namespace vantro::player {

namespace {

// Answers up to this length, some twenty thousand nodes, are frequent.
constexpr size_t frequent_answer_max = 1024 * 1024;

// Records take up to three times the bytes of the answer. The C library's allocator keeps free
// memory of up to twice the largest block that was ever freed, and returns the rest to the kernel.
// So a block of three times the answer's length makes the next list use the memory of the last one.
// Without it, getting the pages from the kernel again would take as long as the rest of the call.
// Pages that no answer reaches are never touched.
unsigned char *make_block(size_t size) {
    const bool is_frequent = size > VANTRO_REPLY_AREA && size <= frequent_answer_max;
    return static_cast<unsigned char *>(std::malloc(is_frequent ? 3 * size : size));
}

} // namespace

int Answer::ask(const VantroHandle *handle, std::initializer_list<iovec> request) {
    return putgetv(handle, request,
                   {part(result_), part(&count_, count_bytes_), part(area_, area_size_)}, length_);
}

int Answer::fetch(const VantroHandle *handle) {
    result_ = no_result;
    count_ = -1;
    return getv(handle, {part(result_), part(&count_, count_bytes_), part(area_, area_size_)},
                length_);
}

bool Answer::granted(const char *failure) const {
    if (result_ == 0 && length_ >= word_bytes()) {
        return true;
    }
    note_result(result_);
    msglog(LOG_SEVERITY_INFO, "%s", failure);
    return false;
}

size_t Answer::byte_count() const {
    return length_ - word_bytes();
}

bool LongAnswer::make_area() {
    if (replace_area(VANTRO_REPLY_AREA)) {
        return true;
    }
    note_failure(VANTRO_FAILURE_NO_MEMORY, ENOMEM);
    msglog(LOG_SEVERITY_INFO, "Cannot allocate memory");
    return false;
}

LongAnswer::Completion LongAnswer::complete(const VantroHandle *handle, int status) {
    if (status != MSG_STATUS_QUEUED) {
        return status == 0 ? Completion::complete : Completion::unanswered;
    }
    // length() includes the words before the area, so the area is a little larger than needed.
    if (length() > area_size() && !replace_area(length())) {
        return Completion::no_memory;
    }
    return fetch(handle) == 0 ? Completion::complete : Completion::not_fetched;
}

bool LongAnswer::is_complete(Completion completion, int status) {
    switch (completion) {
    case Completion::complete:
        return true;
    case Completion::unanswered:
        return answered(status);
    case Completion::no_memory:
        note_failure(VANTRO_FAILURE_NO_MEMORY, ENOMEM);
        msglog(LOG_SEVERITY_WARNING, "Cannot allocate memory");
        break;
    case Completion::not_fetched:
        msglog(LOG_SEVERITY_INFO, "msgclient_getv() failed");
        break;
    }
    return false;
}

// realloc() would copy the old area.
bool LongAnswer::replace_area(size_t size) {
    const KeepErrno keep;
    if (size > VANTRO_REPLY_MAX) {
        return false;
    }
    block_.reset();
    block_.reset(make_block(size));
    set_area(block_.get(), block_ ? size : 0);
    return block_ != nullptr;
}

} // namespace vantro::player
