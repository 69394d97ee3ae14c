#include "sal/LogManager.h"
