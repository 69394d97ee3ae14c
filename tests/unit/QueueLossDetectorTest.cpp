#include "QueueLossDetector.h"

#include <gtest/gtest.h>

namespace {

using namespace std::chrono_literals;

/// A detector that gives a process half a second, and looks each tenth.
class QueueLossDetectorTest : public testing::Test {
protected:
    using Queue = QueueLossDetector::Queue;

    QueueLossDetectorTest() {
        for (Queue* pQueue : {&m_input, &m_output}) {
            pQueue->isAttached = true;
            pQueue->wasAttached = true;
        }
        m_input.receiverAttached = true;
        m_input.receiverPid = 42;
    }

    /// What is found at that many tenths of a second from now, or before.
    std::string look(int tenths, int pid = 42) {
        for (int i = 0; i <= tenths; ++i, m_now += 100ms) {
            const auto found = m_sut.judge({{"A", pid, &m_input, &m_output}}, m_now);
            if (!found.empty())
                return found.front().driverID + " " + std::to_string(found.front().pid) + " " +
                       found.front().what;
        }
        return "nothing";
    }

    Queue m_input;
    Queue m_output;
    QueueLossDetector::Duration m_now = 1000s;
    QueueLossDetector m_sut{500ms};
};

}  // namespace

TEST_F(QueueLossDetectorTest, FindsNothingWrongWithOneThatServes) {
    EXPECT_EQ("nothing", look(20));
}

TEST_F(QueueLossDetectorTest, FindsADamagedQueueAtOnce) {
    m_output.isBroken = true;
    EXPECT_EQ("A 42 its output queue is damaged", look(0));
    m_input.isBroken = true;
    EXPECT_EQ("A 42 its input queue is damaged", look(0));
}

TEST_F(QueueLossDetectorTest, FindsWhoHasLetGoOfItsOutputQueue) {
    m_output.isAttached = false;
    EXPECT_EQ("nothing", look(4));
    EXPECT_EQ("A 42 it has let go of its output queue", look(0));
}

TEST_F(QueueLossDetectorTest, FindsWhoHasLetGoOfItsInputQueue) {
    m_input.isAttached = false;
    EXPECT_EQ("A 42 it has let go of its input queue", look(5));
}

TEST_F(QueueLossDetectorTest, FindsWhoNoLongerReadsItsInputQueue) {
    m_input.receiverAttached = false;
    EXPECT_EQ("A 42 it has let go of its input queue", look(5));
}

TEST_F(QueueLossDetectorTest, LeavesWhoHasNotComeYetAlone) {
    m_input = {};
    m_output = {};
    EXPECT_EQ("nothing", look(600));
}

TEST_F(QueueLossDetectorTest, LeavesWhoHasOpenedItsQueuesAndDoesNotReadYetAlone) {
    m_input.receiverAttached = false;
    m_input.receiverPid = 0;
    EXPECT_EQ("nothing", look(600));
}

TEST_F(QueueLossDetectorTest, ReceiverOfTheOutputQueueIsTheHostItself) {
    m_output.receiverPid = 7;
    m_output.receiverAttached = false;
    EXPECT_EQ("nothing", look(20));
}

TEST_F(QueueLossDetectorTest, CountsTheTimeForEachProcessAnew) {
    m_output.isAttached = false;
    EXPECT_EQ("nothing", look(4));
    EXPECT_EQ("nothing", look(4, 43));
    EXPECT_EQ("A 43 it has let go of its output queue", look(0, 43));
}

TEST_F(QueueLossDetectorTest, DriverWithoutQueuesIsNotJudged) {
    EXPECT_TRUE(m_sut.judge({{"A", 42, nullptr, nullptr}}, m_now).empty());
}
