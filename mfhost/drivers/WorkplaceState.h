#pragma once

#include <optional>
#include <string>
#include <vector>

/// The files of a workplace at one moment, as they are kept and given back: the workplace file with its
/// signature, and the descriptors and modules of its drivers. A value; any thread.
struct WorkplaceState {
    enum class EKind { Workplace, Signature, SigningRecord, Descriptor, Module };
    struct File {
        EKind kind = EKind::Module;
        std::string path;
        std::string identity;              ///< of a module, as ModuleIdentity::digest gives it
        std::optional<std::string> bytes;  ///< nothing where it was too large to be kept
    };

    std::vector<File> files;

    /// Null where there is none of that kind.
    const File* find(EKind kind) const {
        for (const File& file : files) {
            if (file.kind == kind)
                return &file;
        }
        return nullptr;
    }
};
