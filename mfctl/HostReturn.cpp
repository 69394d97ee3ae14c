#include "HostReturn.h"

#include <chrono>
#include <thread>

#include "ControlError.h"

namespace {
constexpr std::chrono::milliseconds s_step{500};
}

ApiClient::Reply HostReturn::ask(const std::string& target) {
    m_isAnother = false;
    for (;;) {
        try {
            ApiClient::Reply reply = m_client.get(target);
            if (m_client.connections() == m_connections)
                return reply;
            // A new connection may lead to another host.
            const std::string instance = m_client.get("").view().text("instance");
            m_connections = m_client.connections();
            m_isAnother = !m_instance.empty() && instance != m_instance;
            if (m_isAnother)
                m_screen.complain("the host at " + m_client.socket() + " was started anew");
            m_instance = instance;
            return reply;
        } catch (const ControlError& error) {
            const bool wasThere = m_connections > 0;
            const bool mayReturn = error.exit() == EExit::NoHost || error.exit() == EExit::NotFinished;
            if (!wasThere || !mayReturn)
                throw;
            awaitHost(error.what());
        }
    }
}

void HostReturn::awaitHost(const std::string& reason) {
    m_screen.complain(reason + "; waiting for it");
    for (;; std::this_thread::sleep_for(s_step)) {
        try {
            m_client.get("");
            m_screen.complain("the host at " + m_client.socket() + " answers again");
            return;
        } catch (const ControlError&) {
            // Said once.
        }
    }
}
