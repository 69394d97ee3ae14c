// Answers IMFDConfiguration alone and records the end of its life.
#include "MfdDriver.h"
#include "MfdDriverBase.h"
#include "Record.h"

namespace {

class LacksFunctionID : public MfdDriverBase {
public:
    IInterface* queryInterface(unsigned int id) override {
        return id == IID_IFunctionID ? nullptr : MfdDriverBase::queryInterface(id);
    }
    bool sendFID(const std::string&, const FIDParameterList&) const override { return false; }
    bool initializationCompleted() override { return recordLine("initializationCompleted"); }
    bool deinitialize() override { return recordLine("deinitialize"); }
};

}  // namespace

MFD_DRIVER(LacksFunctionID);
