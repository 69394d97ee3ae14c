// Throws at every FID but "RECORD", which it records: a standard exception, or an int for "INT".
#include <stdexcept>

#include "MfdDriver.h"
#include "MfdDriverBase.h"
#include "Record.h"

namespace {

class ThrowsInSendFID : public MfdDriverBase {
public:
    bool sendFID(const std::string& fid, const FIDParameterList&) const override {
        if (fid == "RECORD")
            return recordLine("sendFID RECORD");
        if (fid == "INT")
            throw 42;
        throw std::runtime_error("no such function: " + fid);
    }
};

}  // namespace

MFD_DRIVER(ThrowsInSendFID);
