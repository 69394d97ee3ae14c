#include "sal/Assert.h"
