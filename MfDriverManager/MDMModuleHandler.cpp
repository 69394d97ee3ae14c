#include "MDMModuleHandler.h"
