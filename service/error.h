// Errors inside the service, from where they are found to where they are reported.
//
// An error is a code, a text and an origin. The catalogue's own code throws it, since a long way
// leads back from a failed read of a row or a write of a cover. All other code returns it: as
// std::optional<Error>, which is empty where nothing went wrong, or as Result<Value>.
//
// Want of memory stays std::bad_alloc until error_of() makes an error of it. A refusal of a
// request, such as an index out of range, is no error but an answer: such functions return the
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
        music,     // a directory of music, or what lies below it
        catalogue, // the catalogue's file
        state,     // the state directory, covers included
        library,   // ICU or mpv
        system,    // the rest of the host: memory, threads, names, objects
    };

    // The meaning of a code. Codes that need no special handling are `other`.
    enum class Kind { damage, gone, memory, descriptors, moment, read, full, other };

    // The host's text for the code. Needs no memory.
    Error(Origin origin, int code) noexcept : origin_(origin), code_(code) {}
    Error(Origin origin, int code, std::string text)
        : origin_(origin), code_(code), text_(std::move(text)) {}
    // "what: the host's text for the code".
    static Error failed(Origin origin, int code, std::string_view what);
    // No call failed, but what was read is malformed, or not what it should be.
    static Error damage(Origin origin, std::string text) { return {origin, 0, std::move(text)}; }

    Origin origin() const { return origin_; }
    // A host's error number; 0 for damage.
    int code() const { return code_; }
    Kind kind() const;

    // The text without what the conversions below add to it. Lives as long as the error.
    std::string_view text() const { return what(); }
    const char *what() const noexcept override { return text_.empty() ? reason() : text_.c_str(); }
    // Only the host's text for the code.
    const char *reason() const noexcept;

    // The file of an error of the catalogue.
    const std::string &file() const { return file_; }
    void set_file(std::string file) { file_ = std::move(file); }

    // A shortage in the service itself, and no failure of a disk.
    bool is_want() const;
    // May be over soon: a shortage, or a read that failed. It says nothing about what was to be
    // read, so the read is tried again, and the catalogue does not remember the error.
    bool is_passing() const { return is_want() || kind() == Kind::read; }
    bool is_damage() const { return kind() == Kind::damage; }
    // Damage of the catalogue's file, which is then checked; not of music or of a cover.
    bool is_damage_of_catalogue() const { return origin_ == Origin::catalogue && is_damage(); }

  private:
    Origin origin_;
    int code_;
    std::string text_; // empty where the host's text for the code is all
    std::string file_;
};

// A value, or why there is none.
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

// The error that was thrown. Exceptions of the standard library other than std::system_error mean
// want of memory. If there is none for its text, the host's text takes that place.
Error error_of(const std::exception &thrown) noexcept;

// The places where an error leaves the service, each with one function.

// For clients, the result word of an answer: ENOMEM, or EIO for whatever else failed. The
// catalogue's file gives EIO, whatever the reason: a client can do nothing about it.
int32_t result_word(const Error &error);
// For clients too: the VANTRO_ERROR_* of a track that cannot be played.
int32_t track_error(const Error &error);
// For the log, without a full stop.
std::string log_text(const Error &error);
// For the terminal, as the last words of a program that ends.
std::string last_words(const Error &error);

} // namespace vantro::service

#endif
