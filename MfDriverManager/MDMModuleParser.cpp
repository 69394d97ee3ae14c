#include "MDMModuleParser.h"
