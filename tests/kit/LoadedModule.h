#pragma once

#include <dlfcn.h>

#include <memory>
#include <stdexcept>
#include <string>

#include "IInterface.h"
#include "sal/DriverModule.h"

/// A driver module as a loader meets it; unmapped with the object.
class LoadedModule {
public:
    explicit LoadedModule(const std::string& path)
        : m_pHandle(::dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL)) {
        if (!m_pHandle)
            throw std::runtime_error(::dlerror());
    }
    LoadedModule(const LoadedModule&) = delete;
    LoadedModule& operator=(const LoadedModule&) = delete;
    ~LoadedModule() { ::dlclose(m_pHandle); }

    static bool isMapped(const std::string& path) {
        void* pHandle = ::dlopen(path.c_str(), RTLD_NOW | RTLD_NOLOAD);
        if (pHandle)
            ::dlclose(pHandle);
        return pHandle != nullptr;
    }

    unsigned int abi() const { return *static_cast<const unsigned int*>(symbol(MFD_DRIVER_ABI_SYMBOL)); }

    /// Gone before the module is.
    std::unique_ptr<IInterface> createDriver() const {
        return std::unique_ptr<IInterface>(
            reinterpret_cast<IInterface* (*)()>(symbol(MFD_DRIVER_FACTORY_SYMBOL))());
    }

private:
    void* symbol(const char* name) const {
        void* pSymbol = ::dlsym(m_pHandle, name);
        if (!pSymbol)
            throw std::runtime_error(::dlerror());
        return pSymbol;
    }

    void* m_pHandle;
};
