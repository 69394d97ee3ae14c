#pragma once

#include <string>

namespace sal {

/// A shared library mapped into the process; unmapped by close() or the destructor, unless something keeps
/// its code. Movable; one owner, one thread at a time.
class DynamicLibrary {
public:
    DynamicLibrary() = default;
    ~DynamicLibrary();
    DynamicLibrary(DynamicLibrary&& other) noexcept;
    DynamicLibrary& operator=(DynamicLibrary&& other) noexcept;

    /// Binds all symbols at once and shows none to others. When older code is mapped under this path and the
    /// file has been replaced since, the new file is mapped beside it. False with the reason in error.
    bool open(const std::string& path, std::string& error);

    /// Null with the reason in error when there is no such symbol.
    void* symbol(const char* name, std::string& error) const;

    /// Gives the library up. Why its code stays mapped all the same; empty when it does not.
    std::string close();

private:
    void* m_handle = nullptr;
};

}  // namespace sal
