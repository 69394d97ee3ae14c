#pragma once

#include <memory>

#include "DriverTable.h"
#include "ProcessSupervisor.h"
#include "StateStore.h"

/// The host's supervision of driver processes, for a start that waits as mfhost's does. It ends and starts
/// nobody by itself. Owned by ModeBench, on whose thread it is made and goes.
class ModeSupervision {
public:
    /// As the environment says: MFD_TEST_START_WAIT is "second" or "attached"; null without it.
    static std::unique_ptr<ModeSupervision> asAsked();

    explicit ModeSupervision(bool waitsUntilAttached);
    ~ModeSupervision();
    ModeSupervision(const ModeSupervision&) = delete;
    ModeSupervision& operator=(const ModeSupervision&) = delete;

private:
    StateStore m_store;
    DriverTable m_drivers;
    ProcessSupervisor m_supervisor;
};
