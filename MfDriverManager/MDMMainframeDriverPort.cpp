#include "MDMMainframeDriverPort.h"
