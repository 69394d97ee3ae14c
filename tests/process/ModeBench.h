#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "EInterfaceTypes.h"
#include "FIDParameterList.h"
#include "IFunctionID.h"
#include "IMDMConfiguration.h"
#include "MfDriverManager.h"
#include "ModeHost.h"
#include "ModeSupervision.h"
#include "Workbench.h"
#include "sal/CmdProcessor.h"

/// A machine of the test's own, entered before anything of the test is made.
struct ModeMachine {
    ModeMachine();
    std::string missing;  ///< empty when the test may run
};

/// The manager with the real host framework, and drivers that record and act, in either mode.
class ModeBench : private ModeMachine, public Workbench {
public:
    using Parameters = std::vector<std::pair<std::string, std::string>>;

    struct Entry {
        int workplace = 0;
        std::string workingDirectory = "data/A";
        std::string ipAddress = {};
        std::string networkAdapter = {};
    };

protected:
    ModeBench();
    void SetUp() override;
    void TearDown() override;

    std::string workdir() const { return directory / "work"; }

    /// What the drivers do inside their operations, for all that are loaded from now on.
    static void acts(const std::string& text);

    /// Loads a driver that records; false when the manager says so.
    bool load(EInterfaceTypes mode, const std::string& driverID, const Entry& entry);
    /// Whether a start goes on as the processes come up.
    static bool waitsUntilAttached();
    /// The test is over only when the process of this driver is.
    void expectEndOf(const std::string& driverID) { m_processes.push_back(driverID); }
    /// Starts the panel driver and a workplace of these entries.
    bool startWorkplace(int workplace, const std::string& entries);
    /// Writes the workplace file anew.
    void configure(int workplace, const std::string& entries) const;
    static std::string entry(EInterfaceTypes mode, const std::string& driverID,
                             const std::string& driverType = "Puppet");
    bool reload(const std::string& driverID);
    /// Ends the manager and so all drivers. As a reload, it waits until the processes have come up: one that
    /// is not wanted any more before it has never makes its driver.
    void end();

    /// Sends as the host does.
    bool send(const std::string& fid, const Parameters& parameters = {}) const;
    IFunctionID& sender() const { return *m_pSender; }
    MfDriverManager& manager() { return *m_pManager; }

    /// The lines of the record that begin so.
    std::vector<std::string> recordOf(const std::string& beginning) const;
    /// Waits until the log has a line with this text.
    bool waitForLog(const std::string& text) const;
    std::string log() const;
    /// False when the condition has not come true before the hang guard.
    static bool eventually(const std::function<bool()>& condition);
    /// Lets those go on who wait for the file.
    std::string gate(const std::string& name) const { return directory / name; }
    void open(const std::string& gate) const;

    ModeHost host;

private:
    void waitUntilUp() const;

    std::unique_ptr<ModeSupervision> m_pSupervision;
    sal::CmdProcessor m_commands;
    std::unique_ptr<MfDriverManager> m_pManager;
    IMDMConfiguration* m_pConfiguration = nullptr;
    IFunctionID* m_pSender = nullptr;
    std::optional<StreamsToFiles> m_streams;
    std::vector<std::string> m_processes;  ///< IDs of the drivers in processes of their own
};
