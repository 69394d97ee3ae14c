// Sends a FID through the host's sender when the manager is gone, and records the answer. A thread that the
// driver leaves behind does so, as soon as the file MFD_TEST_LOG says that the host only waits for processes.
#include <chrono>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>

#include "InterfaceIds.h"
#include "MfdDriver.h"
#include "MfdDriverBase.h"
#include "Record.h"

namespace {

bool waitsForProcesses(const char* pLog) {
    std::ifstream file(pLog);
    const std::string text{std::istreambuf_iterator<char>(file), {}};
    return text.find("still runs and holds up the shutdown") != std::string::npos;
}

class SendsLate : public MfdDriverBase {
public:
    bool sendFID(const std::string&, const FIDParameterList&) const override { return true; }
    bool deinitialize() override {
        auto* const pSender = dynamic_cast<IFunctionID*>(system()->queryInterface(IID_IFunctionID));
        const char* const pLog = std::getenv("MFD_TEST_LOG");
        if (!pSender || !pLog)
            return false;
        std::thread([pSender, pLog] {
            while (!waitsForProcesses(pLog))
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
            recordLine(pSender->sendFID("P.GO", FIDParameterList()) ? "taken" : "refused");
        }).detach();
        return true;
    }
};

}  // namespace

MFD_DRIVER(SendsLate);
