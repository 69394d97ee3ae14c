#pragma once

#include <string>
#include <vector>

/// Texts that go to support in one file, each redacted as it is added. Main thread.
class SupportBundle {
public:
    struct Part {
        std::string name;
        std::string text;
        std::string what;  ///< for the list of contents
    };

    /// Plain text, and JSON, which is redacted by its members. What is empty, as of a process that has ended
    /// meanwhile, is left out.
    void add(const std::string& name, const std::string& text, const std::string& what);
    void addJson(const std::string& name, const std::string& json, const std::string& what);

    const std::vector<Part>& parts() const { return m_parts; }

    /// Writes them as FILE.tar.gz, readable by its owner alone. Replaces no file. Empty on success; else the
    /// path and why.
    std::string write(const std::string& path) const;

private:
    std::vector<Part> m_parts;
};
