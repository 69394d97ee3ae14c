// Throws when it is to stop.
#include <stdexcept>

#include "MfdDriver.h"
#include "MfdDriverBase.h"

namespace {

class ThrowsOnDeinitialize : public MfdDriverBase {
public:
    bool sendFID(const std::string&, const FIDParameterList&) const override { return true; }
    bool deinitialize() override { throw std::runtime_error("cannot stop"); }
};

}  // namespace

MFD_DRIVER(ThrowsOnDeinitialize);
