#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>

#include "HostProcess.h"
#include "PrivateMachine.h"
#include "TestWorkplace.h"

/// Base of the tests that run a whole mfhost: on a machine of the test's own, where /var/data and the
/// adapters are nobody else's.
class SystemTest : public testing::Test {
protected:
    void SetUp() override {
        const std::string reason = PrivateMachine::enter();
        if (!reason.empty())
            GTEST_SKIP() << reason;
        m_pWorkplace = std::make_unique<TestWorkplace>();
        prepare();
    }
    /// What the tests of a class begin with, once they have their machine and their workplace.
    virtual void prepare() {}

    /// The machine has eth0 with a main address of its own; most tests do not look at it.
    static void giveAdapter() { ASSERT_TRUE(PrivateMachine::addAdapter("eth0", "192.0.2.10/24")); }

    TestWorkplace& workplace() { return *m_pWorkplace; }

    /// Starts the host, and does not wait.
    HostProcess& start(const std::vector<std::string>& options = {}) {
        return start(workplace().host(options));
    }
    HostProcess& start(const HostProcess::Start& start) {
        m_pHost.reset();
        m_pHost = std::make_unique<HostProcess>(start);
        return *m_pHost;
    }

    /// The one that was started last.
    HostProcess& host() { return *m_pHost; }

    /// Ends the input and tells how the host ended.
    std::optional<int> end() {
        m_pHost->closeInput();
        return m_pHost->waitForEnd();
    }

private:
    std::unique_ptr<TestWorkplace> m_pWorkplace;
    std::unique_ptr<HostProcess> m_pHost;
};
