#include "ByHandWatch.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "LogCapture.h"

namespace {

using testing::HasSubstr;

/// The queues of a host that is told which process receives on them. Process 1 is always there.
class ByHandWatchTest : public testing::Test {
protected:
    void queue(const std::string& name, unsigned int pid, bool isAttached) {
        sal::MessageQueue::Status status;
        status.name = name;
        status.receiverPid = pid;
        status.receiverAttached = isAttached;
        m_queues = {status};
    }
    std::string staleCause() {
        m_sut.look();
        const auto entry = m_store.find("AXIS1.N");
        return entry ? entry->staleCause : "no value";
    }

    static constexpr unsigned int s_living = 1;
    static constexpr unsigned int s_dead = 0x7ffffff0;

    LogCapture m_log;
    StateStore m_store;
    DriverTable m_drivers{m_store};
    std::vector<sal::MessageQueue::Status> m_queues;
    ByHandWatch m_sut{m_drivers, [this] { return m_queues; }};
};

}  // namespace

TEST_F(ByHandWatchTest, AttachedProcessServesItsDriver) {
    queue("AXIS1_INQ", s_living, true);
    m_sut.look();
    m_sut.look();
    EXPECT_TRUE(m_drivers.isRunning("AXIS1"));
    EXPECT_FALSE(m_drivers.hasProcess("AXIS1"));
    const std::string log = m_log.finish();
    const std::string line = "info     HOST: AXIS1: process 1 was started by hand and serves it\n";
    EXPECT_THAT(log, HasSubstr(line));
    EXPECT_EQ(log.find(line), log.rfind(line));
}

TEST_F(ByHandWatchTest, QueueThatNobodyHasReadYetIsNoDriver) {
    queue("AXIS1_INQ", 0, false);
    m_sut.look();
    EXPECT_FALSE(m_drivers.isRunning("AXIS1"));
    EXPECT_EQ("", m_log.finish());
}

TEST_F(ByHandWatchTest, HostsOwnReceiverIsNoDriver) {
    queue("AXIS1_OUTQ", s_living, true);
    m_sut.look();
    EXPECT_FALSE(m_drivers.isRunning("AXIS1"));
    m_log.finish();
}

TEST_F(ByHandWatchTest, EndMakesValuesStale) {
    queue("AXIS1_INQ", s_living, true);
    m_sut.look();
    m_store.setStateValueInt("AXIS1.N", 7);
    EXPECT_EQ("", staleCause());
    queue("AXIS1_INQ", s_living, false);
    EXPECT_EQ("its process has ended", staleCause());
    EXPECT_FALSE(m_drivers.isRunning("AXIS1"));
    EXPECT_THAT(m_log.finish(),
                HasSubstr("AXIS1: process 1, which was started by hand, ended; 1 value is stale\n"));
}

TEST_F(ByHandWatchTest, DamagedQueueMakesValuesStaleUntilTheQueuesAreMadeAnew) {
    queue("AXIS1_INQ", s_living, true);
    m_sut.look();
    m_store.setStateValueInt("AXIS1.N", 7);
    sal::MessageQueue::Status output;
    output.name = "AXIS1_OUTQ";
    output.isBroken = true;
    m_queues.push_back(output);
    EXPECT_EQ("one of its queues is damaged", staleCause());
    m_sut.look();
    EXPECT_FALSE(m_drivers.isRunning("AXIS1"));
    queue("AXIS1_INQ", static_cast<unsigned int>(::getpid()), true);
    m_sut.look();
    EXPECT_TRUE(m_drivers.isRunning("AXIS1"));
    const std::string log = m_log.finish();
    const std::string line =
        "AXIS1: process 1, which was started by hand, cannot be reached any more: one of its queues is "
        "damaged; "
        "reloadDriver AXIS1 makes them anew\n";
    EXPECT_THAT(log, HasSubstr(line));
    EXPECT_EQ(log.find(line), log.rfind(line));
}

TEST_F(ByHandWatchTest, OneThatCameAndWentUnseenLeavesStaleValues) {
    m_store.setStateValueInt("AXIS1.N", 7);
    queue("AXIS1_INQ", s_dead, false);
    EXPECT_EQ("its process has ended", staleCause());
    m_log.finish();
}

TEST_F(ByHandWatchTest, ValuesThatArriveBehindTheEndAreStale) {
    queue("AXIS1_INQ", s_dead, false);
    m_sut.look();
    m_store.setStateValueInt("AXIS1.N", 7);
    EXPECT_EQ("its process has ended", staleCause());
    m_log.finish();
}

TEST_F(ByHandWatchTest, NextProcessMakesValuesLiveAgainWhenItReportsThem) {
    queue("AXIS1_INQ", s_dead, false);
    m_store.setStateValueInt("AXIS1.N", 7);
    m_sut.look();
    queue("AXIS1_INQ", s_living, true);
    m_sut.look();
    EXPECT_EQ("its process has ended", staleCause());
    m_store.setStateValueInt("AXIS1.N", 7);
    EXPECT_EQ("", staleCause());
    m_log.finish();
}

TEST_F(ByHandWatchTest, HoldOfANextProcessIsNotTakenForTheOneBefore) {
    queue("AXIS1_INQ", s_dead, true);
    m_sut.look();
    queue("AXIS1_INQ", s_dead, false);
    m_sut.look();
    queue("AXIS1_INQ", s_dead, true);
    m_sut.look();
    EXPECT_FALSE(m_drivers.isRunning("AXIS1"));
    m_log.finish();
}

TEST_F(ByHandWatchTest, UnloadedDriversValuesAreStale) {
    queue("AXIS1_INQ", s_living, true);
    m_sut.look();
    m_store.setStateValueInt("AXIS1.N", 7);
    m_queues.clear();
    EXPECT_EQ("unloaded", staleCause());
    EXPECT_THAT(m_log.finish(), testing::Not(HasSubstr("ended")));
}

TEST_F(ByHandWatchTest, NumberThatIsNoneIsLeftOut) {
    queue("AXIS1_INQ", 0xffffffff, true);
    m_sut.look();
    EXPECT_FALSE(m_drivers.isRunning("AXIS1"));
    m_log.finish();
}
