// Cap'n Proto's RPC over a Unix socket; each client thread has its own connection, as an event loop
// belongs to one thread.
#include <capnp/ez-rpc.h>

#include "bench/peers/peer.h"
#include "exchange.capnp.h"

namespace vantro::bench::peers {

namespace {

class Answering final : public Exchange::Server {
  protected:
    kj::Promise<void> call(CallContext context) override {
        context.getResults().initAnswer(answer_bytes);
        return kj::READY_NOW;
    }
};

// The connection is made by the first exchange, in the thread that does all of them.
class CapnpCaller : public Caller {
  public:
    explicit CapnpCaller(const std::string &directory) : address_("unix:" + directory + "/capnp") {}

    void exchange() override {
        struct Connection {
            explicit Connection(const std::string &address)
                : client(address.c_str()), exchange(client.getMain<Exchange>()) {}
            capnp::EzRpcClient client;
            Exchange::Client exchange;
        };
        thread_local Connection connection(address_);
        auto request = connection.exchange.callRequest();
        request.initRequest(request_bytes);
        const auto answer = request.send().wait(connection.client.getWaitScope());
        check(answer.getAnswer().size() == answer_bytes, "an exchange failed");
    }

  private:
    std::string address_;
};

} // namespace

void serve(const std::string &directory) {
    capnp::EzRpcServer server(kj::heap<Answering>(), "unix:" + directory + "/capnp");
    server.getPort().wait(server.getWaitScope());
    ready();
    kj::NEVER_DONE.wait(server.getWaitScope());
}

std::unique_ptr<Caller> connect(const std::string &directory) {
    return std::make_unique<CapnpCaller>(directory);
}

} // namespace vantro::bench::peers
