#include "sal/Directory.h"
