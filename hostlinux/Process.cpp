#include "sal/Process.h"
