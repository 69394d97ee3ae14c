#include "MDMModuleLoader.h"
