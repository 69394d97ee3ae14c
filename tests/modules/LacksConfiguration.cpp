// Answers IFunctionID alone and records the FIDs it gets.
#include <sstream>

#include "FIDParameterList.h"
#include "InterfaceIds.h"
#include "MfdDriver.h"
#include "Record.h"

namespace {

class LacksConfiguration : public IFunctionID {
public:
    IInterface* queryInterface(unsigned int id) override {
        if (id != IID_IFunctionID)
            return nullptr;
        IInterface& part = *this;
        return &part;
    }
    bool sendFID(const std::string& fid, const FIDParameterList& parameters) const override {
        std::ostringstream line;
        line << "sendFID " << fid << " " << parameters;
        return recordLine(line.str());
    }
    bool subscribe(const std::string&) const override { return true; }
    bool showState() const override { return true; }
};

}  // namespace

MFD_DRIVER(LacksConfiguration);
