#pragma once

#include "sal/Assert.h"
#include "sal/Export.h"

namespace sal {

/// The one instance of T in the process. T derives from SingletonDll<T>; whoever constructs the T owns it,
/// and the instance is known from its construction to its destruction. s_pInstance is defined in libsal
/// alone, so that host, module and drivers share it.
template <class T>
class SAL_API SingletonDll {
public:
    /// Asserts that the instance exists.
    static T* getInstance() {
        SAL_ASSERT(s_pInstance);
        return s_pInstance;
    }

protected:
    SingletonDll() = default;
    ~SingletonDll() = default;

    static T* s_pInstance;
};

}  // namespace sal
