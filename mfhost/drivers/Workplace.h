#pragma once

#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "DescriptorSearch.h"
#include "DriverSource.h"
#include "DriverTable.h"
#include "ParkMarks.h"
#include "QueueTrial.h"
#include "WorkplaceAdmission.h"
#include "WorkplaceChanges.h"
#include "WorkplaceCopy.h"

class IMDMConfiguration;
class ProcessSupervisor;
class WorkplaceFile;
class WorkplaceSnapshot;

/// Changes which drivers run, always in the same way: the workplace file is read once, checked, rewritten for
/// the drivers that are parked and handed to the module, which then loads the driver anew; a driver that is
/// parked has a type there that no descriptor announces, so that the module unloads it and loads nothing.
/// Owned by Host, used on the command thread.
class Workplace {
public:
    struct Settings {
        std::string file;                            ///< empty for a workplace without a configuration
        std::vector<std::string> driverDirectories;  ///< with the descriptors
        std::string parkMarks;                       ///< the file that remembers who is parked
        std::string history = {};  ///< the directory of the states that were applied; empty to keep none
        bool isSignatureRequired = false;
        bool startsProcesses = true;                    ///< else they are started by hand
        std::string byHand = {};                        ///< with what the command for that begins
        std::chrono::milliseconds queuePatience{3000};  ///< how long a former host's process may keep a queue
    };

    struct Environment {
        /// The driver that the command thread is concerned with from now on; empty for none.
        std::function<void(const std::string& driverID)> concerns;
        /// The panel driver was loaded and has to hear that all drivers are started.
        std::function<void()> tellPanel;
        /// Why the module of that path could not be loaded, in the loader's words; empty where it could.
        /// As it was since they were forgotten, which is before each start and reload.
        std::function<std::string(const std::string& path)> loadFault = nullptr;
        std::function<void()> forgetLoadFaults = [] {};
    };

    Workplace(Settings settings, DriverTable& drivers, ProcessSupervisor& supervisor,
              Environment environment);
    ~Workplace();
    Workplace(const Workplace&) = delete;
    Workplace& operator=(const Workplace&) = delete;

    /// Reads and checks the file for a start; false, with the reasons in the log, when nothing may be started
    /// from it. Before the module is made.
    bool prepareStart();
    /// Has the module search the descriptors and start the panel driver and the drivers of the file that are
    /// not parked. False, with a line, when the panel driver does not start.
    bool start(IMDMConfiguration& module);
    /// The module is about to go: nothing more can be changed.
    void end() { m_pModule = nullptr; }

    /// Loads the driver anew with what the file says now. reloadByModule is what has the module do it. Why it
    /// is not done, after which all is as before; empty when it was.
    std::string reload(const std::string& driverID, const std::function<void()>& reloadByModule);
    /// The same by the module's own operation.
    std::string reload(const std::string& driverID);
    /// The same, and the driver's process waits for a debugger before it loads the driver. Why it is not
    /// done, or not possible; empty when it was.
    std::string debug(const std::string& driverID);
    /// Starts a driver again that ended without being asked to.
    void restart(const std::string& driverID);
    /// Unloads the driver, and keeps it so until unpark, over restarts of the host too. Needs nothing of the
    /// file. who has asked for it stands in the driver's cause; nobody is named for the console. Why it is
    /// not done, or empty.
    std::string park(const std::string& driverID, const std::string& who = {});
    /// Starts a driver that is parked, that has ended, or that is new in the file, with what that says now.
    /// Why it is not done, or empty. The mark of a driver that the file does not have is taken back all the
    /// same.
    std::string unpark(const std::string& driverID);

    /// What would change if the files were taken over as they are now.
    WorkplacePlan plan() { return m_changes.plan(); }
    /// Takes the files over as they are now: reloads what has changed, starts what is new, ends what is gone.
    /// A change that fails stops no other. With the ID of a plan only if no file has changed since it was
    /// made. Who is told in the log and in the history.
    Applied apply(const std::string& planID, const std::string& who) { return m_changes.apply(planID, who); }
    /// Writes the files of a state that was kept back to their places, and applies them; 0 is the state
    /// before the present one. Where the plan of these files is refused, the files from before are put back.
    /// What stands on disk and was not applied is kept as a state before.
    Applied undo(unsigned number, const std::string& who) { return m_changes.undo(number, who); }

    /// The states that were applied, oldest first.
    const std::vector<HistoryEntry>& history() const { return m_changes.history(); }
    /// The files of one, with their bytes; 0 is the present one. Nothing, with the reason in error, when
    /// there is none, or they are damaged.
    std::optional<WorkplaceState> historyState(unsigned number, std::string& error) const {
        return m_changes.historyState(number, error);
    }

    /// What the module was handed last says of the drivers; nothing before.
    std::vector<WorkplaceFile::Entry> entries() const;
    const DescriptorCatalogue& catalogue() const { return m_admission.catalogue(); }

    /// Where the parts of a driver lie, as far as the files say that the module was handed; empty where they
    /// do not.
    struct Place {
        std::string module;
        std::string descriptor;
        std::string directory;  ///< as the entry has it
        std::string ipAddress;
        std::string networkAdapter;
    };
    Place place(const std::string& driverID) const;

private:
    using Draft = WorkplacePlanner::Draft;

    void configure(const WorkplaceFile& file);
    std::string refusal(const WorkplaceSnapshot& workplace, const std::string& driverID);
    std::string handToModule(std::shared_ptr<const WorkplaceSnapshot> pWorkplace,
                             const std::set<std::string>& leavingIDs = {}, bool hasPanelEntry = false);
    bool isParked(const std::string& driverID) const;
    std::set<std::string> unannounced(const std::set<std::string>& leavingIDs) const;
    void loadAnew(const WorkplaceSnapshot& workplace, const std::string& driverID,
                  const std::function<void()>& reloadByModule);
    std::string unload(const std::string& driverID, const std::string& cause);
    std::string unloadByModule(const std::string& driverID);
    std::string takeMarkBack(const std::string& driverID);
    std::string tryRestart(const std::string& driverID);
    std::string queueFault(const WorkplaceSnapshot& workplace, const std::string& driverID);
    void tellByHand(const DriverTable::Driver& driver) const;
    void endStart(const std::string& driverID, const std::string& queueFault = {});
    std::string sumUpStart();
    std::string seenFault(const std::string& driverID) const;
    std::string causeOf(const std::string& driverID) const;
    bool isUp(const std::string& driverID) const;
    DriverSource sourceOf(const WorkplaceSnapshot& workplace, const std::string& driverID) const;

    WorkplacePlanner::Running running() const;
    std::string change(const Draft& draft, const WorkplacePlan::Change& change);

    bool isProcessDriver(const DriverTable::Driver& driver) const;
    bool isDescribed(const std::string& type, const std::string& version) const;
    std::string unannouncedType() const;

    const Settings m_settings;
    DriverTable& m_drivers;
    ProcessSupervisor& m_supervisor;
    const Environment m_environment;
    WorkplaceAdmission m_admission;
    const DescriptorSearch m_search;
    WorkplaceChanges m_changes;
    QueueTrial m_queueTrial;
    ParkMarks m_parked;
    IMDMConfiguration* m_pModule = nullptr;
    /// What the module was handed last; null before.
    std::shared_ptr<const WorkplaceSnapshot> m_pHanded;
    /// What the drivers were loaded from that the module was asked to load and has not unloaded since.
    std::map<std::string, DriverSource> m_sources;
    std::unique_ptr<WorkplaceCopy> m_pCopy;  ///< none without a configuration
    bool m_isCopyNamed = false;
};
