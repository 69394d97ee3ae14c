#include "DescriptorLimit.h"

rlim_t raiseDescriptorLimit() {
    struct rlimit limit {};
    if (::getrlimit(RLIMIT_NOFILE, &limit) != 0)
        return RLIM_INFINITY;
    const rlim_t before = limit.rlim_cur;
    limit.rlim_cur = limit.rlim_max;
    // Where the system refuses it the host gets along with what it has.
    static_cast<void>(::setrlimit(RLIMIT_NOFILE, &limit));
    return before;
}
