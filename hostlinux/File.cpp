#include "sal/File.h"
