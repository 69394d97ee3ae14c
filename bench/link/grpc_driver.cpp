// A driver process as a supervisor with a gRPC server has it: it connects, says its name and process number,
// and sends back each FID that comes. usage: bench_grpc_driver ADDRESS NAME

#include <grpcpp/grpcpp.h>
#include <unistd.h>

#include <string>

#include "panel.grpc.pb.h"

int main(int argc, char** argv) {
    if (argc != 3)
        return 2;
    const auto pPanel =
        bench::Panel::NewStub(grpc::CreateChannel(argv[1], grpc::InsecureChannelCredentials()));
    grpc::ClientContext context;
    const auto pStream = pPanel->Attach(&context);
    bench::Fid fid;
    fid.set_to(argv[2]);
    fid.set_function(std::to_string(getpid()));
    // The end of the stream ends the process.
    while (pStream->Write(fid) && pStream->Read(&fid)) {
    }
    return 0;
}
