#pragma once

#include <string>

/// What keeps a driver of this network adapter from having an address: "no adapter eth7". An empty name is
/// that of the first adapter named eth... Empty when nothing does. Any thread; asks the kernel.
std::string adapterFault(const std::string& networkAdapter);
