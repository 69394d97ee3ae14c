#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "HostProcess.h"

/// A workplace of a test's own in a temporary directory: driver modules with descriptors, a configuration
/// file, a working directory. Removed with the object.
class TestWorkplace {
public:
    TestWorkplace();
    ~TestWorkplace();
    TestWorkplace(const TestWorkplace&) = delete;
    TestWorkplace& operator=(const TestWorkplace&) = delete;

    /// Where the build put programs, libraries, driver modules and the demo workplace.
    static std::filesystem::path build();

    const std::filesystem::path& directory() const { return m_directory; }
    std::filesystem::path drivers() const { return m_directory / "drivers"; }
    std::filesystem::path workdir() const { return m_directory / "work"; }
    std::filesystem::path configuration() const { return m_directory / "workplace.xml"; }

    /// Copies a test module and writes its descriptor: type as the module is named, version "1.0".
    void addModule(const std::string& name) const;
    /// Writes a descriptor without any module file.
    void describe(const std::string& type, const std::string& fileName) const;

    /// Writes a workplace 0 with these "mainframeDriver" elements.
    void configure(const std::string& entries) const;
    /// One such element of version 1.0, with the working directory data/ID.
    static std::string entry(const std::string& driverID, const std::string& type,
                             const std::string& interfaceType, const std::string& further = "");

    /// What starts an mfhost here: with the panel and the modules added, no sandbox, and these further
    /// options.
    HostProcess::Start host(const std::vector<std::string>& options = {}) const;

    /// Why an mfhost cannot have a sandbox of its own here; empty where it can.
    std::string sandboxFault() const;

private:
    std::filesystem::path m_directory;
};

/// Writes a file whole.
void writeFile(const std::filesystem::path& path, const std::string& text);
/// The same, so that others see either file whole.
void replaceFile(const std::filesystem::path& path, const std::string& text);
/// The file's text; empty when there is none.
std::string readFile(const std::filesystem::path& path);
