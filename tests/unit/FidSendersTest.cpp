#include "FidSenders.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <condition_variable>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "ConfiguredDriver.h"
#include "FIDHelper.h"
#include "FidTap.h"
#include "HangGuard.h"
#include "LogCapture.h"
#include "LogMemory.h"
#include "MessageWriter.h"
#include "TemporaryDirectory.h"
#include "sal/MessageQueue.h"

namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

/// Keeps what it is told, in order. A FID that is still on its way may tell it after the test.
class Ear {
public:
    FidSenders::Told told() {
        return [pHeard = m_pHeard](const FidOutcome& outcome) {
            const std::lock_guard lock(pHeard->mutex);
            pHeard->outcomes.push_back(outcome);
            pHeard->changed.notify_all();
        };
    }
    std::size_t count() {
        const std::lock_guard lock(m_pHeard->mutex);
        return m_pHeard->outcomes.size();
    }
    FidOutcome last() {
        const std::lock_guard lock(m_pHeard->mutex);
        return m_pHeard->outcomes.empty() ? FidOutcome() : m_pHeard->outcomes.back();
    }
    /// The first one, when it has come.
    FidOutcome outcome() {
        std::unique_lock lock(m_pHeard->mutex);
        EXPECT_TRUE(
            m_pHeard->changed.wait_for(lock, c_hangGuard, [this] { return !m_pHeard->outcomes.empty(); }));
        return m_pHeard->outcomes.empty() ? FidOutcome() : m_pHeard->outcomes.front();
    }

private:
    struct Heard {
        std::mutex mutex;
        std::condition_variable changed;
        std::vector<FidOutcome> outcomes;
    };
    const std::shared_ptr<Heard> m_pHeard = std::make_shared<Heard>();
};

/// In place of the module: A, B and C are drivers in the host's process, Q is one with a process, whose input
/// queue the test makes. A FID ".HOLD" does not return until the test lets go.
class FidSendersTest : public testing::Test, public IFunctionID {
protected:
    FidSendersTest() {
        ::setenv("MFD_QUEUE_DIR", m_directory.path().c_str(), 1);
        sal::MessageQueue::setObserver(&m_tap, sal::MessageQueue::EObserved::Sent);
        m_drivers.configure(
            {configuredDriver("A", EInterfaceTypes::Direct), configuredDriver("B", EInterfaceTypes::Direct),
             configuredDriver("C", EInterfaceTypes::Direct), configuredDriver("Q", EInterfaceTypes::Queue)},
            true);
        for (const char* driverID : {"A", "B", "C"}) {
            m_drivers.callBegins(driverID, "setConfiguration");
            m_drivers.callEnded(driverID, "setConfiguration");
        }
        m_drivers.processStarted("Q", 4711);
    }
    ~FidSendersTest() override {
        sal::MessageQueue::setObserver(nullptr);
        ::unsetenv("MFD_QUEUE_DIR");
    }
    /// The senders call this object: they end while it is whole.
    void TearDown() override {
        letGo();
        EXPECT_TRUE(m_sut.stop(c_hangGuard));
    }

    IInterface* queryInterface(unsigned int) override { return nullptr; }
    bool sendFID(const std::string& fid, const FIDParameterList& parameters) const override {
        const FIDHelper parts(fid);
        {
            std::unique_lock lock(m_mutex);
            m_sent.push_back(fid);
            m_changed.notify_all();
            if (parts.getFunction() == "HOLD")
                m_changed.wait(lock, [this] { return !m_isHolding; });
        }
        if (parts.getDriverID() == "Q") {
            const auto message =
                protocol::MessageWriter(protocol::sendFID).string(parts.getFunction()).parameters(parameters);
            m_queue.send(message.data(), static_cast<int>(message.length()), -1);
        } else if (m_drivers.find(parts.getDriverID())) {
            m_tap.fidBegins(parts.getDriverID(), parts.getFunction(), parameters);
            m_tap.fidEnded(parts.getDriverID(), parts.getFunction() != "FAIL", nullptr);
        }
        const std::lock_guard lock(m_mutex);
        ++m_returned;
        return true;
    }
    bool subscribe(const std::string&) const override { return true; }
    bool showState() const override { return true; }

    void letGo() {
        const std::lock_guard lock(m_mutex);
        m_isHolding = false;
        m_changed.notify_all();
    }
    bool isSent(const std::string& fid) {
        std::unique_lock lock(m_mutex);
        return m_changed.wait_for(
            lock, c_hangGuard, [&] { return std::find(m_sent.begin(), m_sent.end(), fid) != m_sent.end(); });
    }
    void send(const std::string& fid, EFidStage waitFor, Ear& ear,
              std::chrono::milliseconds limit = c_hangGuard) {
        m_sut.send(fid, {}, waitFor, limit, ear.told());
    }
    void makeQueue(unsigned short capacity = 256) { ASSERT_TRUE(m_queue.create("Q_INQ", capacity, 1024, 0)); }
    bool takeMessage() {
        std::array<unsigned char, 1024> buffer{};
        return m_queue.receive(buffer.data(), static_cast<int>(buffer.size()), 0) >= 0;
    }
    static std::vector<std::string> senders() {
        std::vector<std::string> names;
        for (const auto& thread : std::filesystem::directory_iterator("/proc/self/task")) {
            std::string name;
            std::getline(std::ifstream(thread.path() / "comm"), name);
            if (name.ends_with(" send"))
                names.push_back(name);
        }
        std::sort(names.begin(), names.end());
        return names;
    }

    TemporaryDirectory m_directory;
    LogCapture m_log;
    StateStore m_store;
    DriverTable m_drivers{m_store};
    LogMemory m_memory{[] { return std::set<std::string>(); }};
    mutable FidTap m_tap{m_drivers, m_drivers, m_memory};
    mutable sal::MessageQueue m_queue;
    mutable std::mutex m_mutex;
    mutable std::condition_variable m_changed;
    mutable std::vector<std::string> m_sent;
    mutable int m_returned = 0;
    bool m_isHolding = true;
    std::vector<std::string> m_counted;
    FidSenders m_sut{
        m_drivers,
        *this,
        {.mostSenders = 2,
         .capacity = 3,
         .roomKept = 8,
         .idle = 600s,
         .patience = 200ms,
         .fidSent = [this](const auto& driverID, const auto& outcome) {
             m_counted.push_back(driverID + " " + inWords(outcome.stage) + " " + inWords(outcome.reason));
         }}};
};

}  // namespace

TEST_F(FidSendersTest, AcceptedIsToldAtOnceAndTheFidIsSent) {
    Ear ear;
    send("A.HOLD", EFidStage::Accepted, ear);
    EXPECT_EQ(ear.count(), 1u);
    EXPECT_EQ(ear.outcome().stage, EFidStage::Accepted);
    EXPECT_FALSE(ear.outcome().isFinal);
    EXPECT_TRUE(isSent("A.HOLD"));
    letGo();
    Ear later;
    send("A.X", EFidStage::Delivered, later);
    later.outcome();
    EXPECT_EQ(ear.count(), 1u);
}

TEST_F(FidSendersTest, DispatchedIsToldThoughTheDriverDoesNotComeBack) {
    Ear ear;
    send("A.HOLD", EFidStage::Dispatched, ear);
    EXPECT_EQ(ear.outcome().stage, EFidStage::Dispatched);
    EXPECT_FALSE(ear.outcome().isFinal);
}

TEST_F(FidSendersTest, DeliveredHasTheDriversAnswer) {
    Ear ear;
    send("A.MOVE", EFidStage::Delivered, ear);
    EXPECT_EQ(ear.outcome().stage, EFidStage::Delivered);
    EXPECT_EQ(ear.outcome().driverID, "A");
    EXPECT_EQ(ear.outcome().result, true);
    EXPECT_TRUE(ear.outcome().isFinal);
    Ear refusal;
    send("A.FAIL", EFidStage::Taken, refusal);
    EXPECT_EQ(refusal.outcome().stage, EFidStage::Delivered);
    EXPECT_EQ(refusal.outcome().reason, EFidReason::Refused);
}

TEST_F(FidSendersTest, FidThatReachesNobodyIsToldWithItsReason) {
    Ear ear;
    send("D.MOVE", EFidStage::Delivered, ear);
    EXPECT_EQ(ear.outcome().stage, EFidStage::Nobody);
    EXPECT_EQ(ear.outcome().reason, EFidReason::NoSuchDriver);
    EXPECT_EQ(ear.outcome().text, "there is no driver D");
}

TEST_F(FidSendersTest, WhatEachFidHasComeToIsCountedOnce) {
    makeQueue();
    for (const char* fid : {"A.MOVE", "A.FAIL", "Q.MOVE", "D.MOVE"}) {
        Ear ear;
        send(fid, EFidStage::Delivered, ear);
        ear.outcome();
    }
    FIDParameterList tooLong;
    tooLong.add("text", std::string(256, 'x'));
    Ear ear;
    m_sut.send("Q.MOVE", tooLong, EFidStage::Taken, c_hangGuard, ear.told());
    ear.outcome();
    EXPECT_TRUE(m_sut.stop(c_hangGuard));
    Ear late;
    send("B.MOVE", EFidStage::Taken, late);
    EXPECT_THAT(m_counted, ElementsAre("A delivered none", "A delivered refused", "Q written none",
                                       " nobody no-such-driver", "Q nobody too-long", "B nobody stopping"));
}

TEST_F(FidSendersTest, FidsOfNoDriverShareASender) {
    for (const char* fid : {"D.MOVE", "E.MOVE", "F.MOVE", "MOVE"}) {
        Ear ear;
        send(fid, EFidStage::Delivered, ear);
        EXPECT_EQ(ear.outcome().reason, EFidReason::NoSuchDriver);
    }
    EXPECT_THAT(senders(), ElementsAre("no driver send"));
}

TEST_F(FidSendersTest, FidsForOneDriverKeepTheirOrder) {
    Ear ear;
    send("A.HOLD", EFidStage::Delivered, ear);
    send("A.1", EFidStage::Delivered, ear);
    send("A.2", EFidStage::Delivered, ear);
    letGo();
    EXPECT_TRUE(eventually([&] { return ear.count() == 3; }));
    EXPECT_THAT(m_sent, ElementsAre("A.HOLD", "A.1", "A.2"));
}

TEST_F(FidSendersTest, DriverThatDoesNotComeBackHoldsUpNobodyElse) {
    Ear held;
    send("A.HOLD", EFidStage::Delivered, held);
    ASSERT_TRUE(isSent("A.HOLD"));
    Ear other;
    send("B.MOVE", EFidStage::Delivered, other);
    EXPECT_EQ(other.outcome().stage, EFidStage::Delivered);
    EXPECT_EQ(held.count(), 0u);
}

TEST_F(FidSendersTest, LimitTellsHowFarTheFidIsAndItGoesOn) {
    Ear held;
    Ear waiting;
    // On a busy machine its sender takes a while to begin.
    send("A.HOLD", EFidStage::Delivered, held, 1s);
    send("A.MOVE", EFidStage::Delivered, waiting, 50ms);
    EXPECT_EQ(held.outcome().stage, EFidStage::Dispatched);
    EXPECT_EQ(waiting.outcome().stage, EFidStage::Accepted);
    EXPECT_FALSE(held.outcome().isFinal);
    EXPECT_TRUE(held.outcome().isInterim);
    EXPECT_GE(held.outcome().took, 1s);
    letGo();
    EXPECT_TRUE(isSent("A.MOVE"));
    for (Ear* pEar : {&held, &waiting}) {
        EXPECT_TRUE(eventually([&] { return pEar->count() == 2; }));
        EXPECT_EQ(pEar->last().stage, EFidStage::Delivered);
        EXPECT_FALSE(pEar->last().isInterim);
    }
}

TEST_F(FidSendersTest, NoMoreFidsThanAllowedWaitForADriver) {
    Ear ear;
    send("A.HOLD", EFidStage::Taken, ear);
    send("A.2", EFidStage::Taken, ear);
    send("A.3", EFidStage::Taken, ear);
    Ear refusal;
    send("A.4", EFidStage::Taken, refusal);
    EXPECT_EQ(refusal.count(), 1u);
    EXPECT_EQ(refusal.outcome().stage, EFidStage::Nobody);
    EXPECT_EQ(refusal.outcome().reason, EFidReason::QueueFull);
    EXPECT_EQ(refusal.outcome().text, "3 FIDs wait for A already");
    EXPECT_TRUE(refusal.outcome().isFinal);
    letGo();
    EXPECT_TRUE(eventually([&] { return ear.count() == 3; }));
    EXPECT_THAT(m_sent, Not(testing::Contains("A.4")));
}

TEST_F(FidSendersTest, QueueWithFewPlacesLeftIsRefused) {
    makeQueue(10);
    Ear ear;
    for (int i = 0; i < 3; ++i) {
        Ear written;
        send("Q.ON", EFidStage::Delivered, i < 2 ? written : ear);
        if (i < 2) {
            EXPECT_EQ(written.outcome().stage, EFidStage::Written);
        }
    }
    EXPECT_EQ(ear.outcome().stage, EFidStage::Written);
    Ear refusal;
    send("Q.ON", EFidStage::Accepted, refusal);
    EXPECT_EQ(refusal.count(), 1u);
    EXPECT_EQ(refusal.outcome().reason, EFidReason::QueueFull);
    EXPECT_EQ(refusal.outcome().text, "the input queue of Q holds 3 of 10 messages, and 0 FIDs wait");
    ASSERT_TRUE(takeMessage());
    Ear later;
    send("Q.ON", EFidStage::Delivered, later);
    EXPECT_EQ(later.outcome().stage, EFidStage::Written);
}

TEST_F(FidSendersTest, WhatDoesNotFitIntoAMessageIsNotSent) {
    makeQueue();
    FIDParameterList parameters;
    parameters.add("text", std::string(300, 'x'));
    Ear ear;
    m_sut.send("Q.ON", parameters, EFidStage::Accepted, 1s, ear.told());
    EXPECT_EQ(ear.outcome().stage, EFidStage::Nobody);
    EXPECT_EQ(ear.outcome().reason, EFidReason::TooLong);
    EXPECT_EQ(ear.outcome().text, "its parameter \"text\" has 300 bytes; a message takes 255");
    Ear inTheHostsProcess;
    m_sut.send("A.ON", parameters, EFidStage::Delivered, c_hangGuard, inTheHostsProcess.told());
    EXPECT_EQ(inTheHostsProcess.outcome().stage, EFidStage::Delivered);
    EXPECT_THAT(m_sent, ElementsAre("A.ON"));
}

TEST_F(FidSendersTest, TakenIsToldWhenTheDriverProcessHasTakenIt) {
    makeQueue();
    Ear before;
    send("Q.BEFORE", EFidStage::Delivered, before);
    EXPECT_EQ(before.outcome().stage, EFidStage::Written);
    Ear ear;
    send("Q.ON", EFidStage::Taken, ear);
    ASSERT_TRUE(eventually([] { return sal::MessageQueue::level("Q_INQ")->depth == 2; }));
    ASSERT_TRUE(takeMessage());
    std::this_thread::sleep_for(100ms);
    EXPECT_EQ(ear.count(), 0u);
    ASSERT_TRUE(takeMessage());
    EXPECT_EQ(ear.outcome().stage, EFidStage::Taken);
    EXPECT_EQ(ear.outcome().reason, EFidReason::None);
    EXPECT_TRUE(ear.outcome().isFinal);
}

TEST_F(FidSendersTest, MessageThatIsNotTakenInTimeIsWritten) {
    makeQueue();
    Ear ear;
    send("Q.ON", EFidStage::Taken, ear, 50ms);
    EXPECT_EQ(ear.outcome().stage, EFidStage::Written);
    EXPECT_EQ(ear.outcome().reason, EFidReason::None);
    EXPECT_FALSE(ear.outcome().isFinal);
    EXPECT_TRUE(ear.outcome().isInterim);
    ASSERT_TRUE(takeMessage());
    EXPECT_TRUE(eventually([&] { return ear.count() == 2; }));
    EXPECT_EQ(ear.last().stage, EFidStage::Taken);
    EXPECT_FALSE(ear.last().isInterim);
}

TEST_F(FidSendersTest, ProcessThatEndsBeforeItTakesTheMessageIsTold) {
    makeQueue();
    Ear ear;
    send("Q.ON", EFidStage::Taken, ear);
    ASSERT_TRUE(eventually([] { return sal::MessageQueue::level("Q_INQ")->depth == 1; }));
    m_drivers.processEnded("Q", 4711, "signal 11", {}, false);
    EXPECT_EQ(ear.outcome().reason, EFidReason::NotRunning);
    EXPECT_NE(ear.outcome().stage, EFidStage::Taken);
    EXPECT_TRUE(ear.outcome().isFinal);
}

TEST_F(FidSendersTest, MessageInAQueueThatWasMadeAnewIsNotTaken) {
    makeQueue();
    Ear ear;
    send("Q.ON", EFidStage::Taken, ear);
    ASSERT_TRUE(eventually([] { return sal::MessageQueue::level("Q_INQ")->depth == 1; }));
    m_queue.close();
    makeQueue();
    EXPECT_EQ(ear.outcome().stage, EFidStage::Written);
    EXPECT_EQ(ear.outcome().reason, EFidReason::NotRunning);
    EXPECT_EQ(ear.outcome().text, "Q has ended before it has taken it");
}

TEST_F(FidSendersTest, MoreDriversThanSendersAreRefusedWhileNoneIsIdle) {
    Ear held;
    send("A.HOLD", EFidStage::Delivered, held);
    send("B.HOLD", EFidStage::Delivered, held);
    Ear refusal;
    send("C.MOVE", EFidStage::Delivered, refusal);
    EXPECT_EQ(refusal.count(), 1u);
    EXPECT_EQ(refusal.outcome().reason, EFidReason::QueueFull);
    EXPECT_EQ(refusal.outcome().text, "FIDs for 2 drivers wait already");
    letGo();
    EXPECT_TRUE(eventually([&] { return held.count() == 2; }));
    Ear later;
    EXPECT_TRUE(eventually([&] {
        Ear ear;
        send("C.MOVE", EFidStage::Delivered, ear);
        return ear.outcome().stage == EFidStage::Delivered;
    }));
    EXPECT_TRUE(eventually([] { return senders().size() == 2; }));
}

TEST_F(FidSendersTest, SenderThatIsIdleEndsAndComesAgain) {
    FidSenders sut(m_drivers, *this, {.idle = 50ms});
    for (int i = 0; i < 2; ++i) {
        Ear ear;
        sut.send("A.MOVE", {}, EFidStage::Delivered, c_hangGuard, ear.told());
        EXPECT_EQ(ear.outcome().stage, EFidStage::Delivered);
        EXPECT_TRUE(eventually([] { return senders().empty(); }));
    }
}

TEST_F(FidSendersTest, SendThatDoesNotComeBackIsSaidOnce) {
    Ear ear;
    send("A.HOLD", EFidStage::Accepted, ear);
    ASSERT_TRUE(isSent("A.HOLD"));
    send("A.MOVE", EFidStage::Accepted, ear);
    const std::string line = "warning  HOST: A: \"A.HOLD\" does not come back; 1 FID waits for it\n";
    EXPECT_TRUE(eventually([&] { return m_log.text().find(line) != std::string::npos; })) << m_log.text();
    std::this_thread::sleep_for(400ms);
    EXPECT_EQ(m_log.text().find("does not come back", m_log.text().find(line) + line.size()),
              std::string::npos);
}

TEST_F(FidSendersTest, SendThatWaitsForRoomIsSaid) {
    makeQueue(9);
    Ear ear;
    send("Q.HOLD", EFidStage::Accepted, ear);
    ASSERT_TRUE(isSent("Q.HOLD"));
    const unsigned char byte = 0;
    while (m_queue.send(&byte, 1, 0)) {
    }
    letGo();
    EXPECT_TRUE(eventually([&] {
        return m_log.text().find("Q: \"Q.HOLD\" waits for room in its input queue\n") != std::string::npos;
    })) << m_log.text();
    ASSERT_TRUE(takeMessage());
}

TEST_F(FidSendersTest, CallThatDoesNotComeBackIsInTheTableOfDrivers) {
    std::mutex mutex;
    class Stuck : public IFunctionID {
    public:
        Stuck(FidTap& tap, std::mutex& mutex) : m_tap(tap), m_mutex(mutex) {}
        IInterface* queryInterface(unsigned int) override { return nullptr; }
        bool sendFID(const std::string&, const FIDParameterList& parameters) const override {
            m_tap.fidBegins("A", "MOVE", parameters);
            { const std::lock_guard lock(m_mutex); }
            m_tap.fidEnded("A", true, nullptr);
            return true;
        }
        bool subscribe(const std::string&) const override { return true; }
        bool showState() const override { return true; }

    private:
        FidTap& m_tap;
        std::mutex& m_mutex;
    } target(m_tap, mutex);
    FidSenders sut(m_drivers, target);
    std::unique_lock lock(mutex);
    Ear ear;
    sut.send("A.MOVE", {}, EFidStage::Delivered, c_hangGuard, ear.told());
    EXPECT_TRUE(eventually([this] { return !m_drivers.innermostCalls().empty(); }));
    lock.unlock();
    EXPECT_EQ(ear.outcome().stage, EFidStage::Delivered);
    EXPECT_TRUE(m_drivers.innermostCalls().empty());
}

TEST_F(FidSendersTest, StopTellsAllThatIsWaitedForAndRefusesWhatComes) {
    Ear held;
    Ear waiting;
    send("A.HOLD", EFidStage::Delivered, held);
    ASSERT_TRUE(isSent("A.HOLD"));
    send("A.MOVE", EFidStage::Delivered, waiting);
    EXPECT_FALSE(m_sut.stop(10ms));
    EXPECT_EQ(held.count(), 1u);
    EXPECT_EQ(held.outcome().stage, EFidStage::Dispatched);
    EXPECT_EQ(held.outcome().reason, EFidReason::Stopping);
    EXPECT_EQ(held.outcome().text,
              "the host is stopping; the FID was on its way to A, and may have reached it");
    EXPECT_EQ(waiting.outcome().text, "the host is stopping");
    EXPECT_EQ(waiting.outcome().stage, EFidStage::Accepted);
    EXPECT_EQ(waiting.outcome().reason, EFidReason::Stopping);
    Ear refusal;
    send("B.MOVE", EFidStage::Accepted, refusal);
    EXPECT_EQ(refusal.outcome().stage, EFidStage::Nobody);
    EXPECT_EQ(refusal.outcome().reason, EFidReason::Stopping);
    letGo();
    EXPECT_TRUE(m_sut.stop(c_hangGuard));
    EXPECT_EQ(held.count(), 1u);
    EXPECT_EQ(waiting.count(), 1u);
    EXPECT_THAT(m_sent, ElementsAre("A.HOLD"));
    EXPECT_THAT(senders(), ElementsAre());
}

TEST_F(FidSendersTest, EndDoesNotWaitForADriverThatDoesNotComeBack) {
    auto pSut = std::make_unique<FidSenders>(m_drivers, *this);
    Ear ear;
    pSut->send("A.HOLD", {}, EFidStage::Delivered, c_hangGuard, ear.told());
    ASSERT_TRUE(isSent("A.HOLD"));
    pSut.reset();
    EXPECT_EQ(ear.count(), 1u);
    letGo();
    EXPECT_TRUE(eventually([this] {
        const std::lock_guard lock(m_mutex);
        return m_returned == 1;
    }));
    EXPECT_TRUE(eventually([] { return senders().empty(); }));
}
