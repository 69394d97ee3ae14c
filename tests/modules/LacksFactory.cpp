// Says for which driver interface it was built, but makes no drivers.
#include "sal/DriverModule.h"

extern "C" {
__attribute__((visibility("default"))) extern const unsigned int mfdDriverAbi;
const unsigned int mfdDriverAbi = MFD_DRIVER_ABI;
}
