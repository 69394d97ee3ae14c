#pragma once

#include <string>

#include "Table.h"

/// The colour of a driver's status, which is given as operators see it: "running", "ended", "parked". Any
/// thread.
base::Table::EColour driverColour(const std::string& status);
