#pragma once

#include <atomic>
#include <chrono>
#include <memory>
#include <string>
#include <string_view>
#include <thread>

#include "IDriverSide.h"
#include "MessageReader.h"
#include "MessageWriter.h"
#include "Story.h"
#include "UniqueFd.h"
#include "sal/MessageQueue.h"

namespace mfd::testing {

/// The driver in a process of its own behind real queues. One thread reads what the driver sends, another
/// what its process writes to standard error.
class ProcessSide final : public IDriverSide {
public:
    ProcessSide(std::string module, std::string wrapper, std::chrono::milliseconds patience, Story& story);
    ~ProcessSide() override;

    std::string start(const Configuration& configuration) override;
    std::string stop() override;
    std::string kill() override;
    std::string refuseFids(bool refused) override;
    bool send(const std::string& fid, const FIDParameterList& parameters) override;
    bool isRunning() const override;

private:
    bool send(const protocol::MessageWriter& message);
    std::string waitUntilUp(const std::string& queue) const;
    /// Waits for the process, ends it where it does not end, and lets go of all that belongs to it. How it
    /// ended, as a reason: empty for exit code 0.
    std::string reap(std::chrono::milliseconds patience);
    bool hasEnded(std::chrono::milliseconds patience) const;
    void readReports();
    void readErrors();
    void note(protocol::MessageReader& message);
    void noteError(std::string_view line);

    const std::string m_module;
    const std::string m_wrapper;
    const std::chrono::milliseconds m_patience;
    Story& m_story;
    std::string m_driverID;
    std::unique_ptr<sal::MessageQueue> m_pInput;
    std::unique_ptr<sal::MessageQueue> m_pOutput;
    base::UniqueFd m_process;
    base::UniqueFd m_errors;
    std::atomic<bool> m_ends{false};
    std::thread m_reportReader;
    std::thread m_errorReader;
};

}  // namespace mfd::testing
