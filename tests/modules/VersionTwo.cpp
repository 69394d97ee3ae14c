// A newer version of the same driver: "VERSION 2" is the one function that it takes.
#include "MfdDriver.h"
#include "MfdDriverBase.h"

namespace {

class VersionTwo : public MfdDriverBase {
public:
    bool sendFID(const std::string& fid, const FIDParameterList&) const override {
        return fid == "VERSION 2";
    }
};

}  // namespace

MFD_DRIVER(VersionTwo);
