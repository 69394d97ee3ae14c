#include "FidTrail.h"

#include <gmock/gmock.h>

#include <thread>

#include "FidFields.h"
#include "MessageCodes.h"
#include "MessageWriter.h"
#include "StreamFixture.h"
#include "StreamText.h"

using stream::EFidOutcome;
using stream::EKind;
using stream::EOrigin;
using testing::ElementsAre;
using Lines = std::vector<std::string>;

namespace {

FIDParameterList parameters(const std::string& name, const std::string& value) {
    FIDParameterList list;
    list.add(name, value);
    return list;
}

/// What stands in the ring of the FIDs that a test has told of.
class FidTrailTest : public StreamFixture {
protected:
    FidTrailTest() : m_pRing(ringOf(small())), m_observation(*m_pRing) {}

    /// "A>B driver 0 B.MOVE x=1": sender, receiver, origin, outcome, FID; the end of one with its outcome.
    /// On a busy machine any FID may be late: that alone is left out unless it is asked for.
    Lines recorded(bool withLate = false) const {
        const stream::StreamSource source(*m_pRing);
        const auto pReader = readerOf(source);
        Lines lines;
        while (pReader->next({}) == stream::IStreamReader::EResult::Record) {
            const auto& record = pReader->record();
            const auto& names = pReader->names();
            if (record.kind == EKind::Fid) {
                const auto who = static_cast<std::size_t>(static_cast<unsigned char>(record.text[0]));
                const auto fid = stream::FidFields::parse(std::string_view(record.text).substr(1 + who));
                std::string line = names.driver(record.driver()) + '>' +
                                   names.driver(static_cast<std::uint16_t>(record.value)) + " origin " +
                                   std::to_string(record.value >> 16 & 0xffu) +
                                   (who > 0 ? '(' + record.text.substr(1, who) + ')' : "") + " outcome " +
                                   std::to_string(record.value >> 24) + ": " + fid.function;
                for (const auto& [name, value] : fid.parameters)
                    line += ' ' + name + '=' + value;
                lines.push_back(line);
            } else if (record.kind == EKind::FidEnd) {
                if (!withLate && record.value == static_cast<std::uint32_t>(EFidOutcome::Late))
                    continue;
                std::uint64_t begin = 0;
                std::memcpy(&begin, record.text.data(), sizeof begin);
                lines.push_back(names.driver(record.driver()) + " end of " + std::to_string(begin) +
                                " outcome " + std::to_string(record.value) + ": " + record.text.substr(16));
            } else if (record.kind != EKind::Define && record.kind != EKind::Counts) {
                const std::string line = stream::lineOf(record, names);
                lines.push_back(line.substr(line.find(' ') + 1));
            }
        }
        return lines;
    }

    void receive(const std::string& queue, const protocol::MessageWriter& message) {
        m_sut.received(queue, message.data(), static_cast<int>(message.length()));
    }
    void receiveFid(const std::string& fid, const FIDParameterList& list = {}) {
        receive("A_OUTQ", protocol::MessageWriter(protocol::dispatchFID).string(fid).parameters(list));
    }
    void send(const std::string& queue, const std::string& function, bool ok,
              const FIDParameterList& list = {}) {
        const auto message = protocol::MessageWriter(protocol::sendFID).string(function).parameters(list);
        m_sut.sent(queue, message.data(), static_cast<int>(message.length()), ok);
    }
    void deliver(const std::string& driverID, const std::string& function, const FIDParameterList& list = {},
                 bool ok = true, const char* exception = nullptr) {
        m_sut.fidBegins(driverID, function, list);
        m_sut.fidEnded(ok, exception);
    }

    const std::string m_driverB = "B";  ///< lives as long as the FIDs that are inside it
    std::unique_ptr<stream::StreamRing> m_pRing;
    Observation m_observation;
    EFidOutcome m_why = EFidOutcome::NoSuchDriver;
    Lines m_asked;
    Lines m_heldBack;
    FidTrail m_sut{m_observation,
                   [this](const std::string& fid, const FIDParameterList* pParameters) {
                       m_asked.push_back(fid + (pParameters ? " with parameters" : ""));
                       return m_why;
                   },
                   [this](const std::string& driverID) { m_heldBack.push_back(driverID); }};
};

}  // namespace

TEST_F(FidTrailTest, FidOfADriverProcessIsRecordedAsItsDeliveryBegins) {
    receiveFid("B.MOVE", parameters("x", "1"));
    EXPECT_EQ(recorded(), Lines{});
    m_sut.fidBegins(m_driverB, "MOVE", parameters("x", "1"));
    EXPECT_THAT(recorded(), ElementsAre("A>B origin 0 outcome 0: B.MOVE x=1"));
    m_sut.fidEnded(true, nullptr);
    m_sut.waits("A_OUTQ");
    EXPECT_EQ(recorded().size(), 1u);
}

TEST_F(FidTrailTest, FidToADriverProcessIsRecordedWhenItIsWritten) {
    receiveFid("B.MOVE", parameters("x", "1"));
    send("B_INQ", "MOVE", true, parameters("x", "1"));
    receiveFid("B.STOP");
    send("B_INQ", "STOP", false);
    m_sut.waits("A_OUTQ");
    EXPECT_THAT(recorded(),
                ElementsAre("A>B origin 0 outcome 1: B.MOVE x=1", "A>B origin 0 outcome 3: B.STOP"));
}

TEST_F(FidTrailTest, SecretsAreNotRecorded) {
    SecretNames secrets;
    secrets.add("B.LOGIN:pin");
    Observation observation(*m_pRing, secrets);
    FidTrail sut{observation, [](const std::string&, const FIDParameterList*) { return EFidOutcome::Begins; },
                 [](const std::string&) {}};
    sut.fidBegins(m_driverB, "LOGIN", parameters("pin", "1234"));
    sut.fidEnded(true, nullptr);
    // A message to a driver process names the function alone.
    const auto message =
        protocol::MessageWriter(protocol::sendFID).string("LOGIN").parameters(parameters("pin", "1234"));
    sut.sent("B_INQ", message.data(), static_cast<int>(message.length()), true);
    sut.fidBegins(m_driverB, "MOVE", parameters("pin", "5678"));
    sut.fidEnded(true, nullptr);
    EXPECT_THAT(recorded(), ElementsAre("host>B origin 0 outcome 0: B.LOGIN pin=***",
                                        "host>B origin 0 outcome 1: LOGIN pin=***",
                                        "host>B origin 0 outcome 0: B.MOVE pin=5678"));
}

TEST_F(FidTrailTest, FidThatReachesNobodyIsRecordedWhenTheThreadComesBack) {
    receiveFid("X.MOVE");
    receiveFid("Y.MOVE");
    m_why = EFidOutcome::NotRunning;
    EXPECT_THAT(recorded(), ElementsAre("A>host origin 0 outcome 2: X.MOVE"));
    m_sut.waits("A_OUTQ");
    EXPECT_THAT(recorded(),
                ElementsAre("A>host origin 0 outcome 2: X.MOVE", "A>host origin 0 outcome 3: Y.MOVE"));
    EXPECT_EQ(m_asked, (Lines{"X.MOVE", "Y.MOVE"}));
}

TEST_F(FidTrailTest, FidThatIsSentInTheHostHasItsOrigin) {
    const FIDParameterList list = parameters("x", "1");
    const std::string fid = "B.MOVE";
    {
        const FidTrail::Asking asking(EOrigin::Api, "anna");
        const FidTrail::Sending sending(&m_sut, fid, list);
        deliver("B", "MOVE", list);
    }
    {
        const FidTrail::Sending sending(&m_sut, fid, list);
        send("B_INQ", "MOVE", true, list);
    }
    EXPECT_THAT(recorded(), ElementsAre("host>B origin 3(anna) outcome 0: B.MOVE x=1",
                                        "host>B origin 1 outcome 1: B.MOVE x=1"));
}

TEST_F(FidTrailTest, SendThatReachesNobodySaysWhy) {
    const FIDParameterList none;
    const std::string fid = "B.MOVE";
    m_why = EFidOutcome::TakesNoFids;
    { const FidTrail::Sending sending(&m_sut, fid, none); }
    EXPECT_THAT(recorded(), ElementsAre("host>host origin 1 outcome 4: B.MOVE"));
    EXPECT_EQ(m_asked, Lines{"B.MOVE with parameters"});
}

TEST_F(FidTrailTest, WhatAMacroSystemSendsMeanwhileIsAFidOfItsOwn) {
    receiveFid("B.MOVE");
    const FIDParameterList none;
    const std::string other = "C.STEP";
    {
        const FidTrail::Sending sending(&m_sut, other, none);
        deliver("C", "STEP");
    }
    deliver("B", "MOVE");
    m_sut.waits("A_OUTQ");
    EXPECT_THAT(recorded(),
                ElementsAre("host>C origin 1 outcome 0: C.STEP", "A>B origin 0 outcome 0: B.MOVE"));
}

TEST_F(FidTrailTest, FidFromDriverToDriverWithoutTheHostIsItsSenders) {
    m_sut.fidBegins(m_driverB, "MOVE", {});
    deliver("C", "STEP", parameters("y", "2"));
    m_sut.fidEnded(true, nullptr);
    EXPECT_THAT(recorded(),
                ElementsAre("host>B origin 0 outcome 0: B.MOVE", "B>C origin 0 outcome 0: C.STEP y=2"));
}

TEST_F(FidTrailTest, RefusalAndExceptionHaveASecondRecord) {
    deliver("B", "MOVE", {}, false);
    deliver("B", "MOVE", {}, false, "no device");
    m_sut.fidBegins(m_driverB, "DANCE", {});
    m_sut.logged("B", "unknown FID \"DANCE\"; known are MOVE");
    m_sut.fidEnded(false, nullptr);
    m_sut.logged("B", "unknown FID \"LATER\"");
    deliver("B", "MOVE", {}, false);
    EXPECT_THAT(recorded(),
                ElementsAre("host>B origin 0 outcome 0: B.MOVE",
                            "B end of 2 outcome 9: ", "host>B origin 0 outcome 0: B.MOVE",
                            "B end of 4 outcome 10: no device", "host>B origin 0 outcome 0: B.DANCE",
                            "B end of 6 outcome 6: unknown FID \"DANCE\"; known are MOVE",
                            "host>B origin 0 outcome 0: B.MOVE", "B end of 8 outcome 9: "));
}

TEST_F(FidTrailTest, OneThatTakesOverAMillisecondHasASecondRecord) {
    // A thread that has sent nothing lately.
    std::thread([this] {
        m_sut.fidBegins(m_driverB, "MOVE", {});
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
        m_sut.fidEnded(true, nullptr);
    }).join();
    EXPECT_THAT(recorded(true), ElementsAre("host>B origin 0 outcome 0: B.MOVE", "B end of 2 outcome 11: "));
}

TEST_F(FidTrailTest, DeeperCallsThanItKeepsAreRecordedAllTheSame) {
    for (int i = 0; i < 40; ++i)
        m_sut.fidBegins(m_driverB, "MOVE", {});
    for (int i = 0; i < 40; ++i)
        m_sut.fidEnded(true, nullptr);
    m_sut.fidEnded(true, nullptr);
    EXPECT_GE(recorded().size(), 40u);
}

TEST_F(FidTrailTest, ConfigurationOfADriverProcessIsRecorded) {
    const auto message = protocol::MessageWriter(protocol::deinitialize);
    m_sut.sent("B_INQ", message.data(), static_cast<int>(message.length()), true);
    m_sut.sent("OTHER", message.data(), static_cast<int>(message.length()), true);
    EXPECT_THAT(recorded(), ElementsAre("B configuration deinitialize done after 0 us"));
}

TEST_F(FidTrailTest, ReportsAreCountedAndThoseThatAreMergedAway) {
    const auto report = protocol::MessageWriter(protocol::setStateValueInt).string("X").int32(1);
    for (int i = 0; i < 5; ++i)
        receive("A_OUTQ", report);
    EXPECT_EQ(m_observation.reports("A").received, 0u);
    Observation::ofThread().delivered += 2;
    receive("A_OUTQ", report);
    EXPECT_EQ(m_observation.reports("A").received, 0u) << "told once a tick";
    m_observation.tick(Observation::now(), Observation::Clock::now());
    receive("A_OUTQ", report);
    EXPECT_EQ(m_observation.reports("A").received, 6u);
    EXPECT_EQ(m_observation.reports("A").delivered, 2u);
    Observation::ofThread().delivered += 1;
    m_sut.waits("A_OUTQ");
    EXPECT_EQ(m_observation.reports("A").received, 7u);
    EXPECT_EQ(m_observation.reports("A").delivered, 3u);
}

TEST_F(FidTrailTest, ReportsOfADriverAreCountedWhenItsThreadTurnsToAnother) {
    const auto report = protocol::MessageWriter(protocol::setStateValueInt).string("X").int32(1);
    receive("A_OUTQ", report);
    Observation::ofThread().delivered += 1;
    receive("B_OUTQ", report);
    EXPECT_EQ(m_observation.reports("A").received, 1u);
    EXPECT_EQ(m_observation.reports("A").delivered, 1u);
    EXPECT_EQ(m_observation.reports("B").delivered, 0u);
}

TEST_F(FidTrailTest, WhatADriverSetsInsideAFidIsNotOfTheQueue) {
    receiveFid("B.MOVE");
    m_sut.fidBegins(m_driverB, "MOVE", {});
    Observation::ofThread().delivered += 9;
    m_sut.fidEnded(true, nullptr);
    m_sut.waits("A_OUTQ");
    EXPECT_EQ(m_observation.reports("A").delivered, 0u);
}

TEST_F(FidTrailTest, WhatItsSenderHasSetIsRecordedBefore) {
    receiveFid("B.MOVE");
    m_observation.holdBack();
    deliver("B", "MOVE");
    deliver("B", "MOVE");
    EXPECT_EQ(m_heldBack, Lines{"A"});
}

TEST_F(FidTrailTest, ThreadKnowsWhoseMessagesItReceives) {
    std::thread([this] {
        EXPECT_EQ(FidTrail::driverOfThread(), "");
        receiveFid("B.MOVE");
        EXPECT_EQ(FidTrail::driverOfThread(), "A");
        receive("OTHER", protocol::MessageWriter(protocol::deinitialize));
        EXPECT_EQ(FidTrail::driverOfThread(), "");
    }).join();
}

TEST_F(FidTrailTest, WithoutATrailNothingIsRecorded) {
    const FIDParameterList none;
    const std::string fid = "B.MOVE";
    { const FidTrail::Sending sending(nullptr, fid, none); }
    EXPECT_EQ(recorded(), Lines{});
}

TEST_F(FidTrailTest, EachFidOfAFloodIsRecorded) {
    std::thread([this] {
        for (int i = 0; i < 500; ++i)
            deliver("B", "MOVE");
    }).join();
    EXPECT_EQ(m_pRing->count(1, EKind::Fid) + m_pRing->count(0, EKind::Fid) + m_pRing->refused(0), 500u);
    EXPECT_GE(recorded().size(), 100u);
}

TEST_F(FidTrailTest, EachFidOfADriverThatHasHadItsShareIsCounted) {
    const std::uint16_t sender = m_observation.number("A");
    for (int i = 0; i < 5000; ++i) {
        receiveFid("B.MOVE");
        deliver("B", "MOVE");
    }
    // Those that reach nobody, and those to a driver process, are no others.
    receiveFid("NOBODY.MOVE");
    receiveFid("C.MOVE");
    send("C_INQ", "MOVE", true);
    m_sut.waits("A_OUTQ");
    EXPECT_GE(m_pRing->count(sender, EKind::Fid), 100u);
    EXPECT_EQ(m_pRing->count(sender, EKind::Fid) + m_pRing->refused(sender), 5002u);
    EXPECT_EQ(m_pRing->count(m_observation.number("B"), EKind::Fid), 0u);
    EXPECT_EQ(m_pRing->count(0, EKind::Fid), 0u);

    // So is that one fails; what others send is recorded all the same.
    const std::uint64_t refused = m_pRing->refused(sender);
    receiveFid("B.MOVE");
    deliver("B", "MOVE", {}, true, "broken");
    receive("X_OUTQ", protocol::MessageWriter(protocol::dispatchFID).string("B.STOP").parameters({}));
    deliver("B", "STOP");
    EXPECT_EQ(m_pRing->refused(sender), refused + 2);
    EXPECT_EQ(recorded().back(), "X>B origin 0 outcome 0: B.STOP");
}

TEST_F(FidTrailTest, ReportsAndConfigurationAmongFidsThatAreOnlyCountedAreNone) {
    for (int i = 0; i < 5000; ++i) {
        receiveFid("B.MOVE");
        deliver("B", "MOVE");
    }
    m_sut.waits("A_OUTQ");
    const std::uint16_t sender = m_observation.number("A");
    ASSERT_TRUE(m_observation.isSpent(sender));
    const std::uint64_t refused = m_pRing->refused(sender);
    for (int i = 0; i < 3; ++i) {
        receiveFid("B.MOVE");
        deliver("B", "MOVE");
        receive("A_OUTQ", protocol::MessageWriter(protocol::setStateValueInt).string("X").int32(i));
    }
    receiveFid("C.MOVE");
    const protocol::MessageWriter end(protocol::deinitialize);
    m_sut.sent("C_INQ", end.data(), static_cast<int>(end.length()), true);
    EXPECT_EQ(recorded().back(), "C configuration deinitialize done after 0 us");
    send("C_INQ", "MOVE", true);
    m_sut.waits("A_OUTQ");
    EXPECT_EQ(m_pRing->refused(sender), refused + 4);
    EXPECT_EQ(m_observation.reports("A").received, 3u);
}

TEST_F(FidTrailTest, FidsAreRecordedAgainWhenTheirSenderHasAShareAgain) {
    for (int i = 0; i < 5000; ++i) {
        receiveFid("B.MOVE");
        deliver("B", "MOVE");
    }
    ASSERT_TRUE(m_observation.isSpent(m_observation.number("A")));
    // What it would push out is older than a minute by now.
    m_observation.tick(Observation::now() + std::chrono::seconds(61), Observation::Clock::now());
    receiveFid("B.STOP");
    deliver("B", "STOP");
    EXPECT_EQ(recorded().back(), "A>B origin 0 outcome 0: B.STOP");
}

TEST_F(FidTrailTest, FidsThatFailAreOfTheirSendersShareAlone) {
    for (int i = 0; i < 5000; ++i) {
        receiveFid("B.DANCE");
        deliver("B", "DANCE", {}, false);
    }
    m_sut.waits("A_OUTQ");
    const std::uint16_t receiver = m_observation.number("B");
    EXPECT_EQ(m_pRing->refused(receiver), 0u);
    EXPECT_FALSE(m_observation.isSpent(receiver));
    receive("B_OUTQ", protocol::MessageWriter(protocol::dispatchFID).string("C.MOVE").parameters({}));
    deliver("C", "MOVE");
    EXPECT_EQ(recorded().back(), "B>C origin 0 outcome 0: C.MOVE");
}
