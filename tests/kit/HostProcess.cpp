#include "HostProcess.h"

#include <fcntl.h>
#include <regex.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <thread>

namespace fs = std::filesystem;

namespace {

constexpr auto c_step = std::chrono::milliseconds(20);

std::string read(const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

template <class Condition>
bool waitFor(std::chrono::milliseconds patience, Condition condition) {
    const auto end = std::chrono::steady_clock::now() + patience;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end)
            return false;
        std::this_thread::sleep_for(c_step);
    }
    return true;
}

bool hasPattern(const std::string& text, const std::string& pattern) {
    regex_t compiled{};
    if (regcomp(&compiled, pattern.c_str(), REG_EXTENDED | REG_NOSUB | REG_NEWLINE) != 0)
        throw std::runtime_error("no regular expression: " + pattern);
    const bool found = regexec(&compiled, text.c_str(), 0, nullptr, 0) == 0;
    regfree(&compiled);
    return found;
}

// State letter and parent of a process, from behind the name in /proc/PID/stat; 0 when there is none.
struct ProcessStat {
    char state = 0;
    pid_t parent = 0;
};
ProcessStat processStat(pid_t pid) {
    ProcessStat stat;
    const std::string text = read("/proc/" + std::to_string(pid) + "/stat");
    const auto end = text.rfind(')');
    if (end != std::string::npos)
        std::istringstream(text.substr(end + 1)) >> stat.state >> stat.parent;
    return stat;
}

}  // namespace

HostProcess::HostProcess(const Start& start)
    : m_outputFile(start.files / "output.txt"), m_logFile(start.files / "log.txt") {
    int input[2];
    const int output = open(m_outputFile.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_APPEND | O_CLOEXEC, 0600);
    const int log = open(m_logFile.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_APPEND | O_CLOEXEC, 0600);
    if (pipe2(input, O_CLOEXEC) != 0 || output < 0 || log < 0)
        throw std::runtime_error("no pipe or files for " + start.program.string());
    m_pid = fork();
    if (m_pid == 0) {
        dup2(input[0], STDIN_FILENO);
        dup2(output, STDOUT_FILENO);
        dup2(log, STDERR_FILENO);
        // Its control socket lies among its files.
        setenv("XDG_RUNTIME_DIR", start.files.c_str(), 1);
        becomeProgram(start);
    }
    close(input[0]);
    close(output);
    close(log);
    m_input = input[1];
}

HostProcess::~HostProcess() {
    closeInput();
    if (!m_exit && m_pid > 0) {
        ::kill(m_pid, SIGKILL);
        waitpid(m_pid, nullptr, 0);
    }
}

void HostProcess::type(const std::string& line) {
    const std::string text = line + "\n";
    // The host may be gone; what it left behind tells the test so.
    ::signal(SIGPIPE, SIG_IGN);
    [[maybe_unused]] const auto written = write(m_input, text.data(), text.size());
}

void HostProcess::closeInput() {
    if (m_input >= 0)
        close(m_input);
    m_input = -1;
}

void HostProcess::signal(int number) const {
    ::kill(m_pid, number);
}

std::string HostProcess::output() const {
    return read(m_outputFile);
}

std::string HostProcess::log() const {
    return read(m_logFile);
}

bool HostProcess::waitForOutput(const std::string& text) const {
    return waitFor(c_hangGuard, [&] { return output().find(text) != std::string::npos; });
}

bool HostProcess::waitForOutputAfter(const std::string& earlier, const std::string& text) const {
    return waitFor(c_hangGuard, [&] {
        const std::string now = output();
        const auto at = now.rfind(earlier);
        return at != std::string::npos && now.find(text, at) != std::string::npos;
    });
}

bool HostProcess::waitForLog(const std::string& text) const {
    return waitFor(c_hangGuard, [&] { return log().find(text) != std::string::npos; });
}

std::string HostProcess::ask(const std::string& command) {
    const std::string mark = "no state value matches QUESTION" + std::to_string(++m_questions) + "\n";
    const auto from = output().size();
    type(command);
    type("state --now QUESTION" + std::to_string(m_questions));
    eventually([&] { return output().find(mark, from) != std::string::npos || waitForEnd(0); });
    const std::string reply = output().substr(from);
    return reply.substr(0, reply.find(mark));
}

bool HostProcess::passMark() {
    const std::string mark = "NOBODY.mark" + std::to_string(++m_marks);
    type("sendFID " + mark);
    return waitForLog("MDM: " + mark + " ( ) received.");
}

std::string HostProcess::listed(const std::string& driverID) {
    const std::string reply = "\n" + ask("drivers");
    const auto at = reply.find("\n" + driverID + " ");
    return at == std::string::npos ? std::string() : reply.substr(at + 1, reply.find('\n', at + 1) - at - 1);
}

bool HostProcess::repliesWith(const std::string& command, const std::string& pattern) {
    const auto begin = output().size();
    return eventually(
        [&] {
            ask(command);
            return hasPattern(output().substr(begin), pattern);
        },
        std::chrono::milliseconds(100));
}

std::optional<int> HostProcess::waitForEnd(int seconds) {
    waitFor(std::chrono::seconds(seconds), [&] {
        int status = 0;
        if (!m_exit && waitpid(m_pid, &status, WNOHANG) == m_pid)
            m_exit = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
        return m_exit.has_value();
    });
    return m_exit == 3 && m_marks > 0 && haveOnlyMarksFailed() ? 0 : m_exit;
}

bool HostProcess::haveOnlyMarksFailed() const {
    std::istringstream lines(log());
    int failed = 0;
    for (std::string line; std::getline(lines, line);) {
        if (const auto at = line.find(" more lines of the input failed"); at != std::string::npos)
            failed += std::stoi(line.substr(line.rfind(' ', at - 1) + 1));
        else if (line.find(" of the input failed: ") == std::string::npos)
            continue;
        else if (line.find(" of the input failed: sendFID NOBODY.mark") == std::string::npos)
            return false;
        else
            ++failed;
    }
    return failed <= m_marks;
}

std::vector<pid_t> HostProcess::children() const {
    return childrenOf(m_pid);
}

pid_t HostProcess::driverProcess(const std::string& driverID) const {
    return ::driverProcess(m_pid, driverID);
}

void becomeProgram(const HostProcess::Start& start) {
    std::vector<std::string> words{start.program};
    words.insert(words.end(), start.arguments.begin(), start.arguments.end());
    std::vector<char*> arguments;
    for (auto& word : words)
        arguments.push_back(word.data());
    arguments.push_back(nullptr);
    for (const auto& [name, value] : start.environment)
        setenv(name.c_str(), value.c_str(), 1);
    if (start.beforeExec)
        start.beforeExec();
    execv(arguments[0], arguments.data());
    _exit(127);
}

std::vector<pid_t> childrenOf(pid_t parent) {
    std::vector<pid_t> result;
    for (const auto& entry : fs::directory_iterator("/proc")) {
        const pid_t pid = std::atoi(entry.path().filename().c_str());
        if (pid > 0 && processStat(pid).parent == parent)
            result.push_back(pid);
    }
    return result;
}

pid_t driverProcess(pid_t host, const std::string& driverID) {
    const auto pids = childrenOf(host);
    const auto found = std::find_if(pids.begin(), pids.end(), [&](pid_t pid) {
        return read("/proc/" + std::to_string(pid) + "/cmdline").rfind(driverID + " MFD Console", 0) == 0;
    });
    return found == pids.end() ? 0 : *found;
}

bool endsWithin(pid_t pid, int milliseconds) {
    return waitFor(std::chrono::milliseconds(milliseconds), [pid] {
        const char state = processStat(pid).state;
        return state == 0 || state == 'Z' || state == 'X';
    });
}

bool endsInTime(pid_t pid) {
    return endsWithin(pid, c_hangGuardMs);
}

bool isStopped(pid_t pid) {
    std::error_code gone;
    for (const auto& thread : fs::directory_iterator("/proc/" + std::to_string(pid) + "/task", gone)) {
        if (read(thread.path() / "status").find("\nState:\tT ") == std::string::npos)
            return false;
    }
    return !gone;
}
