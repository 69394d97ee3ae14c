#include "GrpcCallPeer.h"

#include <grpcpp/grpcpp.h>

#include "Files.h"
#include "GrpcCall.h"
#include "Patience.h"

namespace {

class Server : public bench::Panel::Service {
public:
    grpc::Status Ask(grpc::ServerContext*, const bench::Fid* pFid, bench::Fid* pAnswer) override {
        *pAnswer = *pFid;
        return grpc::Status::OK;
    }
};

void serve(const std::string& address) {
    Server server;
    grpc::ServerBuilder builder;
    builder.AddListeningPort(address, grpc::InsecureServerCredentials());
    builder.RegisterService(&server);
    // Where it does not start, nobody gets an answer, and says so.
    if (const std::unique_ptr<grpc::Server> pServer = builder.BuildAndStart())
        pServer->Wait();
}

}  // namespace

GrpcCallPeer::GrpcCallPeer(const std::filesystem::path& directory)
    : m_address("unix:" + (directory / "grpc").string()), m_server([this] { serve(m_address); }) {
    waitUntil("the gRPC server's socket", [&] { return std::filesystem::exists(directory / "grpc"); });
}

GrpcCallPeer::~GrpcCallPeer() = default;

std::vector<std::string> GrpcCallPeer::program() const {
    return {builtFile("bin/bench_grpc_call"), m_address, "D00", "HELLO"};
}

bool GrpcCallPeer::isAnswer(const std::string& printed) const {
    return printed == "D00.HELLO\n";
}

void GrpcCallPeer::open() {
    m_pChannel = std::make_unique<GrpcCall>(m_address);
}

void GrpcCallPeer::ask() {
    m_pChannel->ask("D00", "HELLO");
}

std::unique_ptr<CallPeer> GrpcCallPeer::make(const std::filesystem::path& directory) {
    std::filesystem::create_directories(directory);
    return std::make_unique<GrpcCallPeer>(directory);
}
