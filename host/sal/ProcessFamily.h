#pragma once

#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "sal/Export.h"

namespace sal {

/// A child of createProcess with all that it has started and that its children have started, however often
/// they let their parents die. What is left of them when the child has ended can be ended, too.
///
/// A process belongs to it by its session, by the child's mark in the environment that it was started with,
/// by its parent, or because look() has seen it below the child. What has left the session, was started with
/// another environment and has lost its parent between two looks is not found. Any thread, one at a time.
class SAL_API ProcessFamily {
public:
    /// mark as Process::Started has it; empty for a process that has none.
    ProcessFamily(int pid, std::string mark);

    /// The calling process, with the mark that it was started with.
    static ProcessFamily ofThisProcess();

    bool hasMark() const { return !m_mark.empty(); }

    /// Notes who has left the session, and collects those that were ended and have become children of this
    /// process. Now and then while the process runs.
    void look();

    struct Member {
        int pid = 0;
        std::string name;
    };
    struct Result {
        std::vector<Member> ended;
        std::vector<Member> left;  ///< those that the system does not let this process end
        /// False when it could not be read who runs, as without a free descriptor: then there may be more.
        bool isWhole = true;
    };
    /// Kills all of them but the process itself and the calling one; within about 200 ms, even of one that
    /// starts new ones all the time, or a second where one is on its way into another program. The number of
    /// the process must not be another's yet: it is the calling one, runs, or has not been collected.
    Result endOthers();
    /// The process has been collected, and its number may come to be another's: from now on the others are
    /// known by their mark alone, and by what look() has seen.
    void forgetNumber() { m_pid = s_none; }

    /// Continues the stopped processes that were started with that word ("NAME=value") in their environment.
    /// Returns them. Any thread.
    static std::vector<Member> continueStopped(const std::string& word);

    /// Kills the processes that were started with that word and a child's mark in their environment, and
    /// those below them: what children have left that no ProcessFamily knows any more, since their parent has
    /// ended too. Returns them. Any thread.
    static std::vector<Member> endMarked(const std::string& word);

    /// The process and those that it descends from, itself first, without the calling process and those above
    /// that: as many of them as can be seen. Empty when the process itself cannot, or is gone; nothing while
    /// it cannot be told for want of descriptors or memory. Any thread.
    static std::optional<std::vector<int>> ancestry(int pid);
    /// Whether it is one of this user's processes that was started with the mark of a child of the calling
    /// process: a child, or started by one. Within about 20 ms; nothing as for ancestry(). Any thread.
    static std::optional<bool> hasMarkOfChild(int pid);

private:
    /// Nobody's number, parent or session; 0 is the kernel's.
    static constexpr int s_none = -1;

    /// A number alone may come to be another process's: with the time at which it was started it is the same.
    using Identity = std::pair<int, std::uint64_t>;

    struct Process;
    static std::vector<Process> processes();
    struct Patience;
    static std::string environmentOf(const Process& process, std::string_view begin, Patience& patience);
    static bool isMarked(const Process& process, const std::string& mark, Patience& patience);
    std::vector<Process> members(Patience& patience) const;
    void noteBelow(int pid, int depth, std::set<Identity>& noted) const;

    int m_pid;
    std::string m_mark;
    std::uint64_t m_started;  ///< 0 when it is not known
    std::set<Identity> m_noted;
};

}  // namespace sal
