// Changes what belongs to the process as a whole, at a FID or, with
// MFD_TEST_MEDDLES="operation|FID|value;...", inside "made", "setConfiguration", "initializationCompleted" or
// "deinitialize". Not where a host tries it out.
//   CHDIR value=DIR    UMASK value=OCTAL    FILESIZE value=BYTES    what the names say
//   IGNORE             ignores SIGCHLD      REAP     waits for every child on a thread of its own
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <sstream>
#include <string>
#include <thread>

#include "MfdDriver.h"
#include "MfdDriverBase.h"

namespace {

class Meddles : public MfdDriverBase {
public:
    Meddles() { actAt("made"); }

    bool sendFID(const std::string& fid, const FIDParameterList& parameters) const override {
        act(fid, parameters.value("value"));
        return true;
    }
    bool setConfiguration(int workplaceId, const std::string& driverID, const std::string& workingDirectory,
                          const std::string& ipAddress, const std::string& networkAdapter,
                          const std::string& virtualPanelAddress,
                          const std::string& nvramDirectory) override {
        MfdDriverBase::setConfiguration(workplaceId, driverID, workingDirectory, ipAddress, networkAdapter,
                                        virtualPanelAddress, nvramDirectory);
        actAt("setConfiguration");
        return true;
    }
    bool initializationCompleted() override {
        actAt("initializationCompleted");
        return true;
    }
    bool deinitialize() override {
        actAt("deinitialize");
        return true;
    }

private:
    static void actAt(const std::string& operation) {
        const char* pActs = std::getenv("MFD_TEST_MEDDLES");
        if (!pActs || std::getenv("MFD_PROBE"))
            return;
        std::istringstream acts(pActs);
        for (std::string text; std::getline(acts, text, ';');) {
            std::istringstream fields(text);
            std::string of;
            std::string fid;
            std::string value;
            std::getline(fields, of, '|');
            std::getline(fields, fid, '|');
            std::getline(fields, value, '|');
            if (of == operation)
                act(fid, value);
        }
    }

    static void act(const std::string& fid, const std::string& value) {
        if (fid == "CHDIR") {
            static_cast<void>(!::chdir(value.c_str()));
        } else if (fid == "UMASK") {
            ::umask(static_cast<mode_t>(std::strtoul(value.c_str(), nullptr, 8)));
        } else if (fid == "FILESIZE") {
            struct rlimit limit {};
            ::getrlimit(RLIMIT_FSIZE, &limit);
            limit.rlim_cur = std::strtoul(value.c_str(), nullptr, 10);
            ::setrlimit(RLIMIT_FSIZE, &limit);
        } else if (fid == "IGNORE") {
            ::signal(SIGCHLD, SIG_IGN);
        } else if (fid == "REAP") {
            // Left behind: the code stays as long as the process.
            std::thread([] {
                for (;;) {
                    if (::waitpid(-1, nullptr, 0) < 0)
                        std::this_thread::sleep_for(std::chrono::milliseconds(1));
                }
            }).detach();
        }
    }
};

}  // namespace

MFD_DRIVER(Meddles);
