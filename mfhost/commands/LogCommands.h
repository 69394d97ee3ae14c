#pragma once

#include <functional>
#include <ostream>
#include <string>
#include <vector>

#include "LogMemory.h"
#include "sal/CmdParameters.h"

/// The console command "log": the last lines of the log, of all or of one driver, and that driver's last
/// words. Owned by CommandShell; outlives every executed line. Any thread.
class LogCommands {
public:
    struct Context {
        const LogMemory& memory;
        std::function<std::ostream&()> reply;  ///< of the running command
        std::function<std::vector<std::string>()> driverIDs;
        std::function<void()> refused = [] {};  ///< the running command has not done what it was to do
    };

    explicit LogCommands(Context context) : m_context(std::move(context)) {}

    /// Adds the command to the command processor.
    void registerCommands();

    /// Whether answer() takes these words, the command's name first.
    static bool areMeantBy(const std::vector<std::string>& words);
    /// Executes them outside the command processor.
    void answer(std::vector<std::string> words);

private:
    bool log(sal::CmdParameters& parameters);
    void print(const LogMemory::Query& query) const;
    void sayUnknown(const std::string& driverID, const std::vector<std::string>& driverIDs) const;

    const Context m_context;
};
