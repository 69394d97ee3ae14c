#pragma once

#include <memory>
#include <string>

#include "StartPeer.h"

/// A supervisor that starts the driver processes and starts again at once what has ended; each connects to
/// its gRPC server and gets its calls there. Starts threads: to be used in a process of its own.
class GrpcStartPeer : public StartPeer {
public:
    explicit GrpcStartPeer(const std::string& directory);
    ~GrpcStartPeer() override;

    double start(int drivers) override;
    double restart(int driver) override;

private:
    class Supervisor;

    const std::string m_address;
    std::unique_ptr<Supervisor> m_pSupervisor;
};
