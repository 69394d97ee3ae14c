#pragma once

#include <sys/stat.h>
#include <sys/types.h>

#include <string>

#include "UniqueFd.h"

/// The file .mfhost/lock in a directory, whose lock keeps the directory for one process. It lies in a
/// subdirectory, since a start removes all but full ones, and is open to its owner alone. Owned by
/// DataDirectoryLock; main thread; one a directory.
///
/// A record lock belongs to the process and not to the open file: no child that a driver of this process
/// forks holds it, however it was made, and the kernel names the real holder. It is lost when its process
/// closes any descriptor of the file, as a driver there may do: so the file also says which process has it,
/// and nobody else gets it while that one lives.
class LockFile {
public:
    explicit LockFile(const std::string& directory);
    ~LockFile();  ///< removes the file and lets another process have the directory
    LockFile(const LockFile&) = delete;
    LockFile& operator=(const LockFile&) = delete;

    /// Empty when this process has the lock; else why not, and which process has it. The descriptor is the
    /// directory's; the caller keeps it open as long as the lock.
    std::string acquire(int directory);
    /// Whether that was since another process has it.
    bool isTaken() const { return m_isTaken; }

    /// The subdirectory's name.
    static constexpr const char* s_place = ".mfhost";

private:
    enum class EAttempt { Done, Again, Failed };

    EAttempt tryOnce();
    EAttempt openPlace();
    EAttempt openFile();
    EAttempt lockFile();
    EAttempt askRecord();
    EAttempt takenBy(pid_t pid);
    void writeRecord() const;
    EAttempt replaceForeign();
    bool isStillThere() const;
    void removeFile() const;
    void closeBoth();
    EAttempt failed(const std::string& reason);

    const std::string m_path;  ///< of the subdirectory
    int m_directory = -1;
    base::UniqueFd m_place;
    base::UniqueFd m_file;     ///< closed before the directory
    uid_t m_owner = 0;         ///< of what is there
    bool m_isForeign = false;  ///< another user has made it, or can open it
    bool m_isLocked = false;
    bool m_isTaken = false;  ///< by another process
    std::string m_reason;
};
