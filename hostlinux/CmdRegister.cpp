#include "sal/CmdRegister.h"
