#include "sal/NetworkAdapter.h"
