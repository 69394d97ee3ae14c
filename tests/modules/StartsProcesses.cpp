// Starts processes at the FIDs below and, where a host tries it out, as MFD_TEST_STARTS says; the number of
// each that stays goes into the file that "file" (MFD_TEST_CHILD) names. None of them ends by itself.
//   FORK      a fork that stays in this program's image       CLONE   the same behind the C library's back
//   SLEEP     another program                                 EXIT code=N   one that has ended at once
//   SESSION   a fork with a session of its own                DAEMON  another program, in a session of its
//   own BARE      as SESSION, and another program with an empty environment                and without its
//   parent WAIT      waits for the last one; its exit code, or -1, goes into "file"
#include <signal.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "MfdDriver.h"
#include "MfdDriverBase.h"

namespace {

class StartsProcesses : public MfdDriverBase {
public:
    StartsProcesses() {
        const char* pHow = std::getenv("MFD_TEST_STARTS");
        const char* pFile = std::getenv("MFD_TEST_CHILD");
        if (std::getenv("MFD_PROBE") && pHow && pFile)
            startOne(pHow, pFile, 0);
    }

    bool sendFID(const std::string& fid, const FIDParameterList& parameters) const override {
        const std::string file = parameters.value("file");
        if (fid == "WAIT") {
            int status = 0;
            const bool isMine = ::waitpid(m_child, &status, 0) == m_child && WIFEXITED(status);
            note(file, isMine ? WEXITSTATUS(status) : -1);
            return true;
        }
        m_child = startOne(fid, file, std::atoi(parameters.value("code").c_str()));
        return m_child > 0;
    }

private:
    /// Whole at once, so that nobody reads half a number.
    static void note(const std::string& file, long number) {
        std::ofstream(file + ".draft") << number << std::flush;
        std::filesystem::rename(file + ".draft", file);
    }
    [[noreturn]] static void stay() {
        for (;;)
            ::pause();
    }
    [[noreturn]] static void becomeSleep(char* const* environment) {
        char name[] = "sleep";
        char time[] = "1000";
        char* const words[] = {name, time, nullptr};
        ::execve("/bin/sleep", words, environment);
        ::_exit(127);
    }

    static pid_t startOne(const std::string& how, const std::string& file, int code) {
        const pid_t child =
            how == "CLONE" ? static_cast<pid_t>(::syscall(SYS_clone, SIGCHLD, 0, 0, 0, 0)) : ::fork();
        if (child == 0) {
            if (how == "EXIT")
                ::_exit(code);
            if (how == "SLEEP")
                becomeSleep(environ);
            if (how == "SESSION" || how == "BARE" || how == "DAEMON")
                ::setsid();
            char* const none[] = {nullptr};
            if (how == "BARE")
                becomeSleep(none);
            if (how == "DAEMON") {
                if (::fork() != 0)
                    ::_exit(0);
                note(file, ::getpid());
                becomeSleep(environ);
            }
            stay();
        }
        if (how != "DAEMON") {
            note(file, child);
            return child;
        }
        ::waitpid(child, nullptr, 0);
        // Only it knows its number.
        for (int i = 0; i < 1000 && !std::filesystem::exists(file); ++i)
            ::usleep(10000);
        return child;
    }

    mutable pid_t m_child = -1;
};

}  // namespace

MFD_DRIVER(StartsProcesses);
