#include "sal/Path.h"
