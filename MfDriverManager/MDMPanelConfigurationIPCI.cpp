#include "MDMPanelConfigurationIPCI.h"
