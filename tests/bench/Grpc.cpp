#include "tests/bench/Grpc.h"

#include <utility>

#include "tests/bench/Measure.h"

// Neither the generated code nor gRPC's headers keep to the project's warnings.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wshadow"
#pragma GCC diagnostic ignored "-Wconversion"
#pragma GCC diagnostic ignored "-Wsign-conversion"
#pragma GCC diagnostic ignored "-Wold-style-cast"
#pragma GCC diagnostic ignored "-Woverloaded-virtual"
#pragma GCC diagnostic ignored "-Wunused-parameter"
#pragma GCC diagnostic ignored "-Wpedantic"
#include <grpcpp/grpcpp.h>

#include "kiosk.grpc.pb.h"
#pragma GCC diagnostic pop

namespace {

class Service final : public bench::Kiosk::Service {
 public:
  explicit Service(std::string reply) : _reply(std::move(reply)) {}
  grpc::Status Ask(grpc::ServerContext*, const bench::Text*, bench::Text* answer) override {
    answer->set_text(_reply);
    return grpc::Status::OK;
  }

 private:
  std::string _reply;
};

}  // namespace

void ServeGrpc(const std::string& path, const std::string& reply) {
  Service service(reply);
  grpc::ServerBuilder builder;
  builder.AddListeningPort("unix:" + path, grpc::InsecureServerCredentials());
  builder.RegisterService(&service);
  builder.BuildAndStart()->Wait();
  Fail("gRPC's server ended");
}

struct GrpcClient::Impl {
  std::unique_ptr<bench::Kiosk::Stub> stub;
  bench::Text request;
  std::string reply;
};

GrpcClient::GrpcClient(const std::string& path, std::string request, std::string reply)
    : _impl(std::make_unique<Impl>()) {
  // Without sharing, because channels to one address share their connection by default.
  grpc::ChannelArguments arguments;
  arguments.SetInt(GRPC_ARG_USE_LOCAL_SUBCHANNEL_POOL, 1);
  _impl->stub = bench::Kiosk::NewStub(
      grpc::CreateCustomChannel("unix:" + path, grpc::InsecureChannelCredentials(), arguments));
  _impl->request.set_text(std::move(request));
  _impl->reply = std::move(reply);
}

GrpcClient::~GrpcClient() = default;

void GrpcClient::ask() {
  grpc::ClientContext context;
  bench::Text answer;
  const grpc::Status status = _impl->stub->Ask(&context, _impl->request, &answer);
  if (!status.ok() || answer.text() != _impl->reply) Fail("gRPC: " + status.error_message());
}
