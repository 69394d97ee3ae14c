#pragma once

#include <sys/types.h>

#include <filesystem>

/// A directory that is open to everybody or belongs to somebody else, for as long as it lives. Made by Trial.
class TakenDirectory {
public:
    enum class EHow { Opened, Anothers };

    TakenDirectory(std::filesystem::path directory, EHow how);
    ~TakenDirectory();  ///< puts it back
    TakenDirectory(const TakenDirectory&) = delete;
    TakenDirectory& operator=(const TakenDirectory&) = delete;

    /// False when it could not be taken.
    explicit operator bool() const { return m_isTaken; }

private:
    const std::filesystem::path m_directory;
    mode_t m_mode = 0;
    uid_t m_user = 0;
    gid_t m_group = 0;
    bool m_isTaken = false;
};
