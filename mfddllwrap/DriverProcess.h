#pragma once

#include <atomic>
#include <memory>
#include <string>

#include "DriverCalls.h"
#include "HostWatch.h"
#include "IFunctionID.h"
#include "IMFDConfiguration.h"
#include "WrapperOptions.h"
#include "sal/LogOutput.h"
#include "sal/MessageQueue.h"
#include "sal/ProcessFamily.h"

/// One driver module behind two queues, from its load to its end. Made by main and run once, on the main
/// thread, which makes all calls of the driver's two interfaces.
class DriverProcess {
public:
    explicit DriverProcess(const WrapperOptions& options);
    ~DriverProcess();
    DriverProcess(const DriverProcess&) = delete;
    DriverProcess& operator=(const DriverProcess&) = delete;

    /// Once. Returns the exit code: 0 when the driver was stopped in order, 1 when it could not be had or its
    /// queue broke.
    int run();

private:
    class HostProcess;
    enum class EStop { Run, StopWhenEmpty, StopNow };

    /// One line about what the module answers; false when that is nothing.
    bool reportInterfaces(const IMFDConfiguration* pConfiguration, const IFunctionID* pFunctionID) const;
    /// Hands the host's messages to the driver until it is to stop; returns the exit code.
    int serve(DriverCalls& calls, HostWatch& watch);
    /// Makes serve() return, at the latest when the driver comes back from the call it is in. Any thread.
    void requestStop(EStop stop);
    [[noreturn]] void endOverdue();
    /// What the driver has started ends with it. The host sees to that as long as it is there.
    void endLeftBehind();

    const WrapperOptions m_options;
    sal::LogOutput* m_pLog;
    // Shared with the thread that waits for the host's end and may outlive this object.
    std::shared_ptr<sal::MessageQueue> m_pInput;
    sal::MessageQueue m_output;
    std::atomic<EStop> m_stop = EStop::Run;
    // As it was when the process started: the driver may change its environment.
    sal::ProcessFamily m_family = sal::ProcessFamily::ofThisProcess();
};
