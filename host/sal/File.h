#pragma once

#include "sal/Export.h"
#include "sal/Path.h"

namespace sal {

/// Operations on one directory entry.
class SAL_API File {
public:
    /// Makes link point to target. With replace, what stands at link is replaced in one step, unless it is a
    /// directory. False with a log line that holds the system's reason.
    static bool symlink(const Path& target, const Path& link, bool replace);

    /// Removes a file, a link (never its target) or an empty directory; never recursive. False when it is
    /// still there or never was.
    static bool remove(const Path& path);
};

}  // namespace sal
