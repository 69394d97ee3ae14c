#include "MfDriverManager.h"
