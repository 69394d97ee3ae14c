// One call of a gRPC server, as a program that a script starts makes it: sends a FID and prints what comes
// back. It knows the message's type; grpcurl would ask the server for it first. usage: bench_grpc_call
// ADDRESS DRIVER FUNCTION

#include <cstdio>
#include <exception>

#include "GrpcCall.h"

int main(int argc, char** argv) {
    if (argc != 4)
        return 2;
    try {
        GrpcCall(argv[1]).ask(argv[2], argv[3]);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "bench_grpc_call: %s\n", error.what());
        return 1;
    }
    std::printf("%s.%s\n", argv[2], argv[3]);
    return 0;
}
