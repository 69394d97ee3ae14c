// Never returns from deinitialize; records that it was called.
#include <unistd.h>

#include "MfdDriver.h"
#include "MfdDriverBase.h"
#include "Record.h"

namespace {

class IgnoresDeinit : public MfdDriverBase {
public:
    bool sendFID(const std::string&, const FIDParameterList&) const override { return true; }
    bool deinitialize() override {
        recordLine("deinitialize");
        for (;;)
            pause();
    }
};

}  // namespace

MFD_DRIVER(IgnoresDeinit);
