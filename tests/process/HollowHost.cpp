#include "HollowHost.h"

#include <unistd.h>

#include <array>
#include <utility>

#include "sal/Path.h"
#include "sal/Process.h"

namespace {

/// Keeps the process IDs that libsal tells of, and leaves the reaping to the test.
class Observer : public sal::Process::Observer {
public:
    void processStarted(const sal::Process::Started& process) override {
        pid = process.pid;
        close(process.pidFd);
    }
    int pid = 0;
};

}  // namespace

HollowHost::HollowHost(std::string driverID) : m_driverID(std::move(driverID)) {}

bool HollowHost::makeQueues() {
    m_pInput = std::make_unique<sal::MessageQueue>();
    m_pOutput = std::make_unique<sal::MessageQueue>();
    return m_pInput->create(m_driverID + "_INQ", 256, 1024, 0) &&
           m_pOutput->create(m_driverID + "_OUTQ", 16384, 1024, 0);
}

void HollowHost::closeQueues() {
    m_pInput.reset();
    m_pOutput.reset();
}

int HollowHost::startWrapper(const std::string& modulePath, const std::string& program) {
    sal::Path executable = sal::Path::getExeBasePath();
    executable.expand(program);
    Observer observer;
    sal::Process::setObserver(&observer);
    const bool started =
        sal::Process::createProcess(m_driverID + " MFD Console", executable, {modulePath, m_driverID});
    sal::Process::setObserver(nullptr);
    return started ? observer.pid : 0;
}

bool HollowHost::send(const std::string& frame) {
    return m_pInput->send(reinterpret_cast<const unsigned char*>(frame.data()),
                          static_cast<int>(frame.size()), -1);
}

std::string HollowHost::receive(int timeout) {
    std::array<unsigned char, 1024> buffer;
    const int length = m_pOutput->receive(buffer.data(), static_cast<int>(buffer.size()), timeout);
    if (length < 0)
        return "nothing";
    return {buffer.begin(), buffer.begin() + length};
}
