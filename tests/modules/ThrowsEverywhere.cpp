// Throws a standard exception in each operation; in queryInterface for any other interface than the two.
#include <stdexcept>

#include "MfdDriver.h"
#include "MfdDriverBase.h"

namespace {

class ThrowsEverywhere : public MfdDriverBase {
public:
    IInterface* queryInterface(unsigned int id) override {
        IInterface* pAnswer = MfdDriverBase::queryInterface(id);
        if (!pAnswer)
            throw std::runtime_error("thrown by queryInterface");
        return pAnswer;
    }

    bool sendFID(const std::string&, const FIDParameterList&) const override {
        throw std::runtime_error("thrown by sendFID");
    }
    bool subscribe(const std::string&) const override { throw std::runtime_error("thrown by subscribe"); }
    bool showState() const override { throw std::runtime_error("thrown by showState"); }

    bool setConfiguration(int, const std::string&, const std::string&, const std::string&, const std::string&,
                          const std::string&, const std::string&) override {
        throw std::runtime_error("thrown by setConfiguration");
    }
    void setPanelStateInterface(IPanelState*) override {
        throw std::runtime_error("thrown by setPanelStateInterface");
    }
    void setDistributorFIDInterface(IDistributorFID*) override {
        throw std::runtime_error("thrown by setDistributorFIDInterface");
    }
    void setSystemInterface(ISystem*) override { throw std::runtime_error("thrown by setSystemInterface"); }
    bool initializationCompleted() override { throw std::runtime_error("thrown by initializationCompleted"); }
    bool deinitialize() override { throw std::runtime_error("thrown by deinitialize"); }
    bool createFIDList() override { throw std::runtime_error("thrown by createFIDList"); }
};

}  // namespace

MFD_DRIVER(ThrowsEverywhere);
