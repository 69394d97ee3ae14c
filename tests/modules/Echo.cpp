// Does at once what its FIDs say, with the values in their parameters:
//   PING fid=TARGET ...       sends the FID TARGET with the remaining parameters
//   SYSPING fid=TARGET ...    the same through ISystem's IFunctionID
//   STRING|FLOAT|INT|BOOL name= value=   UNSET name=   EVENT name= value=   COMMAND name= value=
//   PRINT value=              writes a line to standard output
//   FILL value=COUNT          sets as many different values, K0 and so on
#include <cstdlib>
#include <iostream>
#include <string>

#include "MfdDriver.h"
#include "MfdDriverBase.h"

namespace {

class Echo : public MfdDriverBase {
public:
    bool sendFID(const std::string& fid, const FIDParameterList& parameters) const override {
        const std::string name = parameters.value("name");
        const std::string value = parameters.value("value");
        if (fid == "PING")
            return sendToDriver(parameters.value("fid"), withoutTarget(parameters));
        if (fid == "SYSPING")
            return sendThroughSystem(parameters.value("fid"), withoutTarget(parameters));
        if (fid == "PRINT") {
            std::cout << value << std::endl;
            return true;
        }
        if (fid == "COMMAND" && system()) {
            system()->executeCommand(name, value);
            return true;
        }
        if (!panelState())
            return false;
        if (fid == "STRING")
            panelState()->setStateValue(name, value);
        else if (fid == "FLOAT")
            panelState()->setStateValueFloat(name, std::strtof(value.c_str(), nullptr));
        else if (fid == "INT")
            panelState()->setStateValueInt(name, std::atoi(value.c_str()));
        else if (fid == "BOOL")
            panelState()->setStateValueBool(name, value == "true");
        else if (fid == "UNSET")
            panelState()->unsetStateValue(name);
        else if (fid == "FILL")
            for (int i = 0; i < std::atoi(value.c_str()); ++i)
                panelState()->setStateValueInt("K" + std::to_string(i), i);
        else if (fid == "EVENT")
            panelState()->triggerEvent(name, value);
        else
            return false;
        return true;
    }

private:
    static FIDParameterList withoutTarget(const FIDParameterList& parameters) {
        FIDParameterList rest;
        for (const auto& [name, value] : parameters)
            if (name != "fid")
                rest.add(name, value);
        return rest;
    }

    bool sendThroughSystem(const std::string& fid, const FIDParameterList& parameters) const {
        auto* pSender =
            system() ? dynamic_cast<IFunctionID*>(system()->queryInterface(IID_IFunctionID)) : nullptr;
        return pSender && pSender->sendFID(fid, parameters);
    }
};

}  // namespace

MFD_DRIVER(Echo);
