#pragma once

#include <atomic>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "FaultPlan.h"
#include "MfdDriverBase.h"

/// Fails as it is told, by FIDs or by a plan for the stages of its life, so that a host can be tested: what
/// it notices, what it ends, what it starts again. Runs in the host's process or in one of its own; the
/// loader or the wrapper owns it. FIDs come on any thread; floods run on threads of their own.
class FaultyDriver : public MfdDriverBase {
public:
    FaultyDriver();
    ~FaultyDriver() override;

    bool sendFID(const std::string& fid, const FIDParameterList& parameters) const override;
    bool showState() const override;
    bool setConfiguration(int workplaceId, const std::string& driverID, const std::string& workingDirectory,
                          const std::string& ipAddress, const std::string& networkAdapter,
                          const std::string& virtualPanelAddress, const std::string& nvramDirectory) override;
    bool initializationCompleted() override;
    bool deinitialize() override;

private:
    bool ping(const FIDParameterList& parameters) const;
    bool report(const FIDParameterList& parameters) const;
    bool fillStore(const FIDParameterList& parameters) const;
    bool floodState(const FIDParameterList& parameters) const;
    bool floodFids(const FIDParameterList& parameters) const;
    bool sendGarbage(const FIDParameterList& parameters) const;
    bool leak(const FIDParameterList& parameters) const;
    bool plan(const FIDParameterList& parameters) const;
    bool stopAll(const FIDParameterList& parameters) const;

    /// For a FID that is none of the known ones.
    bool strike(const std::string& fid, const FIDParameterList& parameters, const std::string& known) const;
    bool refuse(const std::string& fid, const std::string& reason) const;
    /// The parameter's number; fallback when it is not given, -1 when it is no number from 0 to a million.
    static int number(const FIDParameterList& parameters, const std::string& name, int fallback);

    template <class Once>
    bool startFlood(int count, Once once) const;
    void stopFloods() const;

    mutable FaultPlan m_plan;
    std::vector<std::string> m_complaints;  ///< of the plan, until there is a driver ID to log them with

    mutable std::atomic<bool> m_isFlooding = false;
    mutable std::mutex m_mutex;
    mutable std::vector<std::thread> m_floods;
    mutable std::vector<std::vector<char>> m_memory;  ///< what was leaked
    mutable std::vector<int> m_descriptors;
};
