#include "MDMFidDistributor.h"
