#include "ProcessObserver.h"

#include <unistd.h>

#include <atomic>
#include <utility>

namespace sal {

namespace {

std::atomic<Process::Observer*> s_pProcessObserver{nullptr};

/// 0 for none. A plain number: a thread-local with a destructor would keep this library mapped.
thread_local int t_startedPid = 0;

}  // namespace

void ProcessObserver::set(Process::Observer* pObserver) {
    s_pProcessObserver = pObserver;
}

bool ProcessObserver::tell(const Process::Started& process) {
    Process::Observer* pObserver = s_pProcessObserver.load();
    if (!pObserver)
        return false;
    pObserver->processStarted(process);
    t_startedPid = process.pid;
    return true;
}

void ProcessObserver::tellFailed(const std::vector<std::string>& arguments, const std::string& reason) {
    if (Process::Observer* pObserver = s_pProcessObserver.load())
        pObserver->startFailed(arguments, reason);
}

std::vector<std::string> ProcessObserver::variables(const std::vector<std::string>& arguments) {
    Process::Observer* pObserver = s_pProcessObserver.load();
    return pObserver ? pObserver->variables(arguments) : std::vector<std::string>();
}

bool ProcessObserver::capturesErrors() {
    Process::Observer* pObserver = s_pProcessObserver.load();
    return pObserver && pObserver->capturesErrors();
}

int ProcessObserver::formerErrors() {
    Process::Observer* pObserver = s_pProcessObserver.load();
    const int descriptor = pObserver ? pObserver->formerErrors() : -1;
    return descriptor >= 0 ? descriptor : STDERR_FILENO;
}

bool ProcessObserver::awaitStart(unsigned int seconds) {
    const int pid = std::exchange(t_startedPid, 0);
    Process::Observer* pObserver = s_pProcessObserver.load();
    if (pid == 0 || !pObserver)
        return false;
    pObserver->awaitStart(pid, seconds);
    return true;
}

}  // namespace sal
