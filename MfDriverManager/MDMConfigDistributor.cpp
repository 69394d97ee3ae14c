#include "MDMConfigDistributor.h"
