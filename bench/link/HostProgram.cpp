#include "HostProgram.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <system_error>
#include <thread>

#include "Files.h"
#include "PanelTarget.h"
#include "Patience.h"
#include "ProbeWorkplace.h"

namespace fs = std::filesystem;

namespace {

using Clock = std::chrono::steady_clock;

pid_t parentOf(pid_t pid) {
    const std::string stat = textOf("/proc/" + std::to_string(pid) + "/stat");
    const auto nameEnd = stat.rfind(')');
    if (nameEnd == std::string::npos)
        return 0;
    char state = 0;
    pid_t parent = 0;
    std::istringstream(stat.substr(nameEnd + 1)) >> state >> parent;
    return parent;
}

std::array<int, 2> makePipe() {
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0)
        throw std::system_error(errno, std::generic_category(), "pipe");
    return ends;
}

}  // namespace

HostProgram::HostProgram(Settings settings) : m_settings(std::move(settings)) {
    writeProbeWorkplace(m_settings.directory, m_settings.drivers, m_settings.driversInHost);
}

HostProgram::~HostProgram() {
    if (!m_process)
        return;
    // The end of its input ends the host. What it still prints has to go somewhere.
    close(m_input);
    const auto end = Clock::now() + std::chrono::seconds(10);
    while (m_process->isRunning() && Clock::now() < end) {
        if (m_output < 0)
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        else
            readLine(std::chrono::milliseconds(20));
    }
    if (m_output >= 0)
        close(m_output);
}

void HostProgram::start() {
    const std::array<int, 2> input = makePipe();
    std::array<int, 2> output{-1, -1};
    if (m_settings.isRead)
        output = makePipe();
    m_process.emplace([&] { run(input[0], output[1]); });
    close(input[0]);
    m_input = input[1];
    if (m_settings.isRead) {
        close(output[1]);
        m_output = output[0];
        fcntl(m_output, F_SETFL, O_NONBLOCK);
    }
}

void HostProgram::waitUntilStarted() const {
    waitUntil("the host's start (" + logFile().string() + " tells)",
              [this] { return log().find("HOST: the workplace is started") != std::string::npos; });
}

void HostProgram::type(const std::string& line) const {
    const std::string text = line + "\n";
    if (write(m_input, text.data(), text.size()) != static_cast<ssize_t>(text.size()))
        throw std::runtime_error("the host takes no commands: " + log());
}

std::optional<std::string> HostProgram::readLine(std::chrono::milliseconds patience) {
    const auto end = Clock::now() + patience;
    for (;;) {
        const auto lineEnd = m_unread.find('\n');
        if (lineEnd != std::string::npos) {
            std::string line = m_unread.substr(0, lineEnd);
            m_unread.erase(0, lineEnd + 1);
            return line;
        }
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now());
        pollfd fd{m_output, POLLIN, 0};
        if (left.count() < 0 || poll(&fd, 1, static_cast<int>(left.count())) < 1)
            return std::nullopt;
        std::array<char, 4096> buffer{};
        const ssize_t count = read(m_output, buffer.data(), buffer.size());
        if (count == 0)
            return std::nullopt;
        if (count > 0)
            m_unread.append(buffer.data(), static_cast<std::size_t>(count));
    }
}

std::string HostProgram::log() const {
    return textOf(logFile());
}

std::string HostProgram::driverID(int driver) {
    return PanelTarget::driverID(static_cast<std::size_t>(driver));
}

pid_t HostProgram::processOf(int driver) const {
    const std::string title = driverID(driver) + " MFD Console";
    for (const auto& entry : fs::directory_iterator("/proc")) {
        const pid_t pid = std::atoi(entry.path().filename().c_str());
        if (pid > 0 && parentOf(pid) == m_process->pid() &&
            textOf(entry.path() / "cmdline").starts_with(title))
            return pid;
    }
    return 0;
}

void HostProgram::run(int input, int output) const {
    const fs::path& directory = m_settings.directory;
    const int log = open(logFile().c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
    dup2(input, STDIN_FILENO);
    dup2(output < 0 ? log : output, STDOUT_FILENO);
    dup2(log, STDERR_FILENO);
    setenv("XDG_RUNTIME_DIR", directory.c_str(), 1);
    setenv("MFD_QUEUE_DIR", (directory / "queues").c_str(), 1);
    for (const auto& [name, value] : m_settings.environment)
        setenv(name.c_str(), value.c_str(), 1);
    std::vector<std::string> words{
        builtFile("bin/mfhost"), "--drivers", builtFile("lib/mfdrivers"),  "--drivers",
        directory / "drivers",   "--config",  directory / "workplace.xml", "--workdir",
        directory / "work"};
    words.insert(words.end(), m_settings.options.begin(), m_settings.options.end());
    std::vector<char*> arguments;
    for (std::string& word : words)
        arguments.push_back(word.data());
    arguments.push_back(nullptr);
    execv(arguments.front(), arguments.data());
    _exit(127);
}
