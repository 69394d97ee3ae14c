#include "MDMVirtualPanelIPCI.h"
