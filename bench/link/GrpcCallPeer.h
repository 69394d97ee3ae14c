#pragma once

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "CallPeer.h"
#include "ChildProcess.h"

class GrpcCall;

/// A small gRPC client, or a channel, calls a server over a unix socket.
class GrpcCallPeer : public CallPeer {
public:
    explicit GrpcCallPeer(const std::filesystem::path& directory);
    ~GrpcCallPeer() override;

    std::vector<std::string> program() const override;
    bool isAnswer(const std::string& printed) const override;
    void open() override;
    void ask() override;

    static std::unique_ptr<CallPeer> make(const std::filesystem::path& directory);

private:
    const std::string m_address;
    const ChildProcess m_server;
    std::unique_ptr<GrpcCall> m_pChannel;
};
