#pragma once

#include <sys/types.h>

#include <cstdint>
#include <filesystem>
#include <string>

/// Does to the queue of a driver process what any process of the same user may do, in a process of its own.
/// Made by Trial for one fault.
class QueueMeddler {
public:
    enum class EDamage {
        Indices,     ///< random bytes over all that changes in the header
        Everything,  ///< the same over the tables and messages as well
        CutShort,    ///< the file ends after a few bytes
        Ticket       ///< its senders' lock bears the ticket of one who lives, and never lets go
    };

    /// The queue of that name that the process has open.
    QueueMeddler(pid_t process, const std::string& queue);

    /// Whether there is such a queue.
    explicit operator bool() const { return !m_file.empty(); }
    /// Where its name stands.
    std::filesystem::path directory() const { return m_file.parent_path(); }

    /// False when it could not be done.
    bool damage(EDamage how, std::uint32_t seed) const;

private:
    std::filesystem::path m_file;
};
