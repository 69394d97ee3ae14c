#pragma once

#include <string_view>
#include <vector>

/// A file that "mfctl new-driver" writes. In name and text @NAME@ stands for the driver's name in small
/// letters, @UPPER@ for it in capitals, @TYPE@ for its type.
struct DriverTemplate {
    std::string_view name;
    std::string_view text;
};

/// What lies in mfctl/newdriver/, in the order in which it is written. The build makes it.
std::vector<DriverTemplate> driverTemplates();
