#include "ChaosHost.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <sstream>
#include <stdexcept>
#include <vector>

#include "Patience.h"
#include "TestWorkplace.h"

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using namespace std::string_literals;

namespace {

/// How long a host may leave its console unread before nothing more is typed.
constexpr auto s_inputPatience = 30s;
constexpr const char* s_orphanName = "left-behind";
constexpr std::size_t s_longestRecord = 200u * 1024 * 1024;

pid_t parentOf(const fs::path& process) {
    const std::string text = readFile(process / "stat");
    const auto end = text.rfind(')');
    char state = 0;
    pid_t parent = 0;
    if (end != std::string::npos)
        std::istringstream(text.substr(end + 1)) >> state >> parent;
    return state == 'Z' ? 0 : parent;
}

/// Zero for a process that is gone.
std::chrono::duration<double> ageOf(pid_t pid) {
    const std::string text = readFile("/proc/" + std::to_string(pid) + "/stat");
    std::istringstream fields(text.substr(text.rfind(')') + 1));
    std::string field;
    // The start is the twentieth field after the name, in ticks since the machine's start.
    for (int count = 0; count < 20; ++count)
        fields >> field;
    double uptime = 0;
    std::istringstream(readFile("/proc/uptime")) >> uptime;
    const double start = std::strtod(field.c_str(), nullptr) / static_cast<double>(::sysconf(_SC_CLK_TCK));
    return std::chrono::duration<double>(fields ? uptime - start : 0);
}

}  // namespace

ChaosHost::ChaosHost(const HostProcess::Start& start, Handlers handlers, const fs::path& record)
    : m_record(record, std::ios::app) {
    std::vector<std::string> words{start.program};
    words.insert(words.end(), start.arguments.begin(), start.arguments.end());
    std::vector<char*> arguments;
    for (auto& word : words)
        arguments.push_back(word.data());
    arguments.push_back(nullptr);
    std::vector<std::string> settings;
    for (const auto& [name, value] : start.environment)
        settings.push_back(name + "=" + value);
    // Between fork and exec of a process with threads nothing may be allocated.
    std::vector<char*> environment;
    for (char** pEntry = environ; *pEntry; ++pEntry)
        environment.push_back(*pEntry);
    for (auto& setting : settings)
        environment.push_back(setting.data());
    environment.push_back(nullptr);

    int input[2];
    int output[2];
    int log[2];
    if (::pipe2(input, O_CLOEXEC) != 0 || ::pipe2(output, O_CLOEXEC) != 0 || ::pipe2(log, O_CLOEXEC) != 0)
        throw std::runtime_error("no pipes for " + start.program.string());
    m_pid = ::fork();
    if (m_pid == 0) {
        ::signal(SIGPIPE, SIG_DFL);
        ::dup2(input[0], STDIN_FILENO);
        ::dup2(output[1], STDOUT_FILENO);
        ::dup2(log[1], STDERR_FILENO);
        ::execve(arguments[0], arguments.data(), environment.data());
        ::_exit(127);
    }
    ::close(input[0]);
    ::close(output[1]);
    ::close(log[1]);
    m_input = input[1];
    ::fcntl(m_input, F_SETFL, O_NONBLOCK);
    m_outputReader = std::thread(
        [this, fd = output[0], handler = handlers.output] { read(fd, EStream::Output, handler, "< "); });
    m_logReader =
        std::thread([this, fd = log[0], handler = handlers.log] { read(fd, EStream::Log, handler, "! "); });
}

ChaosHost::~ChaosHost() {
    closeInput();
    if (!waitForEnd(0s)) {
        ::kill(m_pid, SIGKILL);
        waitForEnd(10s);
    }
    m_isStopping = true;
    m_outputReader.join();
    m_logReader.join();
}

void ChaosHost::read(int fd, EStream stream, const std::function<void(const std::string&)>& handler,
                     const char* prefix) {
    std::string rest;
    std::vector<char> buffer(64 * 1024);
    for (;;) {
        while (m_isHeld[static_cast<int>(stream)] && !m_isStopping)
            std::this_thread::sleep_for(5ms);
        // Drivers that outlive their host keep the other end open.
        pollfd ready{fd, POLLIN, 0};
        if (::poll(&ready, 1, 50) <= 0) {
            if (m_isStopping)
                break;
            continue;
        }
        const ssize_t count = ::read(fd, buffer.data(), buffer.size());
        if (count == 0 || (count < 0 && errno != EINTR))
            break;
        if (count < 0)
            continue;
        rest.append(buffer.data(), static_cast<std::size_t>(count));
        std::string kept;
        std::size_t begin = 0;
        for (std::size_t end; (end = rest.find('\n', begin)) != std::string::npos; begin = end + 1) {
            const std::string line = rest.substr(begin, end - begin);
            handler(line);
            // What the talkers say all the time is not worth the room, nor is what fills a pipe.
            if (line.find(".N = ") == std::string::npos && line.find("event ") == std::string::npos &&
                !line.starts_with("....."))
                kept += prefix + line + "\n";
        }
        rest.erase(0, begin);
        const std::lock_guard lock(m_recordMutex);
        if (static_cast<std::size_t>(m_record.tellp()) < s_longestRecord)
            m_record << kept << std::flush;
    }
    ::close(fd);
}

bool ChaosHost::type(const std::string& line) {
    const std::lock_guard lock(m_inputMutex);
    if (m_input < 0)
        return false;
    const std::string text = line + "\n";
    Patience left(s_inputPatience);
    for (std::size_t done = 0; done < text.size();) {
        const ssize_t count = ::write(m_input, text.data() + done, text.size() - done);
        if (count > 0) {
            done += static_cast<std::size_t>(count);
            continue;
        }
        if (errno != EAGAIN || left.isOver())
            return false;
        pollfd room{m_input, POLLOUT, 0};
        ::poll(&room, 1, 50);
    }
    return true;
}

void ChaosHost::closeInput() {
    const std::lock_guard lock(m_inputMutex);
    if (m_input >= 0)
        ::close(m_input);
    m_input = -1;
}

std::optional<int> ChaosHost::waitForEnd(std::chrono::seconds patience) {
    for (Patience left(patience);;) {
        {
            const std::lock_guard lock(m_endMutex);
            int status = 0;
            if (!m_exit && ::waitpid(m_pid, &status, WNOHANG) == m_pid)
                m_exit = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
            if (m_exit || left.isOver())
                return m_exit;
        }
        std::this_thread::sleep_for(5ms);
    }
}

pid_t ChaosHost::driverProcess(const std::string& driverID) const {
    return childWith(driverID + " MFD Console");
}

std::set<pid_t> ChaosHost::driverProcesses(std::chrono::seconds age) const {
    std::set<pid_t> found = childrenWith(" MFD Console");
    std::erase_if(found, [age](pid_t pid) { return ageOf(pid) < age; });
    return found;
}

pid_t ChaosHost::childWith(const std::string& text) const {
    const std::set<pid_t> found = childrenWith(text);
    return found.empty() ? 0 : *found.begin();
}

std::set<pid_t> ChaosHost::childrenWith(const std::string& text) const {
    std::set<pid_t> found;
    std::error_code ignored;
    for (const auto& entry : fs::directory_iterator("/proc", ignored)) {
        const pid_t pid = std::atoi(entry.path().filename().c_str());
        if (pid <= 0 || parentOf(entry.path()) != m_pid)
            continue;
        // What a driver has left behind looks like it.
        if (readFile(entry.path() / "cmdline").find(text) != std::string::npos &&
            readFile(entry.path() / "comm") != s_orphanName + "\n"s)
            found.insert(pid);
    }
    return found;
}
