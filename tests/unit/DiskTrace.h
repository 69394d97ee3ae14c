#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

/// What this program asks of the disk below one directory, call by call: its open, mkdir, write, ftruncate,
/// fsync, fdatasync, rename and unlink stand in the place of the C library's, and note what they pass on. One
/// at a time; calls on one thread.
class DiskTrace {
public:
    enum class EKind { MakeDirectory, Create, Write, Cut, SyncFile, SyncDirectory, Rename, Remove };
    struct Call {
        EKind kind;
        std::string path;
        std::string more = {};  ///< what is written, at the end of the file; the new name
        std::size_t size = 0;   ///< of the file that is cut
    };

    /// In the place of the call of that number, from 0, the process is killed; of a write half is done.
    explicit DiskTrace(std::string directory, std::optional<std::size_t> deathAt = std::nullopt);
    ~DiskTrace();
    DiskTrace(const DiskTrace&) = delete;
    DiskTrace& operator=(const DiskTrace&) = delete;

    const std::vector<Call>& calls() const { return m_calls; }

    /// For the calls that stand in: takes one that is about to be made, and is below the directory.
    static void note(Call call);
    static void noteOf(int file, EKind kind, std::string more = {}, std::size_t size = 0);

private:
    bool isBelow(const std::string& path) const;

    const std::string m_directory;
    const std::optional<std::size_t> m_deathAt;
    std::vector<Call> m_calls;
};
