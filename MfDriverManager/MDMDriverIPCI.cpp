#include "MDMDriverIPCI.h"
