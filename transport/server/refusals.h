// Logs processes that may not open a service, and the missing rights.
//
// At most one line a minute for each user; the next line states the number of refusals in between.
#ifndef VANTRO_TRANSPORT_SERVER_REFUSALS_H
#define VANTRO_TRANSPORT_SERVER_REFUSALS_H

#include <cstddef>
#include <cstdint>

#include <vantro/platform/message.h>

namespace vantro::transport {

// A line about a refusal. It is composed with the server lock held and logged without it.
class Refusal {
  public:
    // Counts the refusal and determines whether a line is due. Does not throw.
    Refusal(const ipc_credentials &client, const char *service_name) noexcept;

    bool due() const { return due_; }
    // Appends a missing right.
    void add(const char *format, ...) __attribute__((format(printf, 2, 3)));
    // Does nothing unless the line is due.
    void log() const;

  private:
    ipc_credentials client_;
    const char *service_name_;
    bool due_ = false;
    int64_t unsaid_ = 0; // refusals of that user since the last line
    char missing_[1024] = "";
    size_t length_ = 0;
};

// The name that the process gives itself, without characters that would break a line of the log.
void name_of_process(int32_t pid, char (&name)[32]);

} // namespace vantro::transport

#endif
