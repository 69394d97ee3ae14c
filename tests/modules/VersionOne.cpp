// An older version of a driver: "VERSION 1" is the one function that it takes.
#include "MfdDriver.h"
#include "MfdDriverBase.h"

namespace {

class VersionOne : public MfdDriverBase {
public:
    bool sendFID(const std::string& fid, const FIDParameterList&) const override {
        return fid == "VERSION 1";
    }
};

}  // namespace

MFD_DRIVER(VersionOne);
