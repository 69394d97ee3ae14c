// Writes each FID to the log output "DRIVER" of the process it is in.
#include "MfdDriver.h"
#include "MfdDriverBase.h"
#include "sal/LogManager.h"

namespace {

class Logs : public MfdDriverBase {
public:
    bool sendFID(const std::string& fid, const FIDParameterList&) const override {
        sal::LogManager::getInstance()->getLogOutput("DRIVER")->level(sal::LogOutput::eInfo)
            << fid << std::endl;
        return true;
    }
};

}  // namespace

MFD_DRIVER(Logs);
