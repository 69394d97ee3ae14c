#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "UniqueFd.h"
#include "Wakeup.h"

/// A host's control socket in the test's own process: gives the answers that the test has put there, and
/// records what was asked. Its thread ends with the object; the socket's file stays, as that of a killed
/// host.
class CannedHost {
public:
    struct Request {
        std::string method;
        std::string target;
        std::string body;
    };
    struct Answer {
        unsigned status = 200;
        std::string body = "{}";
    };

    /// Answers GET /api/v1 from the beginning, with this instance and workplace.
    explicit CannedHost(std::string path, const std::string& instance = "i1",
                        const std::string& workplace = "/etc/mf/demo.xml");
    ~CannedHost();
    CannedHost(const CannedHost&) = delete;
    CannedHost& operator=(const CannedHost&) = delete;

    const std::string& path() const { return m_path; }

    /// what: "GET /drivers", below /api/v1 and with its query. Given anew, it holds from then on. What has no
    /// answer gets 404.
    void answer(const std::string& what, const std::string& body, unsigned status = 200);
    /// Reads the next so many requests and ends their connections without an answer.
    void breakOff(unsigned requests);
    /// Takes requests and never answers them.
    void fallSilent();

    std::vector<Request> requests() const;
    /// Those of one kind.
    std::vector<Request> requests(const std::string& what) const;
    /// The body of the last one of that kind; empty when there was none.
    std::string lastBody(const std::string& what) const;

private:
    struct Connection {
        base::UniqueFd socket;
        std::string bytes;
    };
    void run();
    bool serve(Connection& connection);
    bool reply(int socket, const Request& request);

    const std::string m_path;
    const base::Wakeup m_end;
    base::UniqueFd m_listener;
    mutable std::mutex m_mutex;
    std::map<std::string, Answer> m_answers;
    std::vector<Request> m_requests;
    unsigned m_toBreak = 0;
    bool m_isSilent = false;
    std::thread m_thread;
};
