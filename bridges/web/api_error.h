// The error in the answer to a failed request.
#ifndef VANTRO_BRIDGES_WEB_API_ERROR_H
#define VANTRO_BRIDGES_WEB_API_ERROR_H

#include <stdexcept>
#include <string>
#include <utility>

namespace vantro::web {

class ApiError : public std::runtime_error {
  public:
    // @param status of HTTP.
    // @param code for programs: a word that never changes.
    // @param message for people.
    ApiError(int status, const char *code, const std::string &message)
        : std::runtime_error(message), status_(status), code_(code) {}

    int status() const { return status_; }
    const char *code() const { return code_; }

  private:
    int status_;
    const char *code_;
};

inline ApiError bad_request(const std::string &message) {
    return {400, "bad_request", message};
}

} // namespace vantro::web

#endif
