#pragma once

#include <cstdint>
#include <string>

/// Which build of a driver module lies in a file: by the build ID that the linker gave it, else by size and
/// time of change. A copy of the same build is no other one. A value; any thread.
struct ModuleIdentity {
    std::string path;
    bool isThere = false;
    std::string buildID;  ///< in hexadecimal digits; empty for a file without one
    std::uint64_t size = 0;
    std::int64_t changed = 0;  ///< in nanoseconds since 1970

    /// A file that is none, or cannot be read, is one that is not there.
    static ModuleIdentity of(const std::string& path);

    bool isSame(const ModuleIdentity& other) const { return path == other.path && text() == other.text(); }
    /// What two builds differ in, in words: "missing", "build 1f2e... of 16384 bytes".
    std::string text() const;
    /// The same for comparing, in 64 hexadecimal digits.
    std::string digest() const;
};
