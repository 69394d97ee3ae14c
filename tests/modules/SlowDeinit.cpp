// Takes MFD_TEST_DEINIT_MS milliseconds (3000 by default) to stop; records begin and end of it.
#include <chrono>
#include <cstdlib>
#include <thread>

#include "MfdDriver.h"
#include "MfdDriverBase.h"
#include "Record.h"

namespace {

class SlowDeinit : public MfdDriverBase {
public:
    bool sendFID(const std::string&, const FIDParameterList&) const override { return true; }
    bool deinitialize() override {
        recordLine("deinitialize");
        const char* pDuration = std::getenv("MFD_TEST_DEINIT_MS");
        std::this_thread::sleep_for(std::chrono::milliseconds(pDuration ? std::atoi(pDuration) : 3000));
        return recordLine("deinitialized");
    }
};

}  // namespace

MFD_DRIVER(SlowDeinit);
