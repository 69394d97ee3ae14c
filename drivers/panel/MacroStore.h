#pragma once

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "IMacroSystem.h"

/// Keeps macros on disk, one text file a macro in one directory. Owned by the macro system, which calls it on
/// one thread at a time. A file is replaced whole or not at all, whatever happens to the machine meanwhile.
/// Everything that goes wrong is reported with the file, the line, and what would be right.
///
///   macro 1
///   250 AXIS1.MOVE x=10 mode=very%20slow     milliseconds, FID, parameters; bytes that part these are %XX
///   end
class MacroStore {
public:
    using Steps = std::vector<MacroStep>;
    using Report = std::function<void(const std::string& text)>;

    MacroStore(std::string directory, Report report);

    /// Whether a macro may have the name: 1 to 80 bytes, none of them a control character.
    static bool isValidName(std::string_view name);

    /// The macros by name. A file that cannot be read is reported and left out; nothing comes back when the
    /// directory cannot be read.
    std::optional<std::map<std::string, Steps>> readAll() const;

    /// Both false, with a report, when the system refuses. Removing what is not there succeeds.
    bool write(const std::string& name, const Steps& steps) const;
    bool remove(const std::string& name) const;

private:
    std::string pathOf(const std::string& fileName) const;
    std::optional<Steps> readFile(const std::string& path) const;
    bool syncDirectory() const;

    std::string m_directory;
    Report m_report;
};
