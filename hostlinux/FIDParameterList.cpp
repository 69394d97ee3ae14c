#include "FIDParameterList.h"
