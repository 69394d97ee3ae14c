#pragma once

#include <string>
#include <vector>

#include "EExit.h"
#include "Screen.h"

/// "mfctl new-driver": writes the project of a driver that is built against an installed kit, without asking
/// a host. Main thread.
class NewDriver {
public:
    explicit NewDriver(const Screen& screen) : m_screen(screen) {}

    /// Writes the files into the directory, which is made; empty for one that is named as the driver. Nothing
    /// is written where one of the files is there, or the name is no good (EExit::WrongUsage); what was
    /// written is taken back where a file cannot be.
    EExit write(const std::string& name, const std::string& directory) const;

    /// What is wrong with a name, and what would be right; empty when nothing is.
    static std::string nameFault(const std::string& name);

    struct File {
        std::string name;
        std::string text;
    };
    /// The files of a driver of that name, which is right.
    static std::vector<File> files(const std::string& name);

private:
    const Screen& m_screen;
};
