#pragma once

#include <string>
#include <vector>

namespace sal {

/// The environment of a child process: this process's own, and before it a mark that no other child has. All
/// that the child starts inherits it, so that it can be told whose it is. Owned by the function that starts
/// the child.
class MarkedEnvironment {
public:
    /// How a mark begins.
    static constexpr const char* s_begin = "MFD_PROCESS=";

    /// further entries are "NAME=value", in place of what this process has under these names.
    explicit MarkedEnvironment(std::vector<std::string> further = {});
    MarkedEnvironment(const MarkedEnvironment&) = delete;
    MarkedEnvironment& operator=(const MarkedEnvironment&) = delete;

    /// For an exec.
    char* const* get() const { return m_words.data(); }
    /// "MFD_PROCESS=..."
    const std::string& mark() const { return m_entries.front(); }

    /// How the marks of this process's children begin, and no others.
    static std::string beginOfChildren();
    /// That of this process itself; empty when it has none.
    static std::string ownMark();

private:
    std::vector<std::string> m_entries;
    std::vector<char*> m_words;
};

}  // namespace sal
