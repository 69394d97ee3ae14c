// Leaves a process behind that never ends; its number goes into the file that MFD_TEST_CHILD names.
#include <unistd.h>

#include <cstdlib>
#include <fstream>

#include "MfdDriver.h"
#include "MfdDriverBase.h"

namespace {

class LeavesProcess : public MfdDriverBase {
public:
    LeavesProcess() {
        const char* pFile = std::getenv("MFD_TEST_CHILD");
        if (!pFile)
            return;
        const pid_t child = fork();
        if (child == 0) {
            for (;;)
                pause();
        }
        std::ofstream(pFile) << child;
    }
    bool sendFID(const std::string&, const FIDParameterList&) const override { return true; }
};

}  // namespace

MFD_DRIVER(LeavesProcess);
