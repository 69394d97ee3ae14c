#pragma once

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "CallPeer.h"
#include "HostProgram.h"
#include "HttpConnection.h"

/// This system: mfctl, or a connection to the control socket of the host program, sends a FID to a probe
/// driver. A driver process has the FID when the answer comes; one in the host's process has answered it.
class HostCallPeer : public CallPeer {
public:
    HostCallPeer(const std::filesystem::path& directory, bool isInHost);

    std::vector<std::string> program() const override;
    bool isAnswer(const std::string& printed) const override;
    void open() override {}
    void ask() override;

    static std::unique_ptr<CallPeer> makeToProcess(const std::filesystem::path& directory);
    static std::unique_ptr<CallPeer> makeInHost(const std::filesystem::path& directory);

private:
    const std::string m_fid;
    const std::string m_stage;
    HostProgram m_host;
    HttpConnection m_connection;
    unsigned int m_asked = 0;
};
