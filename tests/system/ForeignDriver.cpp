// A driver as somebody else would write it: against include/, host/ and the driver macro alone, with none of
// the kit's base class. Writes what it is told, a line each, to "told.txt" in its NVRAM directory.
#include <fstream>
#include <mutex>
#include <string>

#include "FIDParameterList.h"
#include "IDistributorFID.h"
#include "IFunctionID.h"
#include "IMFDConfiguration.h"
#include "IPanelState.h"
#include "ISystem.h"
#include "InterfaceIds.h"
#include "MfdDriver.h"

class ForeignDriver : public IMFDConfiguration, public IFunctionID {
public:
    IInterface* queryInterface(unsigned int id) override {
        if (id == IID_IMFDConfiguration)
            return static_cast<IMFDConfiguration*>(this);
        if (id == IID_IFunctionID)
            return static_cast<IFunctionID*>(this);
        return nullptr;
    }

    bool setConfiguration(int workplaceId, const std::string& driverID, const std::string& workingDirectory,
                          const std::string& ipAddress, const std::string& networkAdapter,
                          const std::string& virtualPanelAddress,
                          const std::string& nvramDirectory) override {
        m_file = nvramDirectory + "/told.txt";
        tell("configuration " + std::to_string(workplaceId) + " " + driverID + " " + workingDirectory + " " +
             ipAddress + " " + networkAdapter + " " + virtualPanelAddress + " " + nvramDirectory);
        return true;
    }
    void setPanelStateInterface(IPanelState* pPanelState) override { m_pPanelState = pPanelState; }
    void setDistributorFIDInterface(IDistributorFID* pDistributorFID) override {
        m_pDistributorFID = pDistributorFID;
    }
    void setSystemInterface(ISystem* pSystem) override { m_pSystem = pSystem; }
    bool initializationCompleted() override {
        tell(std::string("completed panel=") + (m_pPanelState ? "yes" : "no") +
             " distributor=" + (m_pDistributorFID ? "yes" : "no") + " system=" + (m_pSystem ? "yes" : "no"));
        m_pPanelState->setStateValue("READY", "yes");
        return true;
    }
    bool deinitialize() override {
        tell("deinitialize");
        return true;
    }
    bool createFIDList() override { return true; }

    bool sendFID(const std::string& fid, const FIDParameterList& parameters) const override {
        std::string line = "fid " + fid;
        for (const auto& [name, value] : parameters)
            line += " " + name + "=" + value;
        tell(line);
        m_pPanelState->setStateValueInt("COUNT", static_cast<int>(parameters.size()));
        return true;
    }
    bool subscribe(const std::string&) const override { return true; }
    bool showState() const override { return true; }

private:
    void tell(const std::string& line) const {
        const std::lock_guard lock(m_mutex);
        std::ofstream(m_file, std::ios::app) << line << std::endl;
    }

    mutable std::mutex m_mutex;
    std::string m_file;
    IPanelState* m_pPanelState = nullptr;
    IDistributorFID* m_pDistributorFID = nullptr;
    ISystem* m_pSystem = nullptr;
};

MFD_DRIVER(ForeignDriver);
