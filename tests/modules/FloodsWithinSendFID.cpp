// Takes "GO to=ID count=N" and sends that driver N FIDs "HEAR" before it comes back, once that one does the
// same to it: so they fill each other's queues. "PING" sets the state value "PONG".
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>

#include "HangGuard.h"
#include "MfdDriver.h"
#include "MfdDriverBase.h"
#include "Record.h"

namespace {

class FloodsWithinSendFID : public MfdDriverBase {
public:
    bool sendFID(const std::string& fid, const FIDParameterList& parameters) const override {
        if (fid == "PING")
            panelState()->setStateValueInt("PONG", 1);
        if (fid != "GO")
            return true;
        const std::string target = parameters.value("to") + ".HEAR";
        recordLine(target);
        eventually(
            [this] { return record().find(configuration().driverID + ".HEAR\n") != std::string::npos; });
        for (int left = std::atoi(parameters.value("count").c_str()); left > 0; --left)
            sendToDriver(target, FIDParameterList());
        return true;
    }

private:
    static std::string record() {
        std::ostringstream text;
        text << std::ifstream(std::getenv("MFD_TEST_RECORD")).rdbuf();
        return text.str();
    }
};

}  // namespace

MFD_DRIVER(FloodsWithinSendFID);
