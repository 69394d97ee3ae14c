#include "sal/HostAddress.h"
