#include "DriverProcess.h"

#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <cstring>
#include <future>
#include <ostream>
#include <string_view>
#include <system_error>
#include <thread>

#include "DebuggerWait.h"
#include "DriverCalls.h"
#include "DriverOutput.h"
#include "HostWatch.h"
#include "InterfaceIds.h"
#include "MessageReader.h"
#include "QueueDistributorFID.h"
#include "QueueFunctionID.h"
#include "QueueNames.h"
#include "QueuePanelState.h"
#include "QueueSink.h"
#include "QueueSystem.h"
#include "SignalWatch.h"
#include "ThreadName.h"
#include "UniqueFd.h"
#include "sal/LogManager.h"
#include "sal/Module.h"
#include "sal/ModuleLoader.h"

namespace {

/// How long the last log line may take to get out when the process is ended.
constexpr std::chrono::milliseconds s_lastWords{100};

}  // namespace

/// A hold on the process that started this one, taken before the queues are opened: a queue only opens while
/// the host lives, so the process held is not one that adopted an orphan. The host marks its children: one
/// without a mark was started by hand, and its parent says nothing about the host.
class DriverProcess::HostProcess {
public:
    explicit HostProcess(bool isParent) {
        if (!isParent)
            return;
        m_fd = base::UniqueFd(static_cast<int>(syscall(SYS_pidfd_open, getppid(), 0)));
        // Where only parents may look into a process, the host's tools may look into this one.
        prctl(PR_SET_PTRACER, getppid());
    }
    int fd() const { return m_fd.get(); }

private:
    base::UniqueFd m_fd;
};

DriverProcess::DriverProcess(const WrapperOptions& options)
    : m_options(options),
      m_pLog(sal::LogManager::getInstance()->getLogOutput("MFD")),
      m_pInput(std::make_shared<sal::MessageQueue>()) {}

DriverProcess::~DriverProcess() {
    if (m_stop == EStop::StopWhenEmpty)
        endLeftBehind();
    // The thread that waits for the host's end may keep the object: closed here, the queue's name goes as
    // soon as every process has closed it.
    m_pInput->close();
}

int DriverProcess::run() {
    for (const std::string& complaint : m_options.complaints)
        m_pLog->level(sal::LogOutput::eWarning) << complaint << std::endl;

    const HostProcess host(m_family.hasMark());
    // libsal has said why a queue does not open or a module does not load.
    if (!m_pInput->open(protocol::inputQueue(m_options.driverID)) ||
        !m_output.open(protocol::outputQueue(m_options.driverID)))
        return 1;

    // The watches are destroyed after the module: they cover its end, too.
    const SignalWatch signals([this](int signal) {
        m_pLog->level(sal::LogOutput::eInfo) << strsignal(signal) << ": stops the driver" << std::endl;
        requestStop(EStop::StopNow);
    });
    HostWatch watch({.hostFd = host.fd(),
                     .stopTimeout = m_options.stopTimeout,
                     .waitForHostEnd = [pInput = m_pInput] { pInput->waitForCreatorEnd(); },
                     .onHostEnd = [this] { requestStop(EStop::StopWhenEmpty); },
                     .onOverdue = [this] { endOverdue(); }});

    if (m_options.debuggerPatience.count() > 0)
        static_cast<void>(waitForDebugger(m_options.debuggerPatience, *m_pLog));

    QueueSink sink(m_output);
    DriverOutput output(sink);
    QueuePanelState panelState(output);
    QueueFunctionID sender(output);
    QueueDistributorFID distributor(sender);
    QueueSystem system(output, sender);

    const std::unique_ptr<sal::Module> pModule(
        sal::ModuleLoader().load(sal::ModuleLoader::eLoadUnprobed, m_options.modulePath));
    if (!pModule)
        return 1;
    auto* pConfiguration = dynamic_cast<IMFDConfiguration*>(pModule->queryInterface(IID_IMFDConfiguration));
    auto* pFunctionID = dynamic_cast<IFunctionID*>(pModule->queryInterface(IID_IFunctionID));
    if (!reportInterfaces(pConfiguration, pFunctionID))
        return 1;

    if (pConfiguration) {
        pConfiguration->setPanelStateInterface(&panelState);
        pConfiguration->setDistributorFIDInterface(&distributor);
        pConfiguration->setSystemInterface(&system);
    }
    DriverCalls calls(pConfiguration, pFunctionID, m_options.driverID);
    const int code = serve(calls, watch);
    calls.deinitialize();
    return code;
}

bool DriverProcess::reportInterfaces(const IMFDConfiguration* pConfiguration,
                                     const IFunctionID* pFunctionID) const {
    if (pConfiguration && pFunctionID) {
        m_pLog->level(sal::LogOutput::eInfo) << "Runs " << m_options.modulePath << std::endl;
        return true;
    }
    if (!pConfiguration && !pFunctionID) {
        m_pLog->level(sal::LogOutput::eError)
            << m_options.modulePath << " is no driver: it answers neither IMFDConfiguration ("
            << IID_IMFDConfiguration << ") nor IFunctionID (" << IID_IFunctionID << ")" << std::endl;
        return false;
    }
    m_pLog->level(sal::LogOutput::eWarning)
        << m_options.modulePath
        << (pConfiguration ? " does not answer IFunctionID: it gets no FIDs"
                           : " does not answer IMFDConfiguration: it gets FIDs alone")
        << std::endl;
    return true;
}

int DriverProcess::serve(DriverCalls& calls, HostWatch& watch) {
    std::array<unsigned char, protocol::maximumLength> buffer;
    while (m_stop != EStop::StopNow) {
        const bool drain = m_stop == EStop::StopWhenEmpty;
        const int length = m_pInput->receive(buffer.data(), static_cast<int>(buffer.size()), drain ? 0 : -1);
        if (length < 0) {
            if (drain) {
                m_pLog->level(sal::LogOutput::eInfo)
                    << "The host has let go of the queues: stops the driver" << std::endl;
                return 0;
            }
            m_pLog->level(sal::LogOutput::eError)
                << "The input queue is broken: stops the driver" << std::endl;
            return 1;
        }
        protocol::MessageReader message(buffer.data(), static_cast<std::size_t>(length));
        if (!calls.handle(message)) {
            watch.stopRequested();
            return 0;
        }
    }
    return 0;
}

void DriverProcess::requestStop(EStop stop) {
    EStop running = EStop::Run;
    if (!m_stop.compare_exchange_strong(running, stop) && stop == EStop::StopNow)
        m_stop = EStop::StopNow;
    // A full queue wakes the main loop just as well.
    m_pInput->send(reinterpret_cast<const unsigned char*>(protocol::wakeUp.data()),
                   static_cast<int>(protocol::wakeUp.size()), 0);
}

void DriverProcess::endLeftBehind() {
    if (m_family.hasMark())
        m_family.endOthers();
}

void DriverProcess::endOverdue() {
    // Nothing is destroyed that would do so.
    sal::MessageQueue::removeNames();
    // A log that is blocked must not keep the process.
    try {
        std::promise<void> written;
        std::thread([this, &written] {
            base::nameThread("last lines");
            m_pLog->level(sal::LogOutput::eError)
                << "The driver does not come back after the host's end: its process is ended" << std::endl;
            sal::LogManager::getInstance()->flush();
            written.set_value();
        }).detach();
        written.get_future().wait_for(s_lastWords);
        endLeftBehind();
        _exit(1);
    } catch (const std::system_error&) {
        // No thread for the last words.
        _exit(1);
    }
}
