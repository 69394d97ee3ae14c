#pragma once

#include <string>

/// A driver that is a program of its own, in whatever language, and serves the queues itself (libmfdqueue).
/// Main thread, before the process has another one.
namespace driverprogram {

/// Whether the module is such a one: an executable file whose name does not end in ".so".
bool isProgram(const std::string& modulePath);

/// The process becomes the program, with the driver ID as its argument: its number, its mark and its streams
/// stay as the host knows them. Returns only with the reason why not.
std::string become(const std::string& modulePath, const std::string& driverID);

}  // namespace driverprogram
