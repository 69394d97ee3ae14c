#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "HostProcess.h"
#include "TestWorkplace.h"

/// The workplace of a chaos run: up to 20 drivers beside the panel, some in the host's process and some in
/// their own, and what is edited of it meanwhile. T are talkers, F fault drivers, S watch the machine. Owned
/// by Chaos; any thread.
class ChaosWorkplace {
public:
    /// What may be wrong with the workplace file: what no host takes, and what is no whole file.
    enum class EBroken {
        DuplicateID,
        SlashInID,
        ForeignAttributeFirst,
        TooDeep,
        Missing,
        Empty,
        CutShort,
        IllFormed,
        LinkLoop
    };
    static constexpr std::uint32_t s_brokenKinds = 9;

    /// The host's time-outs as short as they can be, so that many faults have room, or as they are by
    /// default.
    enum class ETimes { Short, Default };

    /// With these drivers alone.
    explicit ChaosWorkplace(ETimes times = ETimes::Short,
                            std::vector<std::string> drivers = members("TFS", false));

    /// IDs of the drivers of these kinds, each a letter: T, F and S as above, L the fault driver in a process
    /// whose module has plans of its own, P the same in the host's process, E the one whose entry is edited,
    /// M the one whose mode is.
    static std::vector<std::string> members(const std::string& kinds, bool onlyProcesses);
    static bool isTalker(const std::string& driverID) { return driverID.front() == 'T'; }
    static bool isProcess(const std::string& driverID);
    /// What is typed to have the driver answer with that number.
    static std::string ping(const std::string& driverID, std::uint32_t number);

    const std::vector<std::string>& drivers() const { return m_drivers; }
    std::vector<std::string> talkers() const;
    /// Which of the talkers it is.
    std::uint32_t indexOf(const std::string& driverID) const;

    const std::filesystem::path& directory() const { return m_workplace.directory(); }
    std::filesystem::path workdir() const { return m_workplace.workdir(); }
    /// Where the driver modules are that a host loads.
    std::filesystem::path modules() const { return m_workplace.drivers(); }
    std::filesystem::path ledgers() const { return directory() / "ledgers"; }
    std::filesystem::path temporary() const { return directory() / "tmp"; }
    /// What MFD_CHAOS_MARK says in the environment of each process of this run.
    std::string mark() const { return directory(); }

    /// The host's options of time.
    std::vector<std::string> settings() const;
    std::chrono::seconds hangTimeout() const;
    /// How a host is started here.
    HostProcess::Start host() const;
    const std::filesystem::path& file() const { return m_file; }

    /// Writes the configuration anew, with another working directory for S1.
    void moveDriver();
    /// Writes it anew, with S2 in the host's process or in its own.
    void setMode(bool isDirect);
    /// Writes it without the driver, or with it again.
    void setEntry(const std::string& driverID, bool isIn);
    /// Those that stand in it when it is whole.
    std::vector<std::string> configured() const;
    /// Puts something else in its place; until restore().
    void breakConfiguration(EBroken how);
    void restore();
    /// The same configuration, in other bytes.
    void rewrite();

    /// Puts a new copy in the place of the module of that driver.
    void replaceModule(const std::string& driverID);
    /// Plans faults for loading that driver (L or P); nothing for an empty text.
    void planLoading(const std::string& driverID, const std::string& faults) const;
    /// The same for the further stages of a fault driver.
    void planStages(const std::string& driverID, const std::string& faults) const;

private:
    std::string entries() const;
    std::string text(const std::string& entries) const;
    void write(const std::string& entries) const;
    static std::string moduleOf(const std::string& driverID);

    const TestWorkplace m_workplace;
    const std::filesystem::path m_file;
    const ETimes m_times;
    const std::vector<std::string> m_drivers;
    mutable std::mutex m_mutex;
    std::set<std::string> m_takenOut;
    bool m_isMoved = false;
    bool m_isDirect = false;
    std::atomic<unsigned int> m_copies = 0;
    unsigned int m_rewrites = 0;
};
