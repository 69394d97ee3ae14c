#pragma once

#include <string>
#include <vector>

#include "DriverTable.h"
#include "EInterfaceTypes.h"
#include "sal/MessageQueue.h"

/// How a driver is, for operators: its state in words, and whether somebody starts its process by hand. Any
/// thread.
std::string driverStatus(const DriverTable::Driver& driver,
                         const std::vector<sal::MessageQueue::Status>& queues);

/// "direct", "queue", "socket" or "none".
const char* inWords(EInterfaceTypes type);
