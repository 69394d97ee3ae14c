#pragma once

#include <set>
#include <string>

/// The bytes of a workplace file in which these drivers have a type that no descriptor announces: the module
/// unloads such a driver in order on its reload, and loads nothing. Their entries stand in a workplace of
/// their own before all others, where no fault of the file and no entry that holds up a reload comes before
/// them. The panel driver, which is started without an entry, gets one there where it is asked for: it is
/// reloaded by that. Bytes that the XML library does not take stay as they are, and so do those in which
/// nothing is to be changed. Any thread.
std::string withUnannounced(const std::string& bytes, const std::set<std::string>& driverIDs,
                            const std::string& unannouncedType, bool hasPanelEntry = false);
