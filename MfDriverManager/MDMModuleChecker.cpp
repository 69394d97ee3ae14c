#include "MDMModuleChecker.h"
