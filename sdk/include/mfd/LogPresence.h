#pragma once

#include "sal/LogManager.h"

namespace mfd {

/// Whether the program has a log: each host has one, a test of a driver alone need not. Any thread.
class LogPresence : private sal::SingletonDll<sal::LogManager> {
public:
    static bool isThere() { return s_pInstance != nullptr; }
};

}  // namespace mfd
