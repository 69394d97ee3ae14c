#pragma once

#include <atomic>
#include <filesystem>
#include <mutex>
#include <string>
#include <vector>

#include "../system/HostProcess.h"
#include "../system/Workplace.h"

/// The workplace of a chaos run: 20 drivers beside the panel, some in the host's process and some in their
/// own, and what is edited of it meanwhile. T are talkers, F fault drivers, S watch the machine. Owned by
/// Chaos; any thread.
class ChaosWorkplace {
public:
    enum class EBroken { DuplicateID, SlashInID, ForeignAttributeFirst, TooDeep };

    ChaosWorkplace();

    /// IDs of the drivers of these kinds, each a letter: T, F and S as above, L the fault driver in a process
    /// whose module has plans of its own, P the same in the host's process, E the one whose entry is edited,
    /// M the one whose mode is.
    static std::vector<std::string> members(const std::string& kinds, bool onlyProcesses);
    static std::vector<std::string> all() { return members("TFS", false); }
    static bool isTalker(const std::string& driverID) { return driverID.front() == 'T'; }
    /// Which of the talkers it is.
    static std::uint32_t indexOf(const std::string& driverID);
    static constexpr std::uint32_t s_talkers = 9;

    const std::filesystem::path& directory() const { return m_workplace.directory(); }
    std::filesystem::path ledgers() const { return directory() / "ledgers"; }
    std::filesystem::path temporary() const { return directory() / "tmp"; }
    /// What MFD_CHAOS_MARK says in the environment of each process of this run.
    std::string mark() const { return directory(); }

    /// The host's options that make its times short, so that many faults have room.
    static std::vector<std::string> settings();
    /// How a host is started here.
    HostProcess::Start host() const;

    /// Writes the configuration anew, with another working directory for S1.
    void moveDriver();
    /// Writes it anew, with S2 in the host's process or in its own.
    void setMode(bool isDirect);
    /// Writes one that no host takes; until restore().
    void breakConfiguration(EBroken how);
    void restore();

    /// Puts a new copy in the place of the module of that driver.
    void replaceModule(const std::string& driverID);
    /// Plans faults for loading that driver (L or P); nothing for an empty text.
    void planLoading(const std::string& driverID, const std::string& faults) const;
    /// The same for the further stages of a fault driver.
    void planStages(const std::string& driverID, const std::string& faults) const;

private:
    std::string entries() const;
    void write(const std::string& entries) const;
    static std::string moduleOf(const std::string& driverID);

    const Workplace m_workplace;
    std::mutex m_mutex;
    bool m_isMoved = false;
    bool m_isDirect = false;
    std::atomic<unsigned int> m_copies = 0;
};
