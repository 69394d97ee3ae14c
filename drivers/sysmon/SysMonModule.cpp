#include "MfdDriver.h"
#include "SysMonDriver.h"

MFD_DRIVER(SysMonDriver);
