#include "XMLVerify.h"
