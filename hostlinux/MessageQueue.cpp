#include "sal/MessageQueue.h"
