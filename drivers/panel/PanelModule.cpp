#include "MfdDriver.h"
#include "PanelDriver.h"

MFD_DRIVER(PanelDriver);
