// Its driver throws while it is made.
#include <stdexcept>

#include "MfdDriver.h"
#include "MfdDriverBase.h"

namespace {

class ThrowsInFactory : public MfdDriverBase {
public:
    ThrowsInFactory() { throw std::runtime_error("no device"); }
    bool sendFID(const std::string&, const FIDParameterList&) const override { return true; }
};

}  // namespace

MFD_DRIVER(ThrowsInFactory);
