#include <chrono>
#include <cstdlib>
#include <string>
#include <thread>

#include "FaultyWorkplace.h"

using testing::ContainsRegex;
using testing::HasSubstr;

// Drivers in the host's process that answer each other, or themselves, for ever: the host says so and goes
// on.
class Circle : public FaultyWorkplace {
protected:
    HostProcess& startCircling(const std::string& modeOfB = "direct") {
        workplace().addModule("Answers");
        workplace().addModule("Echo");
        workplace().configure(TestWorkplace::entry("A", "Answers", "direct") +
                              TestWorkplace::entry("B", "Answers", modeOfB) +
                              TestWorkplace::entry("E", "Echo", "direct"));
        HostProcess& host = start(call({"--log-level", "4"}));
        EXPECT_TRUE(host.waitForLog("HOST: the workplace is started")) << host.log();
        return host;
    }
    void expectHostServes(HostProcess& host) {
        host.type("sendFID E.PRINT value=still-here");
        EXPECT_TRUE(host.waitForOutput("still-here\n")) << host.log();
        EXPECT_EQ(end(), 0);
    }
    /// What the driver in the host's process counts, "CALLS" or "SPAN".
    static int countOf(HostProcess& host, const std::string& driverID, const std::string& what) {
        static int s_number = 0;
        const std::string mark = "mark" + std::to_string(++s_number);
        host.type("sendFID " + driverID + ".COUNT");
        host.type("state --now " + driverID + "." + what);
        host.type("sendFID E.PRINT value=" + mark);
        EXPECT_TRUE(host.waitForOutput(mark + "\n")) << host.log();
        const std::string output = host.output();
        const std::string head = driverID + "." + what + "  int   ";
        const auto at = output.rfind(head);
        return at == std::string::npos ? -1 : std::atoi(output.c_str() + at + head.size());
    }
    static long linesWith(const std::string& log, const std::string& text) {
        long count = 0;
        for (auto at = log.find(text); at != std::string::npos; at = log.find(text, at + 1))
            ++count;
        return count;
    }
};

TEST_F(Circle, OfOneDriverIsRefusedAndTheHostGoesOn) {
    HostProcess& host = startCircling();
    host.type("sendFID A.PING to=A.PING back=A.PING");
    EXPECT_TRUE(
        host.waitForLog("MODULE: driver A: sendFID(PING) is refused: drivers call each other in a "
                        "circle, 201 calls deep: A.PING -> A.PING\n"))
        << host.log();
    EXPECT_EQ(countOf(host, "A", "CALLS"), 200);
    expectHostServes(host);
}

TEST_F(Circle, OfTwoDriversIsRefusedAndNamed) {
    HostProcess& host = startCircling();
    host.type("sendFID A.PING to=B.PING back=A.PING");
    EXPECT_TRUE(
        host.waitForLog("MODULE: driver A: sendFID(PING) is refused: drivers call each other in a "
                        "circle, 201 calls deep: A.PING -> B.PING -> A.PING\n"))
        << host.log();
    expectHostServes(host);
}

TEST_F(Circle, OneLineIsSaidOfACircleThatIsBegunAgainAndAgain) {
    HostProcess& host = startCircling();
    for (int i = 0; i < 50; ++i)
        host.type("sendFID A.PING to=A.PING back=A.PING");
    EXPECT_EQ(countOf(host, "A", "CALLS"), 10000);
    expectHostServes(host);
    // One more when a loaded machine takes longer than ten seconds.
    const long lines = linesWith(host.log(), " is refused: ");
    EXPECT_GE(lines, 1);
    EXPECT_LE(lines, 5);
}

TEST_F(Circle, ThatBranchesComesToItsEnd) {
    HostProcess& host = startCircling();
    host.type("sendFID A.PING to=A.PING back=A.PING times=3");
    EXPECT_TRUE(host.waitForLog(" is refused: ")) << host.log();
    EXPECT_EQ(countOf(host, "A", "CALLS"), 1200);
    expectHostServes(host);
}

TEST_F(Circle, OfDriversWithMuchOnTheStackIsRefusedInTime) {
    HostProcess& host = startCircling();
    host.type("sendFID A.PING to=B.PING back=A.PING kib=256");
    EXPECT_TRUE(host.waitForLog(" calls deep: A.PING -> B.PING -> A.PING\n") ||
                host.waitForLog(" calls deep: B.PING -> A.PING -> B.PING\n"))
        << host.log();
    EXPECT_THAT(host.log(), ContainsRegex("in a circle, [0-9][0-9] calls deep"));
    expectHostServes(host);
}

TEST_F(Circle, TwoHundredCallsUseAPartOfTheStackOnly) {
    HostProcess& host = startCircling();
    host.type("sendFID A.PING to=A.PING back=A.PING");
    EXPECT_TRUE(host.waitForLog("201 calls deep")) << host.log();
    const int span = countOf(host, "A", "SPAN");
    RecordProperty("KiB", span);
    // Of the 8 MiB that a thread usually has, of which the last quarter is kept free.
    EXPECT_LT(span, 6 * 1024);
    expectHostServes(host);
}

TEST_F(Circle, ThroughADriverProcessUsesNoStackAndIsNoneOfThis) {
    HostProcess& host = startCircling("queue");
    host.type("sendFID A.PING to=B.PING back=A.PING");
    int calls = 0;
    for (int i = 0; i < 1000 && (calls = countOf(host, "A", "CALLS")) < 1000; ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    EXPECT_GE(calls, 1000);
    EXPECT_THAT(host.log(), testing::Not(HasSubstr(" is refused: ")));
    expectHostServes(host);
}
