// A driver without the kit: built with include/ alone, and linked with nothing of this system.
#include <atomic>
#include <string>

#include "IFunctionID.h"
#include "IMFDConfiguration.h"
#include "IPanelState.h"
#include "InterfaceIds.h"

namespace {

class InterfacesAlone : public IFunctionID, public IMFDConfiguration {
public:
    IInterface* queryInterface(unsigned int id) override {
        if (id == IID_IFunctionID)
            return static_cast<IFunctionID*>(this);
        if (id == IID_IMFDConfiguration)
            return static_cast<IMFDConfiguration*>(this);
        return nullptr;
    }

    bool sendFID(const std::string& fid, const FIDParameterList&) const override {
        IPanelState* pPanelState = m_pPanelState;
        if (!pPanelState || (fid != "ON" && fid != "OFF"))
            return false;
        pPanelState->setStateValueBool("LIT", fid == "ON");
        return true;
    }
    bool subscribe(const std::string&) const override { return true; }
    bool showState() const override { return true; }

    bool setConfiguration(int, const std::string&, const std::string&, const std::string&, const std::string&,
                          const std::string&, const std::string&) override {
        return true;
    }
    void setPanelStateInterface(IPanelState* pPanelState) override { m_pPanelState = pPanelState; }
    void setDistributorFIDInterface(IDistributorFID*) override {}
    void setSystemInterface(ISystem*) override {}
    bool initializationCompleted() override {
        m_pPanelState.load()->setStateValueBool("LIT", false);
        return true;
    }
    bool deinitialize() override {
        m_pPanelState = nullptr;
        return true;
    }
    bool createFIDList() override { return true; }

private:
    std::atomic<IPanelState*> m_pPanelState = nullptr;
};

}  // namespace

extern "C" {
__attribute__((visibility("default"))) extern const unsigned int mfdDriverAbi;
const unsigned int mfdDriverAbi = 1;
__attribute__((visibility("default"))) IInterface* mfdCreateDriver();
IInterface* mfdCreateDriver() {
    return static_cast<IMFDConfiguration*>(new InterfacesAlone);
}
}
