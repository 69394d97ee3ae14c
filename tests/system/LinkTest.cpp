#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

#include <string>

#include "HangGuard.h"
#include "LinkFixture.h"

using testing::ContainsRegex;
using testing::HasSubstr;
using testing::Not;

TEST_F(Link, FidIsDoneThereAndAnsweredAndItsValueComesBack) {
    startAll();
    expectSets("17");
    EXPECT_TRUE(other().repliesWith("state --now E.N", "E\\.N +int +17 +E +[0-9]+ s +yes"))
        << other().output();
    EXPECT_TRUE(host().repliesWith("events", "SITE2\\.OUTCOME.*E\\.INT: done")) << host().output();
    endAll();
    EXPECT_THAT(host().log(), Not(ContainsRegex(" (error|critical) +[A-Z0-9]+: ")));
}

TEST_F(Link, WhatTheOtherSideDoesNotDoIsToldWithItsReason) {
    startAll();
    // The other way, where the broker's rights let it pass: the receiving site itself says no.
    other().type("sendFID SITE1.PANEL.ALARM text=x");
    EXPECT_TRUE(
        other().waitForLog("SITE1: PANEL.ALARM: refused: SITE1 does not allow FIDs of SITE2 to PANEL\n"))
        << other().log();
    EXPECT_TRUE(
        host().waitForLog("SITE2: PANEL.ALARM of SITE2 is refused: SITE1 does not allow FIDs of SITE2 to "
                          "PANEL\n"))
        << host().log();
    host().type("sendFID SITE2.MOVE");
    EXPECT_TRUE(
        host().waitForLog("SITE2: MOVE is not sent: a FID to another site is a driver there, \".\" and a "
                          "function\n"))
        << host().log();
    endAll(3);
}

TEST_F(Link, KilledBrokerMakesValuesStaleUntilItIsBack) {
    startAll();
    expectSets("17");
    m_pBroker->signal(SIGKILL);
    expectStale("no broker: .*");
    host().type("sendFID SITE2.E.INT name=N value=18");
    EXPECT_TRUE(host().waitForLog("SITE2: E.INT is not sent: no broker: ")) << host().log();
    startBroker();
    EXPECT_TRUE(host().repliesWith("state --now SITE2.E.N", "SITE2\\.E\\.N +int +17 +SITE2 +[0-9]+ s +yes"))
        << host().output() << host().log();
    expectSets("19");
    endAll(3);
}

/// Half a connection: what is sent goes nowhere, and nothing says so.
TEST_F(Link, BrokerThatStandsStillHoldsNobodyUp) {
    startAll();
    expectSets("17");
    m_pBroker->signal(SIGSTOP);
    expectStale("(SITE2 is not heard|no broker: .*)");
    host().type("sendFID E.INT name=N value=18");
    EXPECT_TRUE(host().repliesWith("state --now E.N", "E\\.N +int +18 +E +[0-9]+ s +yes")) << host().output();
    endAll();
}

TEST_F(Link, KilledHostThereMakesValuesStaleUntilAnotherHasThem) {
    startAll();
    expectSets("17");
    other().signal(SIGKILL);
    EXPECT_EQ(other().waitForEnd(), 128 + SIGKILL);
    expectStale("SITE2 is away");
    expectAnewFromAnotherHost("20");
    endAll();
}

TEST_F(Link, BrokerThatHasACertificateOfOneWhoIsTrustedIsSpokenToWithTls) {
    secure("ca.pem");
    startAll();
    expectSets("17");
    endAll();
}

TEST_F(Link, BrokerThatHasACertificateOfAStrangerGetsNothing) {
    secure("stranger.pem");
    startBroker();
    start();
    EXPECT_TRUE(host().repliesWith("state --now SITE2.LINK",
                                   "SITE2\\.LINK +string +no broker: 127\\.0\\.0\\.1 port "
                                   "8883: A TLS error occurred\\."))
        << host().output() << host().log();
    EXPECT_THAT(m_pBroker->log(), Not(HasSubstr("SITE1")));
    EXPECT_EQ(end(), 0);
}

TEST_F(Link, WrongFileIsToldAndTheOthersRun) {
    writeFile(workplace().workdir() / "data/SITE2/link.xml", "<link site='SITE1' expiry='soon'/>\n");
    start();
    EXPECT_TRUE(host().waitForLog("HOST: the workplace is started\n")) << host().log();
    EXPECT_THAT(host().log(),
                ContainsRegex(" error +SITE2: data/SITE2/link.xml line 1: expiry=\"soon\" is not a whole "
                              "number from 1 to 3600\n"));
    EXPECT_THAT(host().listed("E"), HasSubstr("  running  "));
    EXPECT_EQ(end(), 0);
}
