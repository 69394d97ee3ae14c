#pragma once

#include <string>

#include "WorkplaceFile.h"

/// A driver as the workplace file has it: of the type Axis in version 1.0.
inline WorkplaceFile::Entry configuredDriver(const std::string& driverID, EInterfaceTypes interfaceType) {
    WorkplaceFile::Entry entry;
    entry.driverID = driverID;
    entry.driverType = "Axis";
    entry.version = "1.0";
    entry.interfaceType = interfaceType;
    return entry;
}
