// Makes no driver.
#include "IInterface.h"
#include "sal/DriverModule.h"

extern "C" {
__attribute__((visibility("default"))) extern const unsigned int mfdDriverAbi;
const unsigned int mfdDriverAbi = MFD_DRIVER_ABI;
__attribute__((visibility("default"))) IInterface* mfdCreateDriver();
IInterface* mfdCreateDriver() {
    return nullptr;
}
}
