#pragma once

#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>

/// A directory of the test's own, gone with the object.
class TemporaryDirectory {
public:
    TemporaryDirectory() {
        std::string pattern = (std::filesystem::temp_directory_path() / "mfd-test-XXXXXX").string();
        if (!::mkdtemp(pattern.data()))
            throw std::runtime_error("no temporary directory " + pattern);
        m_path = pattern;
    }
    TemporaryDirectory(const TemporaryDirectory&) = delete;
    TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;
    ~TemporaryDirectory() {
        std::error_code ignored;
        std::filesystem::remove_all(m_path, ignored);
    }

    std::string path(const std::string& name = {}) const {
        return name.empty() ? m_path : m_path + '/' + name;
    }

    /// Replaces the file whole, so that no reader sees half of it. Makes the directories above it.
    void write(const std::string& name, const std::string& content) const {
        std::filesystem::create_directories(std::filesystem::path(path(name)).parent_path());
        const std::string draft = path(".draft");
        {
            std::ofstream file(draft, std::ios::binary);
            file << content;
            if (!file.flush())
                throw std::runtime_error("cannot write " + draft);
        }
        std::filesystem::rename(draft, path(name));
    }

    std::string read(const std::string& name) const {
        std::ifstream file(path(name), std::ios::binary);
        std::ostringstream content;
        content << file.rdbuf();
        return content.str();
    }

    bool contains(const std::string& name) const { return std::filesystem::exists(path(name)); }

private:
    std::string m_path;
};
