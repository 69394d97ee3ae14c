#include "ProcessSide.h"

#include <poll.h>
#include <signal.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstring>
#include <utility>

#include "NumberText.h"
#include "Printable.h"
#include "QueueNames.h"
#include "ThreadName.h"
#include "sal/LogManager.h"
#include "sal/Path.h"
#include "sal/Process.h"

namespace mfd::testing {

namespace {

using std::chrono::milliseconds;

/// How long the readers wait before they look whether they are still wanted.
constexpr milliseconds s_look{20};
/// As the host makes them.
constexpr unsigned short s_inputCapacity = 256;
constexpr unsigned short s_outputCapacity = 16384;

/// Keeps what libsal tells of the process that is started meanwhile.
class StartObserver : public sal::Process::Observer {
public:
    StartObserver() { sal::Process::setObserver(this); }
    ~StartObserver() override { sal::Process::setObserver(nullptr); }
    StartObserver(const StartObserver&) = delete;
    StartObserver& operator=(const StartObserver&) = delete;

    void processStarted(const sal::Process::Started& started) override {
        process = base::UniqueFd(started.pidFd);
        errors = base::UniqueFd(started.errorFd);
    }
    bool capturesErrors() override { return true; }

    base::UniqueFd process;
    base::UniqueFd errors;
};

std::string endText(const siginfo_t& end) {
    if (end.si_code == CLD_EXITED)
        return end.si_status == 0 ? std::string()
                                  : "its process ended with exit code " + std::to_string(end.si_status);
    return "its process was ended by signal " + std::to_string(end.si_status) + " (" +
           ::strsignal(end.si_status) + ")";
}

}  // namespace

ProcessSide::ProcessSide(std::string module, std::string wrapper, milliseconds patience, Story& story)
    : m_module(std::move(module)), m_wrapper(std::move(wrapper)), m_patience(patience), m_story(story) {}

ProcessSide::~ProcessSide() {
    stop();
}

std::string ProcessSide::start(const Configuration& configuration) {
    if (m_process)
        return "the driver runs already";
    m_driverID = configuration.driverID;
    const std::string input = protocol::inputQueue(m_driverID);
    m_pInput = std::make_unique<sal::MessageQueue>();
    m_pOutput = std::make_unique<sal::MessageQueue>();
    const int size = static_cast<int>(protocol::maximumLength);
    if (!m_pInput->create(input, s_inputCapacity, size, 0) ||
        !m_pOutput->create(protocol::outputQueue(m_driverID), s_outputCapacity, size, 0))
        return "no queues; the log says why";
    {
        StartObserver observer;
        sal::Path wrapper(m_wrapper);
        if (!sal::Process::createProcess(m_driverID + " MFD Console", wrapper, {m_module, m_driverID}))
            return m_wrapper + " does not start; the log says why";
        m_process = std::move(observer.process);
        m_errors = std::move(observer.errors);
    }
    m_ends = false;
    m_reportReader = std::thread(&ProcessSide::readReports, this);
    m_errorReader = std::thread(&ProcessSide::readErrors, this);
    if (std::string fault = waitUntilUp(input); !fault.empty()) {
        // What the process has said is read before anybody asks why.
        if (hasEnded(milliseconds(0))) {
            m_ends = true;
            m_errorReader.join();
        }
        return fault;
    }

    protocol::MessageWriter message(protocol::setConfiguration);
    message.int32(0).string(m_driverID).string(configuration.workingDirectory);
    message.string("").string("").string("").string(configuration.nvramDirectory);
    if (!send(message) || !send(protocol::MessageWriter(protocol::initializationCompleted)))
        return "the driver's process does not take its configuration";
    return {};
}

std::string ProcessSide::waitUntilUp(const std::string& queue) const {
    for (milliseconds waited{}; waited < m_patience; waited += s_look) {
        if (sal::MessageQueue::waitForReaders({queue}, 0, static_cast<int>(s_look.count())))
            return {};
        if (hasEnded(milliseconds(0)))
            return "the driver's process has ended before it came up";
    }
    return "the driver's process does not come up";
}

bool ProcessSide::hasEnded(milliseconds patience) const {
    pollfd end{m_process.get(), POLLIN, 0};
    return ::poll(&end, 1, static_cast<int>(patience.count())) > 0;
}

bool ProcessSide::isRunning() const {
    return m_process && !hasEnded(milliseconds(0));
}

std::string ProcessSide::stop() {
    if (!m_process) {
        m_pInput.reset();
        m_pOutput.reset();
        return {};
    }
    if (isRunning())
        send(protocol::MessageWriter(protocol::deinitialize));
    return reap(m_patience);
}

std::string ProcessSide::kill() {
    if (!isRunning())
        return "the driver does not run";
    static_cast<void>(::syscall(SYS_pidfd_send_signal, m_process.get(), SIGKILL, nullptr, 0));
    reap(m_patience);
    m_story.add("killed");
    return {};
}

std::string ProcessSide::reap(milliseconds patience) {
    std::string fault;
    if (!hasEnded(patience)) {
        fault = "its process has not ended " + std::to_string(patience.count()) +
                " ms after its stop, and was killed";
        static_cast<void>(::syscall(SYS_pidfd_send_signal, m_process.get(), SIGKILL, nullptr, 0));
    }
    siginfo_t end{};
    while (::waitid(P_PIDFD, static_cast<id_t>(m_process.get()), &end, WEXITED) != 0 && errno == EINTR)
        continue;
    if (fault.empty())
        fault = endText(end);
    m_ends = true;
    m_reportReader.join();
    if (m_errorReader.joinable())
        m_errorReader.join();
    m_process.reset();
    m_errors.reset();
    m_pInput.reset();
    m_pOutput.reset();
    return fault;
}

std::string ProcessSide::refuseFids(bool) {
    return "the queue of a driver process takes what fits; FIDs are refused in process alone";
}

bool ProcessSide::send(const std::string& fid, const FIDParameterList& parameters) {
    protocol::MessageWriter message(protocol::sendFID);
    message.string(fid).parameters(parameters);
    return isRunning() && send(message);
}

bool ProcessSide::send(const protocol::MessageWriter& message) {
    return message.fits() && message.oversize() == 0 &&
           m_pInput->send(message.data(), static_cast<int>(message.length()),
                          static_cast<int>(m_patience.count()));
}

void ProcessSide::readReports() {
    base::nameThread(m_driverID, "reports");
    std::array<unsigned char, protocol::maximumLength> buffer;
    while (true) {
        // Seen before the look into the queue: what the process has sent before its end is there then.
        const bool ends = m_ends;
        const int length = m_pOutput->receive(buffer.data(), static_cast<int>(buffer.size()),
                                              ends ? 0 : static_cast<int>(s_look.count()));
        if (length >= 0) {
            protocol::MessageReader message(buffer.data(), static_cast<std::size_t>(length));
            note(message);
        } else if (ends) {
            return;
        }
    }
}

void ProcessSide::note(protocol::MessageReader& message) {
    const std::string subject = message.string();
    if (message.hasCode(protocol::setStateValue))
        m_story.addState(subject, message.string());
    else if (message.hasCode(protocol::setStateValueFloat))
        m_story.addState(subject, numberText(message.float32()));
    else if (message.hasCode(protocol::setStateValueInt))
        m_story.addState(subject, numberText(message.int32()));
    else if (message.hasCode(protocol::setStateValueBool))
        m_story.addState(subject, message.bool8() ? "true" : "false");
    else if (message.hasCode(protocol::unsetStateValue))
        m_story.addUnset(subject);
    else if (message.hasCode(protocol::triggerEvent))
        m_story.addEvent(subject, message.string());
    else if (message.hasCode(protocol::dispatchFID))
        m_story.addFid("send", subject, message.parameters());
    else if (message.hasCode(protocol::executeCommand)) {
        const std::string arguments = message.string();
        m_story.add("command " + subject + (arguments.empty() ? "" : " " + arguments));
    }
}

void ProcessSide::readErrors() {
    base::nameThread(m_driverID, "errors");
    std::string text;
    std::array<char, 4096> buffer;
    while (true) {
        const bool ends = m_ends;
        pollfd errors{m_errors.get(), POLLIN, 0};
        const int found = ::poll(&errors, 1, ends ? 0 : static_cast<int>(s_look.count()));
        // A child that the driver has left behind may keep the pipe open: it is not waited for.
        if (found == 0 && ends)
            break;
        if (found <= 0)
            continue;
        const ssize_t length = ::read(m_errors.get(), buffer.data(), buffer.size());
        if (length <= 0)
            break;
        text.append(buffer.data(), static_cast<std::size_t>(length));
        for (auto end = text.find('\n'); end != std::string::npos; end = text.find('\n')) {
            noteError(std::string_view(text).substr(0, end));
            text.erase(0, end + 1);
        }
    }
    if (!text.empty())
        noteError(text);
}

void ProcessSide::noteError(std::string_view line) {
    const sal::LogManager::ErrorLine read = sal::LogManager::readErrorLine(line);
    if (!read.bare.empty())
        m_story.add("stderr " + base::printable(read.bare));
    if (read.logged)
        m_story.add("log " + read.logged->output + ": " + read.logged->text);
}

}  // namespace mfd::testing
