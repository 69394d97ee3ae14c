#include "MDMConfigurationIPCI.h"
