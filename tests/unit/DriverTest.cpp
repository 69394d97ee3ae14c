#include "mfd/Driver.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <array>
#include <future>
#include <stdexcept>
#include <thread>
#include <vector>

#include "InterfaceIds.h"
#include "KitDriver.h"
#include "LogFile.h"

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

namespace {

using mfd::Answer;
using mfd::Arguments;
using mfd::Parameter;
using std::chrono::milliseconds;

class DriverTest : public testing::Test {
protected:
    ~DriverTest() override { sut.deinitialize(); }

    LogFile log;
    DriverHost host;
    CallLog calls;
    KitDriver sut;
};

TEST_F(DriverTest, AnswersTheTwoDriverInterfacesAlone) {
    EXPECT_NE(dynamic_cast<IFunctionID*>(sut.queryInterface(1100)), nullptr);
    EXPECT_NE(dynamic_cast<IMFDConfiguration*>(sut.queryInterface(1201)), nullptr);
    EXPECT_EQ(sut.queryInterface(1107), nullptr);
}

TEST_F(DriverTest, HandlesAFunctionWithItsArguments) {
    sut.function("MOVE", {Parameter::integer("to", 0, 100), Parameter::number("speed").orElse(1.5)},
                 [&](const Arguments& arguments) {
                     calls.add("MOVE " + std::to_string(arguments.integer("to")) + " " +
                               std::to_string(arguments.number("speed")));
                 });
    sut.function("STOP", [&] { calls.add("STOP"); });
    ASSERT_TRUE(sut.startIn(host));
    EXPECT_TRUE(sut.sendFID("MOVE", listOf({{"to", "5"}})));
    EXPECT_TRUE(sut.sendFID("STOP", {}));
    ASSERT_TRUE(calls.waitFor("STOP"));
    EXPECT_THAT(calls.lines(), ElementsAre("MOVE 5 1.500000", "STOP"));
}

TEST_F(DriverTest, SaysWhichFunctionsThereAre) {
    sut.function("MOVE", [] {});
    sut.function("STOP", [] {});
    ASSERT_TRUE(sut.startIn(host));
    EXPECT_FALSE(sut.sendFID("DANCE", {}));
    EXPECT_THAT(log.text(), HasSubstr("LAMP1: unknown FID \"DANCE\"; known are MOVE, STOP\n"));
}

TEST_F(DriverTest, SaysWhatIsWrongWithAParameterAndChangesNothing) {
    sut.function("MOVE", {Parameter::integer("to", 0, 100)}, [&](const Arguments&) { calls.add("MOVE"); });
    ASSERT_TRUE(sut.startIn(host));
    EXPECT_FALSE(sut.sendFID("MOVE", listOf({{"to", "140"}})));
    sut.deinitialize();
    EXPECT_TRUE(calls.lines().empty());
    EXPECT_THAT(log.text(),
                HasSubstr("LAMP1: MOVE ignored, to=\"140\" is not a whole number from 0 to 100\n"));
}

TEST_F(DriverTest, DeclaresAFunctionOnce) {
    sut.function("MOVE", [] {});
    EXPECT_THROW(sut.function("MOVE", [] {}), std::logic_error);
    EXPECT_THROW(sut.function("", [] {}), std::logic_error);
}

TEST_F(DriverTest, HandlersTimersAndDescriptorsShareOneThread) {
    std::array<int, 2> pipe{};
    ASSERT_EQ(::pipe(pipe.data()), 0);
    std::vector<std::thread::id> threads;
    const auto note = [&](const char* line) {
        threads.push_back(std::this_thread::get_id());
        calls.add(line);
    };
    sut.function("MOVE", [&] { note("MOVE"); });
    sut.onStart = [&] {
        sut.after(milliseconds(1), [&] { note("timer"); });
        EXPECT_EQ(sut.watch(pipe[0],
                            [&] {
                                sut.unwatch(pipe[0]);
                                note("descriptor");
                            }),
                  "");
        return true;
    };
    ASSERT_TRUE(sut.startIn(host));
    ASSERT_EQ(::write(pipe[1], "x", 1), 1);
    EXPECT_TRUE(sut.sendFID("MOVE", {}));
    EXPECT_TRUE(sut.post([&] { note("posted"); }));
    for (const char* line : {"MOVE", "timer", "descriptor", "posted"})
        ASSERT_TRUE(calls.waitFor(line));
    sut.deinitialize();
    EXPECT_THAT(threads, testing::Each(threads.front()));
    EXPECT_NE(threads.front(), std::this_thread::get_id());
    ::close(pipe[0]);
    ::close(pipe[1]);
}

TEST_F(DriverTest, ExceptionOfAHandlerIsALine) {
    sut.function("MOVE", [] { throw std::runtime_error("no such axis"); });
    sut.function("STOP", [&] { calls.add("STOP"); });
    ASSERT_TRUE(sut.startIn(host));
    EXPECT_TRUE(sut.sendFID("MOVE", {}));
    EXPECT_TRUE(sut.sendFID("STOP", {}));
    EXPECT_TRUE(calls.waitFor("STOP"));
    EXPECT_THAT(log.text(), HasSubstr("LAMP1: MOVE failed: no such axis\n"));
}

TEST_F(DriverTest, AnswerTellsTheSenderWhetherItWasDone) {
    sut.answer("SWITCH", {Parameter::boolean("on")}, [&](const Arguments& arguments) {
        calls.add("SWITCH");
        return arguments.boolean("on") ? Answer::ignored("the lamp is hot") : Answer::done();
    });
    ASSERT_TRUE(sut.startIn(host));
    EXPECT_TRUE(sut.sendFID("SWITCH", listOf({{"on", "false"}})));
    EXPECT_EQ(log.text(), "");
    EXPECT_FALSE(sut.sendFID("SWITCH", listOf({{"on", "true"}})));
    EXPECT_THAT(log.text(), HasSubstr("warning  LAMP1: SWITCH ignored, the lamp is hot\n"));
    EXPECT_FALSE(sut.sendFID("SWITCH", listOf({{"on", "maybe"}})));
    EXPECT_THAT(log.text(), HasSubstr("LAMP1: SWITCH ignored, on=\"maybe\" is not true or false\n"));
    EXPECT_EQ(calls.count("SWITCH"), 2);
}

TEST_F(DriverTest, AnswerThatSomethingFailedIsAnError) {
    sut.answer("SWITCH", {}, [](const Arguments&) { return Answer::failed("the lamp does not answer"); });
    sut.answer("DIM", {}, [](const Arguments&) -> Answer { throw std::runtime_error("no lamp"); });
    ASSERT_TRUE(sut.startIn(host));
    EXPECT_FALSE(sut.sendFID("SWITCH", {}));
    EXPECT_THAT(log.text(), HasSubstr("error    LAMP1: SWITCH failed, the lamp does not answer\n"));
    EXPECT_FALSE(sut.sendFID("DIM", {}));
    EXPECT_THAT(log.text(), HasSubstr("error    LAMP1: DIM failed, no lamp\n"));
}

/// Two drivers whose functions send to each other would wait for ever if an answer waited for a thread.
TEST_F(DriverTest, AnswerComesOnTheSendersThreadWhateverTheDriversOwnDoes) {
    std::promise<void> release;
    std::promise<void> begun;
    sut.function("WAIT", [&] {
        begun.set_value();
        release.get_future().wait();
    });
    std::thread::id answered;
    sut.answer("SWITCH", {}, [&](const Arguments&) {
        answered = std::this_thread::get_id();
        return sut.sendFID("STEADY", {}) ? Answer::done() : Answer::failed("no call within a call");
    });
    sut.answer("STEADY", {}, [](const Arguments&) { return Answer::done(); });
    ASSERT_TRUE(sut.startIn(host));
    ASSERT_TRUE(sut.sendFID("WAIT", {}));
    begun.get_future().wait();
    EXPECT_TRUE(sut.sendFID("SWITCH", {})) << log.text();
    EXPECT_EQ(answered, std::this_thread::get_id());
    release.set_value();
    // The handler that waits refers to what ends here.
    EXPECT_TRUE(sut.deinitialize());
}

TEST_F(DriverTest, NoAnswerIsGivenBeforeTheStartAndAfterTheStop) {
    sut.answer("SWITCH", {}, [&](const Arguments&) {
        calls.add("SWITCH");
        return Answer::done();
    });
    EXPECT_FALSE(sut.sendFID("SWITCH", {}));
    ASSERT_TRUE(sut.startIn(host));
    ASSERT_TRUE(sut.deinitialize());
    EXPECT_FALSE(sut.sendFID("SWITCH", {}));
    EXPECT_TRUE(calls.lines().empty());
}

TEST_F(DriverTest, DeclaresAFunctionThatAnswersOnce) {
    sut.function("MOVE", [] {});
    EXPECT_THROW(sut.answer("MOVE", {}, [](const Arguments&) { return Answer::done(); }), std::logic_error);
}

TEST_F(DriverTest, TakesNoFidBeforeItsStart) {
    sut.function("MOVE", [&] { calls.add("MOVE"); });
    EXPECT_FALSE(sut.sendFID("MOVE", {}));
    EXPECT_FALSE(sut.post([] {}));
    EXPECT_EQ(sut.after(milliseconds(0), [] {}), 0u);
    EXPECT_EQ(sut.watch(0, [] {}), "the driver does not run");
}

TEST_F(DriverTest, FidsComeAfterTheStartIsDone) {
    sut.function("MOVE", [&] { calls.add("MOVE"); });
    sut.onStart = [&] {
        EXPECT_FALSE(sut.sendFID("MOVE", {}));
        calls.add("start");
        return true;
    };
    ASSERT_TRUE(sut.startIn(host));
    EXPECT_TRUE(sut.sendFID("MOVE", {}));
    EXPECT_TRUE(calls.waitFor("MOVE"));
    EXPECT_THAT(calls.lines(), ElementsAre("start", "MOVE"));
}

TEST_F(DriverTest, DoesNotRunWhereItsStartSaysNo) {
    sut.function("MOVE", [] {});
    sut.onStart = [] { return false; };
    sut.onStop = [&] { calls.add("stop"); };
    EXPECT_FALSE(sut.startIn(host));
    EXPECT_FALSE(sut.sendFID("MOVE", {}));
    EXPECT_FALSE(sut.post([] {}));
    EXPECT_TRUE(sut.deinitialize());
    EXPECT_TRUE(calls.lines().empty());
}

TEST_F(DriverTest, DoesNotRunWhereItsStartThrows) {
    sut.onStart = []() -> bool { throw std::runtime_error("no port"); };
    EXPECT_FALSE(sut.startIn(host));
    EXPECT_THAT(log.text(), HasSubstr("LAMP1: not started: no port\n"));
}

TEST_F(DriverTest, DoesNotRunWithoutAPanel) {
    sut.setConfiguration(0, "LAMP1", "", "", "", "", "");
    EXPECT_FALSE(sut.initializationCompleted());
    EXPECT_THAT(log.text(), HasSubstr("LAMP1: not started, there is nowhere to report to\n"));
}

TEST_F(DriverTest, DoesWhatHasComeBeforeItsStop) {
    sut.function("MOVE", [&] { calls.add("MOVE"); });
    sut.onStop = [&] { calls.add("stop"); };
    ASSERT_TRUE(sut.startIn(host));
    EXPECT_TRUE(sut.sendFID("MOVE", {}));
    EXPECT_TRUE(sut.deinitialize());
    EXPECT_THAT(calls.lines(), ElementsAre("MOVE", "stop"));
}

TEST_F(DriverTest, KeepsEverythingBackAfterItsStop) {
    mfd::State<int> position{sut, "POSITION"};
    const mfd::Event fault{sut, "FAULT"};
    sut.function("MOVE", [&] { calls.add("MOVE"); });
    sut.onStart = [&] {
        sut.every(milliseconds(1), [&] { position = 1; });
        return true;
    };
    sut.onStop = [&] { EXPECT_TRUE(sut.sendToDriver("PANEL.ALARM")); };
    ASSERT_TRUE(sut.startIn(host));
    ASSERT_TRUE(host.calls.waitFor("POSITION int 1"));
    ASSERT_TRUE(sut.deinitialize());
    const std::vector<std::string> before = host.calls.lines();
    EXPECT_FALSE(sut.sendFID("MOVE", {}));
    EXPECT_FALSE(sut.post([] {}));
    EXPECT_FALSE(fault.trigger("late"));
    EXPECT_FALSE(sut.sendToDriver("PANEL.ALARM"));
    position = 2;
    EXPECT_EQ(host.calls.lines(), before);
    EXPECT_EQ(host.calls.count("send PANEL.ALARM "), 1);
    EXPECT_THAT(log.text(), HasSubstr("LAMP1: PANEL.ALARM not sent, the driver does not run\n"));
}

TEST_F(DriverTest, SaysThatItsStopFailed) {
    sut.onStop = [] { throw std::runtime_error("the port is gone"); };
    ASSERT_TRUE(sut.startIn(host));
    EXPECT_FALSE(sut.deinitialize());
    EXPECT_TRUE(sut.deinitialize());
    EXPECT_THAT(log.text(), HasSubstr("LAMP1: its stop failed: the port is gone\n"));
}

TEST_F(DriverTest, RunsAgainAfterItsStop) {
    mfd::State<int> position{sut, "POSITION", 5};
    sut.function("MOVE", [&] { calls.add("MOVE"); });
    for (int times = 1; times <= 2; ++times) {
        ASSERT_TRUE(sut.startIn(host));
        EXPECT_EQ(host.calls.count("POSITION int 5"), times);
        EXPECT_TRUE(sut.sendFID("MOVE", {}));
        EXPECT_TRUE(calls.waitFor("MOVE", times));
        EXPECT_TRUE(sut.deinitialize());
    }
}

TEST_F(DriverTest, RefusesFidsThatComeFasterThanItWorks) {
    std::promise<void> begun;
    std::promise<void> go;
    sut.function("WAIT", [&] {
        begun.set_value();
        go.get_future().wait_for(c_hangGuard);
    });
    sut.function("MOVE", [] {});
    ASSERT_TRUE(sut.startIn(host));
    ASSERT_TRUE(sut.sendFID("WAIT", {}));
    begun.get_future().wait();
    int taken = 0;
    while (taken < 5000 && sut.sendFID("MOVE", {}))
        ++taken;
    EXPECT_FALSE(sut.sendFID("MOVE", {}));
    go.set_value();
    EXPECT_EQ(taken, 4096);
    const std::string line =
        "LAMP1: MOVE ignored, the driver's thread has too much to do: it is sent faster than it works\n";
    const std::string text = log.text();
    ASSERT_THAT(text, HasSubstr(line));
    EXPECT_THAT(text.substr(text.find(line) + 1), Not(HasSubstr(line)));
}

TEST_F(DriverTest, SendsThroughTheHost) {
    ASSERT_TRUE(sut.startIn(host));
    EXPECT_TRUE(sut.sendToDriver("PANEL.ALARM", listOf({{"text", "hot"}})));
    EXPECT_EQ(host.calls.count("send PANEL.ALARM text=hot"), 1);
}

TEST_F(DriverTest, SaysThatTheHostDoesNotTakeAFid) {
    host.sendResult = false;
    ASSERT_TRUE(sut.startIn(host));
    EXPECT_FALSE(sut.sendToDriver("PANEL.ALARM"));
    EXPECT_THAT(log.text(), HasSubstr("LAMP1: PANEL.ALARM not sent, the host does not take it\n"));
}

TEST_F(DriverTest, SendsNoFidThatAMessageCannotHold) {
    ASSERT_TRUE(sut.startIn(host));
    const std::string longText(256, 'x');
    EXPECT_FALSE(sut.sendToDriver("ALARM"));
    EXPECT_FALSE(sut.sendToDriver("PANEL."));
    EXPECT_FALSE(sut.sendToDriver("A." + longText));
    EXPECT_FALSE(sut.sendToDriver("A.B", listOf({{"text", longText}})));
    FIDParameterList many;
    for (int i = 0; i < 256; ++i)
        many.add("n", "");
    EXPECT_FALSE(sut.sendToDriver("A.B", many));
    FIDParameterList large;
    for (int i = 0; i < 4; ++i)
        large.add("n", std::string(251, 'x'));
    EXPECT_FALSE(sut.sendToDriver("A.BC", large));
    EXPECT_TRUE(host.calls.linesOf("send").empty());
    const std::string text = log.text();
    EXPECT_THAT(text, HasSubstr("LAMP1: ALARM not sent, it is not a driver ID, \".\" and a function\n"));
    EXPECT_THAT(text, HasSubstr("not sent, it has 258 bytes, at most 255 are possible\n"));
    EXPECT_THAT(
        text,
        HasSubstr("LAMP1: A.B not sent, the parameter \"text\" has 256 bytes, at most 255 are possible\n"));
    EXPECT_THAT(text, HasSubstr("LAMP1: A.B not sent, it has 256 parameters, at most 255 are possible\n"));
    EXPECT_THAT(text, HasSubstr("LAMP1: A.BC not sent, it takes 1022 bytes, a message has room for 1018\n"));
}

/// The limit is that of a message, to the byte.
TEST_F(DriverTest, SendsAFidThatFillsAMessage) {
    ASSERT_TRUE(sut.startIn(host));
    FIDParameterList large;
    for (int i = 0; i < 4; ++i)
        large.add("n", std::string(250, 'x'));
    EXPECT_TRUE(sut.sendToDriver("A.BC", large)) << log.text();
}

TEST_F(DriverTest, TimeStandsStillInATest) {
    ::setenv("MFD_TEST_TIME", "stands still", 1);
    sut.onStart = [&] {
        sut.every(milliseconds(1000), [&] { calls.add("timer"); });
        return true;
    };
    ASSERT_TRUE(sut.startIn(host));
    ::unsetenv("MFD_TEST_TIME");
    EXPECT_TRUE(sut.sendFID("mfd.advance", listOf({{"ms", "999"}, {"number", "1"}})));
    ASSERT_TRUE(host.calls.waitFor("event mfd.advanced 1"));
    EXPECT_EQ(calls.count("timer"), 0);
    EXPECT_TRUE(sut.sendFID("mfd.advance", listOf({{"ms", "2001"}, {"number", "2"}})));
    ASSERT_TRUE(host.calls.waitFor("event mfd.advanced 2"));
    EXPECT_EQ(calls.count("timer"), 3);
}

TEST_F(DriverTest, TimeIsNotMovedOutsideATest) {
    ASSERT_TRUE(sut.startIn(host));
    EXPECT_FALSE(sut.sendFID("mfd.advance", listOf({{"ms", "999"}, {"number", "1"}})));
    EXPECT_THAT(log.text(), HasSubstr("LAMP1: unknown FID \"mfd.advance\"; known are \n"));
}

TEST_F(DriverTest, CallsOfManyThreadsEndWithTheStop) {
    mfd::State<int> position{sut, "POSITION"};
    sut.function("MOVE", {Parameter::integer("to")},
                 [&](const Arguments& arguments) { position = arguments.integer("to"); });
    for (int round = 0; round < 5; ++round) {
        ASSERT_TRUE(sut.startIn(host));
        std::atomic<bool> ends{false};
        std::vector<std::thread> threads;
        for (int i = 0; i < 3; ++i) {
            threads.emplace_back([&, i] {
                for (int n = 0; !ends; ++n) {
                    static_cast<void>(sut.sendFID("MOVE", listOf({{"to", std::to_string(n)}})));
                    static_cast<void>(sut.post([] {}));
                    if (i == 0)
                        position = -n;
                }
            });
        }
        std::this_thread::sleep_for(milliseconds(5));
        EXPECT_TRUE(sut.deinitialize());
        const std::vector<std::string> before = host.calls.lines();
        std::this_thread::sleep_for(milliseconds(2));
        EXPECT_EQ(host.calls.lines().size(), before.size());
        ends = true;
        for (std::thread& thread : threads)
            thread.join();
    }
}

}  // namespace
