#pragma once

#include <grpcpp/grpcpp.h>

#include <chrono>
#include <memory>
#include <stdexcept>
#include <string>

#include "panel.grpc.pb.h"

/// Calls of a server over one channel, which connects with the first one. Used by one thread.
class GrpcCall {
public:
    explicit GrpcCall(const std::string& address)
        : m_pPanel(bench::Panel::NewStub(grpc::CreateChannel(address, grpc::InsecureChannelCredentials()))) {}

    /// The server may only just be starting. Throws when no answer comes, or another FID than was sent.
    void ask(const std::string& driver, const std::string& function) {
        grpc::ClientContext context;
        context.set_wait_for_ready(true);
        context.set_deadline(std::chrono::system_clock::now() + std::chrono::seconds(10));
        bench::Fid sent;
        sent.set_to(driver);
        sent.set_function(function);
        bench::Fid back;
        const grpc::Status status = m_pPanel->Ask(&context, sent, &back);
        if (!status.ok() || back.to() != driver || back.function() != function)
            throw std::runtime_error("the call has failed: " + status.error_message());
    }

private:
    decltype(bench::Panel::NewStub(nullptr)) m_pPanel;
};
