// Never returns from a FID; records that it came.
#include <unistd.h>

#include "MfdDriver.h"
#include "MfdDriverBase.h"
#include "Record.h"

namespace {

class HangsInSendFID : public MfdDriverBase {
public:
    bool sendFID(const std::string& fid, const FIDParameterList&) const override {
        recordLine("sendFID " + fid);
        for (;;)
            pause();
    }
    bool deinitialize() override { return recordLine("deinitialize"); }
};

}  // namespace

MFD_DRIVER(HangsInSendFID);
