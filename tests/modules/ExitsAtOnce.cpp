// Ends its process with code 7 as soon as it is made.
#include <unistd.h>

#include "MfdDriver.h"
#include "MfdDriverBase.h"

namespace {

class ExitsAtOnce : public MfdDriverBase {
public:
    ExitsAtOnce() { _exit(7); }
    bool sendFID(const std::string&, const FIDParameterList&) const override { return true; }
};

}  // namespace

MFD_DRIVER(ExitsAtOnce);
