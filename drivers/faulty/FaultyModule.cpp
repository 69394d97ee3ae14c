#include "FaultyDriver.h"
#include "MfdDriver.h"

MFD_DRIVER(FaultyDriver);
