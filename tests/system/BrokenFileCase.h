#pragma once

#include <filesystem>
#include <functional>
#include <ostream>
#include <string>

#include "TestWorkplace.h"

/// A way in which a workplace file is not whole, and what is said of it.
struct BrokenFileCase {
    const char* claim;
    /// Makes the file anew; the former one is gone.
    std::function<void(const std::filesystem::path& file)> makeIt;
    std::string reason;  ///< after the file's name

    friend std::ostream& operator<<(std::ostream& stream, const BrokenFileCase& broken) {
        return stream << broken.claim;
    }
};

inline BrokenFileCase missingFile() {
    return {"Missing", [](const std::filesystem::path&) {}, " cannot be read: No such file or directory"};
}

inline BrokenFileCase illFormedFile() {
    return {"IllFormed",
            [](const std::filesystem::path& file) {
                writeFile(file, "<workplaces>\n<workplace id=\"0\">\n</workplaces>");
            },
            " line 3: Error reading end tag"};
}

inline BrokenFileCase directoryAsFile() {
    return {"Directory", [](const std::filesystem::path& file) { std::filesystem::create_directory(file); },
            " is no regular file"};
}
