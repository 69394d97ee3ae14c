// Says that it was built for another version of the interfaces.
#include "IInterface.h"
#include "sal/DriverModule.h"

namespace {

class WrongAbi : public IInterface {
public:
    IInterface* queryInterface(unsigned int) override { return nullptr; }
};

}  // namespace

extern "C" {
__attribute__((visibility("default"))) extern const unsigned int mfdDriverAbi;
const unsigned int mfdDriverAbi = MFD_DRIVER_ABI + 998;
__attribute__((visibility("default"))) IInterface* mfdCreateDriver();
IInterface* mfdCreateDriver() {
    return new WrongAbi;
}
}
