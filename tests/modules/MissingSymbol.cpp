// Needs a symbol that nobody has, so that it cannot be mapped.
#include "MfdDriver.h"
#include "MfdDriverBase.h"

extern bool mfdTestSymbolThatNobodyDefines();

namespace {

class MissingSymbol : public MfdDriverBase {
public:
    bool sendFID(const std::string&, const FIDParameterList&) const override {
        return mfdTestSymbolThatNobodyDefines();
    }
};

}  // namespace

MFD_DRIVER(MissingSymbol);
