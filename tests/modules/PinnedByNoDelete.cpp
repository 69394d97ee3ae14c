// Its code cannot be unmapped: it is linked so.
#include "MfdDriver.h"
#include "MfdDriverBase.h"

namespace {

class PinnedByNoDelete : public MfdDriverBase {
public:
    bool sendFID(const std::string&, const FIDParameterList&) const override { return true; }
};

}  // namespace

MFD_DRIVER(PinnedByNoDelete);
