#pragma once

#include <unistd.h>
#include <cstdlib>
#include <memory>
#include <stdexcept>
#include <string>

#include "ApiServer.h"
#include "ControlSocket.h"
#include "sal/LogManager.h"

/// A control socket in this process, whose handler answers at once: what the socket alone costs.
class OwnServer {
public:
    explicit OwnServer(std::size_t bytes) {
        std::string pattern = "/tmp/bench-api-XXXXXX";
        if (!::mkdtemp(pattern.data()))
            throw std::runtime_error("no directory for the control socket");
        m_directory = pattern;
        if (const std::string error = m_socket.open(m_directory + "/socket"); !error.empty())
            throw std::runtime_error(error);
        ApiServer::Settings settings;
        settings.roles.starter = ::geteuid();
        m_pServer = std::make_unique<ApiServer>(
            settings, [body = std::string(bytes, 'x')](const ApiCall&, const auto& answer) {
                ApiAnswer given;
                given.body = body;
                answer(given);
            });
        m_pServer->start(m_socket.takeListener());
    }
    ~OwnServer() {
        m_pServer.reset();
        ::unlink((m_directory + "/socket").c_str());
        ::unlink((m_directory + "/socket.lock").c_str());
        ::rmdir(m_directory.c_str());
    }
    OwnServer(const OwnServer&) = delete;
    OwnServer& operator=(const OwnServer&) = delete;

    const std::string& path() const { return m_socket.path(); }

private:
    sal::LogManager m_log{sal::LogManager::Settings{}};
    std::string m_directory;
    ControlSocket m_socket;
    std::unique_ptr<ApiServer> m_pServer;
};
