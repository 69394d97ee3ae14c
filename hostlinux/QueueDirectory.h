#pragma once

#include <optional>
#include <string>

#include "FileHandle.h"

namespace sal {

/// The directory that holds this user's queues: $MFD_QUEUE_DIR, else /dev/shm/mfd-UID. Made when missing;
/// refused when somebody else could have put something into it.
class QueueDirectory {
public:
    /// Nothing, and why, when there is no directory that is ours alone.
    static std::optional<QueueDirectory> open(std::string& error);

    /// The file name of a queue: letters, digits, "_", "-" and inner dots stand for themselves, every other
    /// byte is written %XX, so that no name leads out of the directory. Nothing, and why, when none fits.
    static std::optional<std::string> fileName(const std::string& queue, std::string& error);

    int descriptor() const { return m_handle.get(); }
    const std::string& path() const { return m_path; }
    void reset() { m_handle.reset(); }

private:
    QueueDirectory(FileHandle handle, std::string path)
        : m_handle(std::move(handle)), m_path(std::move(path)) {}

    FileHandle m_handle;
    std::string m_path;
};

}  // namespace sal
