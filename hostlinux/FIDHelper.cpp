#include "FIDHelper.h"
