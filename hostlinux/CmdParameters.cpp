#include "sal/CmdParameters.h"
