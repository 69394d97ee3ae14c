#include "sal/CmdProcessor.h"
