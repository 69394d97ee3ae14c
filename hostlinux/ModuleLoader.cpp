#include "sal/ModuleLoader.h"
