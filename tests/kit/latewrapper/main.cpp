// Stands beside a test's host in place of mfddllwrap: comes up late or not at all, as the real one may on a
// busy machine, and then becomes the real one. MFD_TEST_STARTS names a file of which each start takes the
// first line away: "wait" and milliseconds, "kill" or "stop", which the process does to itself. Where no line
// is left, it waits MFD_TEST_START_DELAY milliseconds.

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>

namespace {

/// Several processes may start at once.
std::string takeFirstLine(const char* pFile) {
    const int lock = ::open(pFile, O_RDWR | O_CLOEXEC);
    if (lock < 0 || ::flock(lock, LOCK_EX) != 0)
        return {};
    std::ostringstream rest;
    std::string first;
    {
        std::ifstream file(pFile);
        std::getline(file, first);
        rest << file.rdbuf();
    }
    std::ofstream(pFile) << rest.str();
    ::close(lock);
    return first;
}

void wait(const std::string& milliseconds) {
    std::this_thread::sleep_for(std::chrono::milliseconds(std::atoi(milliseconds.c_str())));
}

}  // namespace

int main(int, char** argv) {
    const char* pFile = std::getenv("MFD_TEST_STARTS");
    std::istringstream line(pFile != nullptr ? takeFirstLine(pFile) : std::string());
    std::string what;
    std::string milliseconds;
    line >> what >> milliseconds;
    if (what == "kill")
        ::raise(SIGKILL);
    else if (what == "stop")
        ::raise(SIGSTOP);
    else if (what == "wait")
        wait(milliseconds);
    else if (const char* pDelay = std::getenv("MFD_TEST_START_DELAY"))
        wait(pDelay);
    ::execv(MFD_TEST_WRAPPER, argv);
    return 127;
}
