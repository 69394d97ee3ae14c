// Takes "GO to=ID count=N" and sends that driver N FIDs "HEAR" before it comes back; "PING" sets the state
// value "PONG". Two of them that do so to each other fill each other's queues.
#include <cstdlib>
#include <string>

#include "MfdDriver.h"
#include "MfdDriverBase.h"

namespace {

class FloodsWithinSendFID : public MfdDriverBase {
public:
    bool sendFID(const std::string& fid, const FIDParameterList& parameters) const override {
        if (fid == "PING")
            panelState()->setStateValueInt("PONG", 1);
        if (fid != "GO")
            return true;
        const std::string target = parameters.value("to") + ".HEAR";
        for (int left = std::atoi(parameters.value("count").c_str()); left > 0; --left)
            sendToDriver(target, FIDParameterList());
        return true;
    }
};

}  // namespace

MFD_DRIVER(FloodsWithinSendFID);
