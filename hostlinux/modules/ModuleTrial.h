#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <mutex>
#include <set>
#include <string>
#include <tuple>

namespace sal {

/// Tries driver modules out in a process that ends with them, and remembers the files that passed. Owned by
/// the module loader; any thread. A file that failed is tried again each time: what it failed of may lie
/// outside of it.
class ModuleTrial {
public:
    struct Settings {
        std::string program;
        std::chrono::milliseconds deadline{10000};  ///< 0 tries nothing out

        /// mfdprobe beside the running program; MFD_PROBE_TIMEOUT seconds.
        static Settings ofProcess();
    };
    explicit ModuleTrial(Settings settings);

    /// Why the module must not be loaded; empty when it may, which includes that it cannot be tried out.
    /// Waits for the trial.
    std::string refusal(const std::string& path);

    /// Why the module cannot be loaded, in the words of the loader that found it out or of the trial that it
    /// did not survive; empty when it can, and where it cannot be tried out. Each time anew; waits for it.
    std::string fault(const std::string& path);

private:
    /// Device, inode, size, and time of change.
    using File = std::tuple<dev_t, ino_t, off_t, std::int64_t, std::int64_t>;

    struct Outcome {
        bool hasAnswered = false;
        std::string refusal;    ///< why it must not be loaded: it did not survive the trial
        std::string loadFault;  ///< why the loader will refuse it
    };

    Outcome tryOut(const std::string& path);
    bool hasPassed(const File& file) const;
    void sayUntried(const std::string& path, int error);

    const Settings m_settings;
    mutable std::mutex m_mutex;
    std::set<File> m_passed;
    bool m_isAbsenceSaid = false;
};

}  // namespace sal
