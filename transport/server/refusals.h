// Logs who may not open a service, and what is missing.
//
// At most one line a minute for each user; the next line says how many refusals there were in
// between.
#ifndef VANTRO_TRANSPORT_SERVER_REFUSALS_H
#define VANTRO_TRANSPORT_SERVER_REFUSALS_H

#include <cstddef>
#include <cstdint>
#include <optional>

#include <vantro/messaging.h>
#include <vantro/platform/message.h>
#include <vantro/platform/path.h>

namespace vantro::transport {

// The attribute record of a service in path mode, with the service's name. The record comes first:
// it is what the path framework knows.
struct ServiceAttributes {
    path_attr attr;
    const char *service_name; // null if refusals are not logged
};

// A line about a refusal. It is composed with the server lock held and logged without it.
class Refusal {
  public:
    // Counts the refusal; `due` if a line is to be logged. Throws nothing.
    Refusal(const ipc_credentials &client, const char *service_name) noexcept;

    bool due() const { return due_; }
    // What is missing; more is appended.
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

// path_check_access() with the record's lock.
// @param service_name for the line in the log; null for none.
// @param refusal      that line, where the client is refused.
// @return 0, or EACCES.
int check_path_access(path_context *context, path_attr *attr, uint32_t mask,
                      const ipc_credentials &client, const char *service_name,
                      std::optional<Refusal> &refusal);

// The name that the process gives itself, without characters that would break a line of the log.
void name_of_process(int32_t pid, char (&name)[32]);

} // namespace vantro::transport

#endif
