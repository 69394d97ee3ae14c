#include "MDMFidCreator.h"
