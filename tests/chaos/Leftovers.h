#pragma once

#include <sys/types.h>

#include <filesystem>
#include <map>
#include <set>
#include <string>
#include <vector>

/// What stands on the machine outside the processes of a host, at one moment: files, links, addresses,
/// mounts, sockets. Made by Chaos; what is there later and was not before is left over.
class Leftovers {
public:
    /// Looks for files and links in these directories, at the network and at the mounts.
    static Leftovers of(const std::vector<std::filesystem::path>& directories);
    /// Looks for files, links and directories in these directories alone.
    static Leftovers below(const std::vector<std::filesystem::path>& directories);

    /// Without what a host keeps there: states to go back to by number, with the files that they name, and
    /// what it has recorded.
    Leftovers withoutHistory(const std::filesystem::path& directory) const;
    /// What this one has and the other has not, a line each.
    std::vector<std::string> beyond(const Leftovers& other) const;
    std::vector<std::string> lines() const { return {m_lines.begin(), m_lines.end()}; }

    /// All processes that share a namespace of mounts or of the network with this one, or bear the mark in
    /// their environment; not this one itself, nor its helper. Whatever environment or parent they have given
    /// themselves. Each with its command line.
    static std::map<pid_t, std::string> processes(const std::string& mark);
    static void setHelper(pid_t pid);
    /// Those of them that are not stopped.
    static std::map<pid_t, std::string> running(const std::string& mark);
    /// Whether nobody but what was started from here shares these namespaces.
    static bool isPrivateMachine();
    /// Those that bear this name. A driver's orphans call themselves so.
    static std::set<pid_t> named(const std::string& name);

private:
    std::set<std::string> m_lines;
};
