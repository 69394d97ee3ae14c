// Kills its process with a segmentation fault at the FID "CRASH"; aborts at "ABORT".
#include <csignal>
#include <cstdlib>

#include "MfdDriver.h"
#include "MfdDriverBase.h"

namespace {

class Crashes : public MfdDriverBase {
public:
    bool sendFID(const std::string& fid, const FIDParameterList&) const override {
        if (fid == "CRASH") {
            std::signal(SIGSEGV, SIG_DFL);
            std::raise(SIGSEGV);
        }
        if (fid == "ABORT")
            std::abort();
        return true;
    }
};

}  // namespace

MFD_DRIVER(Crashes);
