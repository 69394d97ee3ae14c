#include "HostCallPeer.h"

#include <stdexcept>

#include "Files.h"

HostCallPeer::HostCallPeer(const std::filesystem::path& directory, bool isInHost)
    : m_fid(HostProgram::driverID(isInHost ? 1 : 0) + ".HELLO"),
      m_stage(isInHost ? "delivered" : "taken"),
      m_host(
          {.directory = directory, .drivers = 2, .driversInHost = 1, .options = {"--start-wait=attached"}}),
      m_connection(m_host.controlSocket()) {
    m_host.start();
    m_host.waitUntilStarted();
}

std::vector<std::string> HostCallPeer::program() const {
    return {builtFile("bin/mfctl"), "--host", m_host.controlSocket(), "send", m_fid, "--wait=" + m_stage};
}

bool HostCallPeer::isAnswer(const std::string& printed) const {
    return printed.starts_with(m_fid + " " + m_stage);
}

void HostCallPeer::ask() {
    // As mfctl does it: with a request ID, so that the host remembers the answer.
    const std::string body = R"({"fid":")" + m_fid + R"(","wait":")" + m_stage + R"(","request":"bench-)" +
                             std::to_string(++m_asked) + R"("})";
    const HttpConnection::Answer answer = m_connection.exchange(
        "POST", "/api/v1/fid", body, HttpConnection::Clock::now() + std::chrono::seconds(10));
    if (answer.status != 200 || answer.body.find(R"("stage":")" + m_stage + '"') == std::string::npos)
        throw std::runtime_error("the control socket has answered \"" + answer.reason + answer.body + "\"");
}

std::unique_ptr<CallPeer> HostCallPeer::makeToProcess(const std::filesystem::path& directory) {
    return std::make_unique<HostCallPeer>(directory, false);
}

std::unique_ptr<CallPeer> HostCallPeer::makeInHost(const std::filesystem::path& directory) {
    return std::make_unique<HostCallPeer>(directory, true);
}
