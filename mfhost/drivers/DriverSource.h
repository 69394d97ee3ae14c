#pragma once

#include <string>

#include "ModuleIdentity.h"
#include "WorkplaceFile.h"

/// What a driver was loaded from, or would be loaded from now. A value; any thread.
struct DriverSource {
    WorkplaceFile::Entry entry;
    ModuleIdentity module;  ///< with an empty path where no descriptor announces the driver's type
    bool isSigned = false;  ///< the workplace file, by a trusted key

    /// In what the later one differs, in words: "entry changed (ipAddress)", "module changed". Empty when the
    /// driver would be the same.
    std::string difference(const DriverSource& later) const;
};
