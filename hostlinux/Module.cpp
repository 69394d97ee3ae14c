#include "sal/Module.h"
