#include "FidWatch.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cstdlib>
#include <string>
#include <vector>

#include "ConfiguredDriver.h"
#include "LogCapture.h"
#include "MessageWriter.h"
#include "TemporaryDirectory.h"
#include "sal/MessageQueue.h"

namespace {

using testing::ElementsAre;

/// The drivers AXIS1 and AXIS2 in the host's process and LAMP in one of its own. What happens to a FID on its
/// way is told by the test.
class FidWatchTest : public testing::Test {
protected:
    FidWatchTest() {
        ::setenv("MFD_QUEUE_DIR", m_directory.path().c_str(), 1);
        m_drivers.configure({configuredDriver("AXIS1", EInterfaceTypes::Direct),
                             configuredDriver("AXIS2", EInterfaceTypes::Direct),
                             configuredDriver("LAMP", EInterfaceTypes::Queue)},
                            true);
    }
    ~FidWatchTest() override { ::unsetenv("MFD_QUEUE_DIR"); }

    void run(const std::string& driverID) {
        m_drivers.beginStart(driverID);
        m_drivers.callBegins(driverID, "setConfiguration");
        m_drivers.callEnded(driverID, "setConfiguration");
        m_drivers.endStart(driverID);
    }
    void runProcess(const std::string& driverID, bool isByHand = false) {
        m_drivers.beginStart(driverID);
        m_drivers.processStarted(driverID, 4711, isByHand);
        m_drivers.endProcessStart(driverID, "", true);
    }
    void endProcess(const std::string& driverID) {
        m_drivers.processEnded(driverID, 4711, "signal 11", {}, false);
    }
    static void call(FidWatch& watch, const std::string& driverID, const std::string& function,
                     bool ok = true, const char* exception = nullptr) {
        watch.fidBegins(driverID, function);
        watch.fidEnded(ok, exception);
    }
    static void write(FidWatch& watch, const std::string& queue, const std::string& function,
                      std::uint32_t number = 1, bool ok = true) {
        const auto message = protocol::MessageWriter(protocol::sendFID).string(function).parameters({});
        watch.sent(queue, number, message.data(), static_cast<int>(message.length()), ok);
    }

    TemporaryDirectory m_directory;
    LogCapture m_log;
    StateStore m_store;
    DriverTable m_drivers{m_store};
    FIDParameterList m_none;
    std::string m_fid = "AXIS1.MOVE";
    std::string m_lampFid = "LAMP.ON";
};

}  // namespace

TEST_F(FidWatchTest, DriverInTheHostsProcessHasItsResult) {
    FidWatch sut(m_drivers, m_fid, m_none);
    call(sut, "AXIS1", "MOVE");
    const FidOutcome outcome = sut.outcome();
    EXPECT_EQ(outcome.stage, EFidStage::Delivered);
    EXPECT_EQ(outcome.reason, EFidReason::None);
    EXPECT_EQ(outcome.driverID, "AXIS1");
    EXPECT_EQ(outcome.result, true);
    EXPECT_TRUE(outcome.isFinal);
}

TEST_F(FidWatchTest, DriverThatAnswersFalseHasRefused) {
    FidWatch sut(m_drivers, m_fid, m_none);
    call(sut, "AXIS1", "MOVE", false);
    const FidOutcome outcome = sut.outcome();
    EXPECT_EQ(outcome.stage, EFidStage::Delivered);
    EXPECT_EQ(outcome.reason, EFidReason::Refused);
    EXPECT_EQ(outcome.text, "AXIS1 has refused it");
    EXPECT_EQ(outcome.result, false);
}

TEST_F(FidWatchTest, WhatTheDriverSaysOfAFidThatItHasRefusedIsTold) {
    FidWatch sut(m_drivers, m_fid, m_none);
    sut.fidBegins("AXIS1", "MOVE");
    sut.logged("AXIS1", "MOVE ignored, x=\"a\" is not a number");
    sut.logged("AXIS2", "MOVE ignored, the other is off");
    sut.logged("AXIS1", "MOVED ignored, it is off");
    sut.logged("AXIS1", "stays where it is");
    sut.fidEnded(false, nullptr);
    const FidOutcome outcome = sut.outcome();
    EXPECT_EQ(outcome.stage, EFidStage::Delivered);
    EXPECT_EQ(outcome.reason, EFidReason::Refused);
    EXPECT_EQ(outcome.text, "AXIS1 has refused it: x=\"a\" is not a number");
    EXPECT_EQ(outcome.result, false);
}

TEST_F(FidWatchTest, WhyTheDriverHasFailedIsTold) {
    FidWatch sut(m_drivers, m_fid, m_none);
    sut.fidBegins("AXIS1", "MOVE");
    sut.logged("AXIS1", "MOVE failed, the axis does not answer");
    sut.fidEnded(false, nullptr);
    EXPECT_EQ(sut.outcome().reason, EFidReason::Refused);
    EXPECT_EQ(sut.outcome().text, "AXIS1 has refused it: the axis does not answer");
}

TEST_F(FidWatchTest, ExceptionOfTheDriverIsTold) {
    FidWatch sut(m_drivers, m_fid, m_none);
    call(sut, "AXIS1", "MOVE", false, "std::runtime_error: no");
    const FidOutcome outcome = sut.outcome();
    EXPECT_EQ(outcome.reason, EFidReason::Threw);
    EXPECT_EQ(outcome.text, "an exception left AXIS1: std::runtime_error: no");
}

TEST_F(FidWatchTest, FunctionThatTheDriverDoesNotKnowIsToldWithTheNearestOnes) {
    const std::string fid = "AXIS1.MOEV";
    FidWatch sut(m_drivers, fid, m_none);
    sut.fidBegins("AXIS1", "MOEV");
    sut.logged("AXIS2", "unknown FID \"MOEV\"; known are MOEV2");
    sut.logged("AXIS1", "moves");
    sut.logged("AXIS1", "unknown FID \"MOEV\"; known are MOVE, STOP, MOVED");
    sut.logged("AXIS1", "stops");
    sut.fidEnded(false, nullptr);
    const FidOutcome outcome = sut.outcome();
    EXPECT_EQ(outcome.stage, EFidStage::Delivered);
    EXPECT_EQ(outcome.reason, EFidReason::UnknownFunction);
    EXPECT_EQ(outcome.text, "unknown FID \"MOEV\"; known are MOVE, STOP, MOVED");
    EXPECT_THAT(outcome.nearest, ElementsAre("MOVE"));
    EXPECT_EQ(outcome.result, false);
}

TEST_F(FidWatchTest, WhatAnotherCallDoesNotKnowIsNotTheFids) {
    FidWatch sut(m_drivers, m_fid, m_none);
    sut.logged("AXIS1", "unknown FID \"A\"; known are B");
    sut.fidBegins("AXIS1", "MOVE");
    sut.fidBegins("AXIS1", "A");
    sut.logged("AXIS1", "unknown FID \"A\"; known are B");
    sut.fidEnded(false, nullptr);
    sut.fidEnded(false, nullptr);
    EXPECT_EQ(sut.outcome().reason, EFidReason::Refused);
}

TEST_F(FidWatchTest, WhatTheDriverSendsMeanwhileIsNotTheFid) {
    FidWatch sut(m_drivers, m_fid, m_none);
    sut.fidBegins("AXIS1", "MOVE");
    call(sut, "AXIS1", "MOVE", false, "of the inner one");
    call(sut, "AXIS2", "MOVE", false);
    write(sut, "AXIS1_INQ", "MOVE");
    sut.fidEnded(true, nullptr);
    EXPECT_EQ(sut.outcome().result, true);
}

TEST_F(FidWatchTest, WhatAMacroSendsBeforeIsNotTheFid) {
    run("AXIS1");
    FidWatch sut(m_drivers, m_fid, m_none);
    call(sut, "AXIS2", "MOVE");
    call(sut, "AXIS1", "STOP");
    write(sut, "LAMP_INQ", "MOVE");
    write(sut, "AXIS1_INQ", "STOP");
    EXPECT_EQ(sut.outcome().stage, EFidStage::Nobody);
    call(sut, "AXIS1", "MOVE", false);
    call(sut, "AXIS1", "MOVE", true);
    EXPECT_EQ(sut.outcome().result, true);
}

TEST_F(FidWatchTest, FunctionIsAllAfterTheFirstDot) {
    const std::string fid = "AXIS1.X.MOVE";
    FidWatch sut(m_drivers, fid, m_none);
    call(sut, "AXIS1", "X.MOVE");
    EXPECT_EQ(sut.outcome().stage, EFidStage::Delivered);
}

TEST_F(FidWatchTest, MessageToADriverProcessHasItsPlace) {
    runProcess("LAMP");
    sal::MessageQueue queue;
    ASSERT_TRUE(queue.create("LAMP_INQ", 10, 1024, 0));
    FidWatch sut(m_drivers, m_lampFid, m_none);
    write(sut, "LAMP_INQ", "ON", 7);
    const FidOutcome outcome = sut.outcome();
    EXPECT_EQ(outcome.stage, EFidStage::Written);
    EXPECT_EQ(outcome.reason, EFidReason::None);
    EXPECT_FALSE(outcome.isFinal);
    ASSERT_TRUE(sut.place());
    EXPECT_EQ(sut.place()->queue, "LAMP_INQ");
    EXPECT_EQ(sut.place()->number, 7u);
    EXPECT_EQ(sut.place()->made, sal::MessageQueue::level("LAMP_INQ")->made);
}

TEST_F(FidWatchTest, MessageToAProcessThatHasEndedReachesNobody) {
    runProcess("LAMP");
    endProcess("LAMP");
    FidWatch sut(m_drivers, m_lampFid, m_none);
    write(sut, "LAMP_INQ", "ON");
    const FidOutcome outcome = sut.outcome();
    EXPECT_EQ(outcome.stage, EFidStage::Nobody);
    EXPECT_EQ(outcome.reason, EFidReason::NotRunning);
    EXPECT_EQ(outcome.text, "LAMP has ended (signal 11)");
    EXPECT_TRUE(outcome.isFinal);
}

TEST_F(FidWatchTest, MessageThatAProcessHasTakenBeforeItEndedIsWritten) {
    runProcess("LAMP");
    sal::MessageQueue queue;
    ASSERT_TRUE(queue.create("LAMP_INQ", 10, 1024, 0));
    sal::MessageQueue reader;
    ASSERT_TRUE(reader.open("LAMP_INQ"));
    std::array<unsigned char, 1024> buffer{};
    FidWatch taken(m_drivers, m_lampFid, m_none);
    ASSERT_TRUE(queue.send(buffer.data(), 1, 0));
    write(taken, "LAMP_INQ", "ON", 1);
    FidWatch left(m_drivers, m_lampFid, m_none);
    ASSERT_TRUE(queue.send(buffer.data(), 1, 0));
    write(left, "LAMP_INQ", "ON", 2);
    ASSERT_EQ(reader.receive(buffer.data(), 1024, 0), 1);
    endProcess("LAMP");
    EXPECT_EQ(taken.outcome().stage, EFidStage::Written);
    EXPECT_EQ(taken.outcome().reason, EFidReason::None);
    EXPECT_EQ(left.outcome().stage, EFidStage::Nobody);
}

TEST_F(FidWatchTest, MessageToAProcessThatIsStartedByHandWaitsForTheNextOne) {
    runProcess("LAMP", true);
    endProcess("LAMP");
    FidWatch sut(m_drivers, m_lampFid, m_none);
    write(sut, "LAMP_INQ", "ON");
    EXPECT_EQ(sut.outcome().stage, EFidStage::Written);
}

TEST_F(FidWatchTest, QueueThatRefusesTheMessageIsTold) {
    runProcess("LAMP");
    FidWatch sut(m_drivers, m_lampFid, m_none);
    write(sut, "LAMP_INQ", "ON", 0, false);
    const FidOutcome outcome = sut.outcome();
    EXPECT_EQ(outcome.stage, EFidStage::Nobody);
    EXPECT_EQ(outcome.reason, EFidReason::NotRunning);
    EXPECT_EQ(outcome.text, "LAMP takes no messages any more: its input queue has refused this one");
    EXPECT_FALSE(sut.place());
}

TEST_F(FidWatchTest, MessageThatLeavesPartsOutIsTold) {
    runProcess("LAMP");
    FIDParameterList parameters;
    parameters.add("text", std::string(256, 'x'));
    FidWatch sut(m_drivers, m_lampFid, parameters);
    write(sut, "LAMP_INQ", "ON");
    const FidOutcome outcome = sut.outcome();
    EXPECT_EQ(outcome.stage, EFidStage::Written);
    EXPECT_EQ(outcome.reason, EFidReason::TooLong);
    EXPECT_EQ(outcome.text, "its parameter \"text\" has 256 bytes; a message takes 255");
}

TEST_F(FidWatchTest, FunctionThatIsCutInTheMessageIsFoundAllTheSame) {
    runProcess("LAMP");
    const std::string function(300, 'x');
    const std::string fid = "LAMP." + function;
    FidWatch sut(m_drivers, fid, m_none);
    write(sut, "LAMP_INQ", function);
    EXPECT_EQ(sut.outcome().stage, EFidStage::Written);
    EXPECT_EQ(sut.outcome().text, "its function has 300 bytes; a message takes 255");
}

TEST_F(FidWatchTest, UnknownDriverIsToldWithTheNearestNames) {
    const std::string fid = "AXSI1.MOVE";
    const FidWatch sut(m_drivers, fid, m_none);
    const FidOutcome outcome = sut.outcome();
    EXPECT_EQ(outcome.stage, EFidStage::Nobody);
    EXPECT_EQ(outcome.reason, EFidReason::NoSuchDriver);
    EXPECT_EQ(outcome.driverID, "AXSI1");
    EXPECT_EQ(outcome.text, "there is no driver AXSI1");
    EXPECT_THAT(outcome.nearest, ElementsAre("AXIS1"));
    EXPECT_TRUE(outcome.isFinal);
}

TEST_F(FidWatchTest, FidWithoutAFunctionIsTold) {
    const std::string fid = "MOVE";
    const FidWatch sut(m_drivers, fid, m_none);
    EXPECT_EQ(sut.outcome().reason, EFidReason::NoSuchDriver);
    EXPECT_EQ(sut.outcome().text, "\"MOVE\" names no function of a driver, as DRIVER.FUNCTION does");
}

TEST_F(FidWatchTest, DriverThatDoesNotRunIsToldWithItsState) {
    const FidWatch sut(m_drivers, m_fid, m_none);
    EXPECT_EQ(sut.outcome().reason, EFidReason::NotRunning);
    EXPECT_EQ(sut.outcome().text, "AXIS1 is not loaded");
    m_drivers.beginParking("AXIS1", "parked by anna");
    m_drivers.endParking("AXIS1");
    EXPECT_EQ(sut.outcome().text, "AXIS1 is parked");
}

TEST_F(FidWatchTest, DriverThatRunsAndGotNothingTakesNoFids) {
    run("AXIS1");
    const FidWatch sut(m_drivers, m_fid, m_none);
    EXPECT_EQ(sut.outcome().stage, EFidStage::Nobody);
    EXPECT_EQ(sut.outcome().reason, EFidReason::TakesNoFids);
    EXPECT_EQ(sut.outcome().text, "AXIS1 takes no FIDs");
}

TEST_F(FidWatchTest, InnerWatchIsToldUntilItGoes) {
    FidWatch outer(m_drivers, m_fid, m_none);
    {
        const FidWatch inner(m_drivers, m_lampFid, m_none);
        EXPECT_EQ(FidWatch::ofThisThread(), &inner);
    }
    EXPECT_EQ(FidWatch::ofThisThread(), &outer);
}

TEST_F(FidWatchTest, WhatFitsIntoAMessageExactlyIsNotTooLong) {
    FIDParameterList parameters;
    // 6 of the code, 3 of the function, 1 of their number, and 2 + 8 + 251 each, but for the last.
    for (int i = 0; i < 3; ++i)
        parameters.add("12345678", std::string(251, 'x'));
    FIDParameterList longer = parameters;
    parameters.add("12345678", std::string(221, 'x'));
    longer.add("12345678", std::string(222, 'x'));
    EXPECT_EQ(FidWatch::whyTooLong("A.ON", parameters), "");
    EXPECT_EQ(protocol::MessageWriter(protocol::sendFID).string("ON").parameters(parameters).length(), 1024u);
    EXPECT_EQ(FidWatch::whyTooLong("A.ON", longer), "it has 1025 bytes; a message takes 1024");
}

TEST_F(FidWatchTest, NameAndNumberOfParametersHaveTheirLimits) {
    FIDParameterList parameters;
    parameters.add(std::string(256, 'x'), "");
    EXPECT_EQ(FidWatch::whyTooLong("A.ON", parameters),
              "the name of a parameter has 256 bytes; a message takes 255");
    FIDParameterList many;
    for (int i = 0; i < 256; ++i)
        many.add("", "");
    EXPECT_EQ(FidWatch::whyTooLong("A.ON", many), "it has 256 parameters; a message takes 255");
}
