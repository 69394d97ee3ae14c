#include "sal/Thread.h"
