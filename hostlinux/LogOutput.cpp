#include "sal/LogOutput.h"
