#pragma once

#include <string>

#include "DescriptorCatalogue.h"
#include "WorkplaceFile.h"

/// What keeps the driver of this entry from being loaded, as far as it can be seen: no descriptor, no
/// adapter, no module file. In words, for the end of a line ("no adapter eth7"); empty where nothing can be
/// seen. Command thread.
std::string startFault(const WorkplaceFile::Entry& entry, const DescriptorCatalogue& catalogue);
