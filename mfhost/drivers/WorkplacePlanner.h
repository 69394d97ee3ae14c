#pragma once

#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "DescriptorCatalogue.h"
#include "DriverSource.h"
#include "WorkplacePlan.h"
#include "WorkplaceSnapshot.h"

/// Compares what runs with what the files of the workplace say now: the workplace file and its signature, the
/// descriptors, the modules. Each is looked at once. Owned by Workplace, used on the command thread.
class WorkplacePlanner {
public:
    struct Settings {
        std::string file;
        std::vector<std::string> driverDirectories;
        bool isSignatureRequired = false;
    };
    /// What runs.
    struct Running {
        const DescriptorCatalogue& catalogue;  ///< as the module has it
        const std::map<std::string, DriverSource>& sources;
        std::function<bool(const std::string& driverID)> isParked;
    };
    /// A plan, and what it was made from.
    struct Draft {
        WorkplacePlan plan;
        std::shared_ptr<const WorkplaceSnapshot> pWorkplace;
        DescriptorCatalogue catalogue;  ///< as the module would have it
        DescriptorCatalogue found;      ///< as the directories are now
        std::set<std::string> newDescriptors;
        std::vector<std::string> needRestart;         ///< what only a restart of the host takes over
        std::map<std::string, DriverSource> sources;  ///< of the entries' drivers and of the panel driver
        std::map<std::string, std::string> files;     ///< what was looked at: by path, what it was
    };

    explicit WorkplacePlanner(Settings settings) : m_settings(std::move(settings)) {}

    const Settings& settings() const { return m_settings; }

    /// What stands in the files, and of the workplace file in the snapshot, without a plan.
    static Draft look(std::shared_ptr<const WorkplaceSnapshot> pWorkplace, DescriptorCatalogue found,
                      const DescriptorCatalogue& known);
    /// The same with all files as they are now, and with what would change.
    Draft draft(const Running& running) const;
    /// The source of one driver with this file; with an empty module path where no descriptor announces its
    /// type.
    static DriverSource source(const WorkplaceSnapshot& workplace, const WorkplaceFile::Entry& entry,
                               const DescriptorCatalogue& catalogue);
    /// That of the panel driver, which needs no entry.
    static DriverSource panelSource(const WorkplaceSnapshot& workplace, const DescriptorCatalogue& catalogue);

    /// Remembers the draft as a plan that can be applied, and gives the plan its ID.
    void keep(Draft& draft);
    /// Why the plan of that ID must not be applied with the files as this draft found them; empty when it
    /// may.
    std::string outdated(const std::string& planID, const Draft& now) const;

private:
    struct Kept {
        std::string id;
        std::map<std::string, std::string> files;
    };

    std::string refusal(const Draft& draft) const;
    static void compare(Draft& draft, const Running& running);

    const Settings m_settings;
    unsigned int m_number = 0;
    std::vector<Kept> m_kept;  ///< the last plans, oldest first
};
