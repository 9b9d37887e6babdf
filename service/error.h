// Errors inside the service.
//
// An error is a code, a text and an origin. The catalogue's own code throws it, since many calls
// lie between the catcher and a failed read of a row or write of a cover. All other code returns
// it: as std::optional<Error>, which is empty on success, or as Result<Value>.
//
// Lack of memory stays std::bad_alloc until error_of() turns it into an error. Refusing a request,
// for example for an index out of range, is not an error but an answer: such functions return the
// result word.
#ifndef VANTRO_SERVICE_ERROR_H
#define VANTRO_SERVICE_ERROR_H

#include <cstdint>
#include <exception>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>

namespace vantro::service {

class Error final : public std::exception {
  public:
    enum class Origin {
        music,     // a directory of music, or a file below it
        catalogue, // the catalogue's file
        state,     // the state directory, covers included
        library,   // ICU or mpv
        system,    // the rest of the system: memory, threads, names, objects
    };

    // The meaning of a code. Codes that need no special handling are `other`.
    enum class Kind { damage, gone, memory, descriptors, moment, read, full, other };

    // The system's text for the code. Needs no memory.
    Error(Origin origin, int code) noexcept : origin_(origin), code_(code) {}
    Error(Origin origin, int code, std::string text)
        : origin_(origin), code_(code), text_(std::move(text)) {}
    // "what: the system's text for the code".
    static Error failed(Origin origin, int code, std::string_view what);
    // No call failed, but the data are malformed or unexpected.
    static Error damage(Origin origin, std::string text) { return {origin, 0, std::move(text)}; }

    Origin origin() const { return origin_; }
    // An error number of <errno.h>; 0 for damage.
    int code() const { return code_; }
    Kind kind() const;

    // The text without the additions of the conversions below. Lives as long as the error.
    std::string_view text() const { return what(); }
    const char *what() const noexcept override { return text_.empty() ? reason() : text_.c_str(); }
    // Only the system's text for the code.
    const char *reason() const noexcept;

    // The file, for an error of the catalogue.
    const std::string &file() const { return file_; }
    void set_file(std::string file) { file_ = std::move(file); }

    // A shortage in the service itself, not a failure of a disk.
    bool is_want() const;
    // The cause may disappear soon: a shortage, or a failed read. Such an error does not mean that
    // the data are bad, so the read is tried again, and the catalogue does not remember the error.
    bool is_passing() const { return is_want() || kind() == Kind::read; }
    bool is_damage() const { return kind() == Kind::damage; }
    // Damage of the catalogue's file, which is then checked; not damage of music or of a cover.
    bool is_damage_of_catalogue() const { return origin_ == Origin::catalogue && is_damage(); }

  private:
    Origin origin_;
    int code_;
    std::string text_; // empty: use the system's text for the code
    std::string file_;
};

// A value, or the error for which there is none.
template <typename Value>
class Result {
  public:
    Result(Value value) : either_(std::move(value)) {}
    Result(Error error) : either_(std::move(error)) {}

    explicit operator bool() const { return either_.index() == 0; }
    Value &operator*() { return std::get<0>(either_); }
    const Value &operator*() const { return std::get<0>(either_); }
    const Error &error() const { return std::get<1>(either_); }

  private:
    std::variant<Value, Error> either_;
};

// The error for a thrown exception. Exceptions of the standard library other than std::system_error
// mean lack of memory. If there is no memory for the text, the error has the system's text.
Error error_of(const std::exception &thrown) noexcept;

// The ways in which an error leaves the service, with one function for each.

// For clients, the result word of an answer: ENOMEM, or EIO for every other failure. A failure of
// the catalogue's file always gives EIO: a client cannot change the cause.
int32_t result_word(const Error &error);
// For clients too: the VANTRO_ERROR_* of a track that cannot be played.
int32_t track_error(const Error &error);
// For the log, without a full stop.
std::string log_text(const Error &error);
// For the terminal, as the last words of a program that ends.
std::string last_words(const Error &error);

} // namespace vantro::service

#endif
