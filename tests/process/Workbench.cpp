#include "Workbench.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include "HangGuard.h"
#include "sal/Path.h"

namespace {

std::string text(const std::filesystem::path& path) {
    std::ostringstream content;
    content << std::ifstream(path).rdbuf();
    return content.str();
}

std::vector<std::string> lines(const std::filesystem::path& path) {
    std::vector<std::string> result;
    std::ifstream file(path);
    for (std::string line; std::getline(file, line);)
        result.push_back(line);
    return result;
}

/// Puts a file in place of a standard stream; a copy of the stream.
int redirect(int stream, const std::filesystem::path& path) {
    const int copy = fcntl(stream, F_DUPFD_CLOEXEC, 3);
    const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
    dup2(file, stream);
    close(file);
    return copy;
}

void restore(int stream, int copy) {
    dup2(copy, stream);
    close(copy);
}

}  // namespace

Workbench::Workbench() {
    // Shared memory, as the queues' directory is wherever there is one.
    std::string name = "/dev/shm/mfd-process-test-XXXXXX";
    if (!mkdtemp(name.data()))
        throw std::runtime_error("no directory of the test's own");
    directory = name;
    std::filesystem::create_directory(directory / "queues");
    std::filesystem::permissions(directory / "queues", std::filesystem::perms::owner_all);
    setenv("MFD_QUEUE_DIR", (directory / "queues").c_str(), 1);
    setenv("MFD_TEST_RECORD", (directory / "record").c_str(), 1);
    for (const char* setting : {"MFD_LOG_LEVEL", "MFD_STOP_TIMEOUT", "MFD_TEST_DEINIT_MS"})
        unsetenv(setting);
    // The driver process of a host that was killed becomes a child of this one, which so sees its end.
    prctl(PR_SET_CHILD_SUBREAPER, 1);
}

Workbench::~Workbench() {
    if (m_inputFd >= 0)
        close(m_inputFd);
    std::filesystem::remove_all(directory);
}

std::string Workbench::module(const std::string& name) {
    return MFD_TEST_MODULE_DIR "/" + name + ".so";
}

ProcessController Workbench::start(const std::string& program, const std::vector<std::string>& arguments,
                                   bool ownSession) {
    const std::string path = sal::Path::getExeBasePath().getPathString() + "/" + program;
    std::vector<char*> argv{const_cast<char*>(program.c_str())};
    for (const std::string& argument : arguments)
        argv.push_back(const_cast<char*>(argument.c_str()));
    argv.push_back(nullptr);

    std::array<int, 2> input{};
    if (pipe2(input.data(), O_CLOEXEC) != 0)
        throw std::runtime_error("no pipe");
    const StreamsToFiles streams(*this);
    const pid_t pid = fork();
    if (pid == 0) {
        if (ownSession)
            setsid();
        dup2(input[0], STDIN_FILENO);
        execv(path.c_str(), argv.data());
        _exit(127);
    }
    close(input[0]);
    if (m_inputFd >= 0)
        close(m_inputFd);
    m_inputFd = input[1];
    return ProcessController(pid);
}

void Workbench::writeInput(const std::string& text) const {
    [[maybe_unused]] const auto written = write(m_inputFd, text.data(), text.size());
}

Workbench::StreamsToFiles::StreamsToFiles(const Workbench& bench)
    : m_output(redirect(STDOUT_FILENO, bench.directory / "stdout")),
      m_error(redirect(STDERR_FILENO, bench.directory / "stderr")) {}

Workbench::StreamsToFiles::~StreamsToFiles() {
    restore(STDOUT_FILENO, m_output);
    restore(STDERR_FILENO, m_error);
}

std::string Workbench::standardOutput() const {
    return text(directory / "stdout");
}

std::vector<std::string> Workbench::standardError() const {
    return lines(directory / "stderr");
}

std::vector<std::string> Workbench::record() const {
    return lines(directory / "record");
}

bool Workbench::waitForRecord(const std::string& line) const {
    return eventually([&] {
        const std::vector<std::string> present = record();
        return std::find(present.begin(), present.end(), line) != present.end();
    });
}

bool Workbench::waitUntilItRuns() const {
    return eventually([&] { return text(directory / "stderr").find(": Runs /") != std::string::npos; });
}
