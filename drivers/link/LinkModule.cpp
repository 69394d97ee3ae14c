#include "LinkDriver.h"
#include "MfdDriver.h"

MFD_DRIVER(LinkDriver);
