#include "GrpcStartPeer.h"

#include <grpcpp/grpcpp.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <condition_variable>
#include <cstdlib>
#include <map>
#include <mutex>
#include <stdexcept>
#include <system_error>
#include <thread>

#include "Files.h"
#include "panel.grpc.pb.h"

/// Its server's threads note who has answered; a thread of its own collects and starts processes.
class GrpcStartPeer::Supervisor : public bench::Panel::Service {
public:
    explicit Supervisor(const std::string& address) : m_address(address) {
        grpc::ServerBuilder builder;
        builder.AddListeningPort(address, grpc::InsecureServerCredentials());
        builder.RegisterService(this);
        m_pServer = builder.BuildAndStart();
        if (!m_pServer)
            throw std::runtime_error("the server does not start");
    }

    ~Supervisor() override {
        {
            const std::lock_guard lock(m_mutex);
            m_isEnding = true;
            for (const auto& [process, driver] : m_running)
                ::kill(process, SIGKILL);
        }
        if (m_thread.joinable())
            m_thread.join();
        m_pServer->Shutdown(std::chrono::system_clock::now() + std::chrono::seconds(1));
    }

    void start(int drivers) {
        const std::lock_guard lock(m_mutex);
        for (int driver = 0; driver < drivers; ++driver)
            spawn(driver);
        m_thread = std::thread([this] { collect(); });
    }

    /// Until each of the first so many has answered.
    void waitForAll(int drivers) {
        wait([this, drivers] { return m_answered.size() >= static_cast<std::size_t>(drivers); });
    }

    void killAndWait(int driver) {
        {
            const std::lock_guard lock(m_mutex);
            ::kill(m_answered.at(driver), SIGKILL);
            m_answered.erase(driver);
        }
        wait([this, driver] { return m_answered.contains(driver); });
    }

    grpc::Status Attach(grpc::ServerContext*,
                        grpc::ServerReaderWriter<bench::Fid, bench::Fid>* pStream) override {
        bench::Fid fid;
        if (!pStream->Read(&fid))
            return grpc::Status::OK;
        const int driver = std::atoi(fid.to().c_str());
        const pid_t process = std::atoi(fid.function().c_str());
        // The first message, and its answer.
        if (!pStream->Write(fid) || !pStream->Read(&fid))
            return grpc::Status::OK;
        {
            const std::lock_guard lock(m_mutex);
            m_answered[driver] = process;
        }
        m_changed.notify_all();
        while (pStream->Read(&fid)) {
        }
        return grpc::Status::OK;
    }

private:
    template <class Condition>
    void wait(Condition condition) {
        std::unique_lock lock(m_mutex);
        if (!m_changed.wait_for(lock, s_patience, condition))
            throw std::runtime_error("not all processes answer");
    }

    void spawn(int driver) {
        const std::string program = builtFile("bin/bench_grpc_driver");
        std::string name = std::to_string(driver);
        char* const arguments[] = {const_cast<char*>(program.c_str()), const_cast<char*>(m_address.c_str()),
                                   name.data(), nullptr};
        pid_t process = 0;
        const int error = posix_spawn(&process, program.c_str(), nullptr, nullptr, arguments, environ);
        if (error != 0)
            throw std::system_error(error, std::generic_category(), program);
        m_running[process] = driver;
    }

    void collect() {
        for (;;) {
            siginfo_t info{};
            if (waitid(P_ALL, 0, &info, WEXITED) != 0)
                return;
            const std::lock_guard lock(m_mutex);
            const auto found = m_running.extract(info.si_pid);
            if (!found.empty() && !m_isEnding)
                spawn(found.mapped());
            if (m_running.empty())
                return;
        }
    }

    const std::string m_address;
    std::unique_ptr<grpc::Server> m_pServer;
    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::map<pid_t, int> m_running;   ///< which driver each process is
    std::map<int, pid_t> m_answered;  ///< and which process has answered for each
    bool m_isEnding = false;
    std::thread m_thread;
};

GrpcStartPeer::GrpcStartPeer(const std::string& directory) : m_address("unix:" + directory + "/grpc") {}

GrpcStartPeer::~GrpcStartPeer() = default;

double GrpcStartPeer::start(int drivers) {
    const std::int64_t begin = UpdateSeries::now();
    m_pSupervisor = std::make_unique<Supervisor>(m_address);
    m_pSupervisor->start(drivers);
    m_pSupervisor->waitForAll(drivers);
    return millisecondsSince(begin);
}

double GrpcStartPeer::restart(int driver) {
    const std::int64_t begin = UpdateSeries::now();
    m_pSupervisor->killAndWait(driver);
    return millisecondsSince(begin);
}
