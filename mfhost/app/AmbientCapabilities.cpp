#include "AmbientCapabilities.h"

#include <sys/prctl.h>

void clearAmbientCapabilities() {
    // A kernel without them refuses, and has none to clear.
    ::prctl(PR_CAP_AMBIENT, PR_CAP_AMBIENT_CLEAR_ALL, 0, 0, 0);
}
