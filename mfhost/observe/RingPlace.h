#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "StreamRing.h"
#include "StreamSource.h"
#include "UniqueFd.h"

/// Where the rings of a host lie: stream.ring beside its queues, where MFD_QUEUE_DIR names a directory on a
/// file system in memory, else in a directory of its own, /dev/shm/mfd-UID-ring-XXXXXX; where there is no
/// room, in memory without a name. Made by main before a sandbox is entered; main thread, but for
/// removeNow().
class RingPlace {
public:
    struct Settings {
        bool isWanted = true;  ///< else there is no ring
        bool isFile = true;
        std::optional<std::size_t>
            size;                    ///< of both rings; nothing: as much as there is room for, 64 MB at most
        std::string queueDirectory;  ///< MFD_QUEUE_DIR; empty where it is not set
        std::string recording;       ///< the directory of the segments: for who finds the file later
        std::string parent = "/dev/shm";
    };

    /// What hosts of this user that have died have left. The files stay, shut to other hosts, until remove():
    /// what is killed before it has kept this elsewhere leaves it to the next one.
    struct Left {
        std::unique_ptr<stream::StreamSource> pSource;  ///< in memory
        std::string recording;                          ///< the directory of their segments
        base::UniqueFd directory = {};                  ///< of the files; locked
        base::UniqueFd parent = {};
        std::string name = {};  ///< of the directory in its parent

        /// Also out of a sandbox. Does nothing where there are no files.
        void remove();
    };
    /// Reads all of it. What a process writes stays.
    static std::vector<Left> takeLeft(const Settings& settings);

    /// Where there is room for either, the files of what was left go.
    explicit RingPlace(const Settings& settings, std::span<Left> left = {});
    /// The file goes in order.
    ~RingPlace();
    RingPlace(const RingPlace&) = delete;
    RingPlace& operator=(const RingPlace&) = delete;

    /// Null where there is no memory for it at all.
    stream::StreamRing* ring() const { return m_pRing.get(); }
    /// Of the file; empty where there is none.
    const std::string& path() const { return m_path; }
    /// Why it is not as was asked for; empty where it is.
    const std::string& warning() const { return m_warning; }

    /// Removes the file's name before an _exit(). Any thread.
    void removeNow();

    /// The smallest size that can be asked for.
    static constexpr std::size_t s_smallest = std::size_t{256} << 10;
    static constexpr const char* s_fileName = "stream.ring";

private:
    bool openIn(const std::string& directory, std::size_t size);
    bool makeDirectory(const Settings& settings);
    void useMemory(std::size_t size);

    std::unique_ptr<stream::StreamRing> m_pRing;
    std::string m_instance;
    std::string m_path;
    std::string m_warning;
    std::string m_ownDirectory;  ///< its name in the parent; empty for the queues' directory
    base::UniqueFd m_directory;  ///< also out of a sandbox
    base::UniqueFd m_parent;
};
