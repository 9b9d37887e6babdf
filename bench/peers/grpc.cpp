// gRPC: a synchronous server and stubs over a Unix socket; one channel serves all client threads.
#include <grpcpp/grpcpp.h>

#include "bench/peers/peer.h"
#include "exchange.grpc.pb.h"

namespace vantro::bench::peers {

namespace {

std::string address_in(const std::string &directory) {
    return "unix:" + directory + "/grpc";
}

class Answering final : public wire::Exchange::Service {
    grpc::Status Call(grpc::ServerContext *, const wire::Request *, wire::Answer *answer) override {
        answer->set_payload(std::string(answer_bytes, '\0'));
        return grpc::Status::OK;
    }
};

class GrpcCaller : public Caller {
  public:
    explicit GrpcCaller(const std::string &directory) {
        static const std::shared_ptr<grpc::Channel> channel =
            grpc::CreateChannel(address_in(directory), grpc::InsecureChannelCredentials());
        stub_ = wire::Exchange::NewStub(channel);
    }

    void exchange() override {
        grpc::ClientContext context;
        wire::Request request;
        wire::Answer answer;
        request.set_payload(std::string(request_bytes, '\0'));
        check(stub_->Call(&context, request, &answer).ok() &&
                  answer.payload().size() == answer_bytes,
              "an exchange failed");
    }

  private:
    std::unique_ptr<wire::Exchange::Stub> stub_;
};

} // namespace

void serve(const std::string &directory) {
    Answering service;
    grpc::ServerBuilder builder;
    builder.AddListeningPort(address_in(directory), grpc::InsecureServerCredentials());
    builder.RegisterService(&service);
    const std::unique_ptr<grpc::Server> server = builder.BuildAndStart();
    check(server.get(), "the server cannot be started");
    ready();
    server->Wait();
}

std::unique_ptr<Caller> connect(const std::string &directory) {
    return std::make_unique<GrpcCaller>(directory);
}

} // namespace vantro::bench::peers
