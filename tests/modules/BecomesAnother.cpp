// Becomes another program at any FID, and keeps its process.
#include <unistd.h>

#include "MfdDriver.h"
#include "MfdDriverBase.h"

namespace {

class BecomesAnother : public MfdDriverBase {
public:
    bool initializationCompleted() override {
        panelState()->setStateValueInt("READY", 1);
        return true;
    }
    bool sendFID(const std::string&, const FIDParameterList&) const override {
        execl("/bin/sleep", "sleep", "600", nullptr);
        return false;
    }
};

}  // namespace

MFD_DRIVER(BecomesAnother);
