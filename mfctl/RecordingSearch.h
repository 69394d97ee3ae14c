#pragma once

#include <string>
#include <utility>
#include <vector>

#include "HostSocket.h"
#include "Screen.h"

/// Where the recording of a host lies.
struct RecordingPlace {
    std::string ring;       ///< the file of its rings; empty for none
    std::string directory;  ///< of its segments; empty for none
};

/// Finds the recording that is meant: the one that is named, that of the host that is meant, or, where no
/// host answers, the newest one that hosts have left here. Main thread.
class RecordingSearch {
public:
    struct Settings {
        std::string sharedMemory = "/dev/shm";
        std::string queueDirectory;  ///< where hosts were told to have their queues; may be empty
        std::string current = ".";   ///< in which a host may have had its working directory
        std::string services = "/var/lib/mfhost";  ///< has the working directories of services
        std::string proc = "/proc";
    };
    /// What was said on the command line.
    struct Choice {
        std::string host;
        std::string ring;
        std::string directory;
    };
    explicit RecordingSearch(const Screen& screen, HostSocket socket = HostSocket::ofMachine())
        : RecordingSearch(screen, std::move(socket), ofMachine()) {}
    RecordingSearch(const Screen& screen, HostSocket socket, Settings settings)
        : m_screen(screen), m_socket(std::move(socket)), m_settings(std::move(settings)) {}

    /// Says in a line on standard error where no host answers. Throws a ControlError: nothing is there (3),
    /// several hosts answer (2), what is there may not be looked at (4).
    RecordingPlace find(const Choice& choice) const;

    /// The name of a file of rings beside queues.
    static constexpr const char* s_ringName = "stream.ring";
    /// The name of the file beside it whose first line is the directory of the segments.
    static constexpr const char* s_placeName = "stream.place";
    /// The name of a directory of segments in a host's working directory.
    static constexpr const char* s_directoryName = "recording";

private:
    static Settings ofMachine();
    RecordingPlace ofHost(const std::string& host) const;
    RecordingPlace left(const std::string& host) const;
    std::string newestRing(std::string& fault) const;
    std::string leftDirectory(const std::string& host, const std::string& ring) const;

    const Screen m_screen;
    const HostSocket m_socket;
    const Settings m_settings;
};
