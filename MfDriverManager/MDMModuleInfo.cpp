#include "MDMModuleInfo.h"
