// The bench's own service, which answers at once, and its clients.
#ifndef VANTRO_BENCH_OWN_SERVICE_H
#define VANTRO_BENCH_OWN_SERVICE_H

#include <cstdint>
#include <memory>
#include <string>

#include <vantro/messaging.h>

#include "bench/process.h"

namespace vantro::bench {

inline constexpr uint32_t most_reply_bytes = 1024 * 1024;

struct CloseClient {
    void operator()(MsgClient *client) const { msgclient_close(client); }
};
using Client = std::unique_ptr<MsgClient, CloseClient>;

// A server in a process of its own.
class Server {
  public:
    explicit Server(int threads, const std::string &instance = "default")
        : Server(threads, instance, looking_wanted) {}
    // @param looks whether it looks for messages before it sleeps.
    Server(int threads, const std::string &instance, bool looks);

    // Whether servers and clients look by default; false with --block.
    static inline bool looking_wanted = true;

  private:
    Child child_;
};

// Fails the run if there is no such server.
Client connect(const char *instance = "default");

// One exchange; fails the run if it does.
void exchange(MsgClient *client, void *reply, uint32_t reply_bytes);
void exchange_small(MsgClient *client);

// An exchange for which the server computes 5 ms.
void exchange_long(MsgClient *client);

} // namespace vantro::bench

#endif
