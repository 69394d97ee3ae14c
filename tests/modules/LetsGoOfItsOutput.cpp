// Gives up the locks of its output queue at any FID, as one that closes the queue, and goes on.
#include <fcntl.h>

#include <cstdlib>
#include <filesystem>
#include <string>

#include "MfdDriver.h"
#include "MfdDriverBase.h"

namespace {

class LetsGoOfItsOutput : public MfdDriverBase {
public:
    bool sendFID(const std::string&, const FIDParameterList&) const override {
        std::error_code failed;
        for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
            if (!std::filesystem::read_symlink(entry.path(), failed).string().ends_with("_OUTQ"))
                continue;
            struct flock all {};
            all.l_type = F_UNLCK;
            fcntl(std::atoi(entry.path().filename().c_str()), F_OFD_SETLK, &all);
        }
        return true;
    }
};

}  // namespace

MFD_DRIVER(LetsGoOfItsOutput);
