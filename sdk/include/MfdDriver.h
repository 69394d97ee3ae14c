#pragma once

#include <type_traits>

#include "IFunctionID.h"
#include "IInterface.h"
#include "IMFDConfiguration.h"
#include "sal/DriverModule.h"

namespace mfd {

/// The IInterface of a new driver. A driver may have several IInterface parts; the one of its configuration
/// interface is taken first.
template <class Driver>
IInterface* asInterface(Driver* pDriver) {
    if constexpr (std::is_convertible_v<Driver*, IMFDConfiguration*>)
        return &static_cast<IInterface&>(static_cast<IMFDConfiguration&>(*pDriver));
    else if constexpr (std::is_convertible_v<Driver*, IFunctionID*>)
        return &static_cast<IInterface&>(static_cast<IFunctionID&>(*pDriver));
    else
        return pDriver;
}

}  // namespace mfd

/// Makes a shared library a driver module: written once, outside any namespace, in one source file. Driver is
/// default-constructible; the loader makes it with this and deletes it through its IInterface.
#define MFD_DRIVER(Driver)                                                         \
    extern "C" {                                                                   \
    __attribute__((visibility("default"))) extern const unsigned int mfdDriverAbi; \
    const unsigned int mfdDriverAbi = MFD_DRIVER_ABI;                              \
    __attribute__((visibility("default"))) IInterface* mfdCreateDriver();          \
    IInterface* mfdCreateDriver() {                                                \
        return ::mfd::asInterface(new Driver);                                     \
    }                                                                              \
    }                                                                              \
    static_assert(true, "a semicolon may follow")
