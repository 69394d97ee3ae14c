#include "StreamFeed.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "ApiFault.h"
#include "ApiHost.h"
#include "FidFields.h"
#include "HangGuard.h"
#include "StreamFixture.h"

namespace {

using ENext = IAnswerBody::ENext;
using testing::ElementsAre;
using testing::HasSubstr;

/// The rings of a host that records, and what its clients are sent.
class StreamFeedTest : public StreamFixture {
protected:
    using Feed = std::shared_ptr<IAnswerBody>;

    StreamFeedTest() { host.pRecorded = &recorded; }

    Feed feed(const std::string& query) {
        return StreamFeed::open(host.context(), ApiTarget::read("/api/v1/stream" + query));
    }
    /// All that there is for now, without what each record has alike.
    static std::vector<std::string> lines(IAnswerBody& body) {
        std::string text;
        // The test's own thread is the only writer: what is left comes by itself.
        for (IAnswerBody::Piece piece{{}, ENext::AtOnce}; piece.next == ENext::AtOnce;) {
            piece = body.next();
            text += piece.text;
        }
        std::vector<std::string> found;
        while (!text.empty()) {
            found.push_back(text.substr(0, text.find('\n')));
            text.erase(0, found.back().size() + 1);
        }
        return found;
    }
    std::string refusal(const std::string& query) {
        try {
            feed(query);
        } catch (const ApiFault& fault) {
            return fault.what();
        }
        return "none";
    }
    void sendFid(const std::string& sender, const std::string& receiver, const std::string& function) {
        stream::FidFields fields(function);
        fields.add("x", "5");
        observation.stream().fid(at(0), {.sender = observation.number(sender),
                                         .receiver = observation.number(receiver),
                                         .outcome = stream::EFidOutcome::Written,
                                         .fields = fields.bytes()});
    }

    ApiHost host;
    std::unique_ptr<stream::StreamRing> pRing = ringOf(small());
    Observation observation{*pRing};
    stream::StreamSource source{*pRing};
    RecordedStream recorded{source, observation.keys()};
};

TEST_F(StreamFeedTest, GreetsAndGivesWhatComesFromThenOn) {
    sendFid("A", "B", "B.OLD");
    const Feed sut = feed("");
    EXPECT_THAT(lines(*sut), ElementsAre(R"({"kind":"hello","instance":"i1","restarted":false})"));
    sendFid("A", "B", "B.MOVE");
    EXPECT_THAT(
        lines(*sut),
        ElementsAre(
            R"({"number":4,"time":"2026-11-22T14:03:22.181123Z","kind":"fid","driver":"A","fid":"B.MOVE",)"
            R"("parameters":[["x","5"]],"receiver":"B","origin":"driver","outcome":"written",)"
            R"("cursor":"i1:both:5"})"));
    EXPECT_EQ(sut->next().next, ENext::Later);
}

TEST_F(StreamFeedTest, FiltersByKindDriverAndGlob) {
    const Feed sut = feed("?kinds=fid,exit&drivers=LAMP&glob=*O*");
    lines(*sut);
    sendFid("A", "B", "B.OFF");
    sendFid("A", "LAMP", "LAMP.ON");
    sendFid("A", "LAMP", "LAMP.DIM");
    observation.stream().event(
        at(0), {.number = std::uint32_t{observation.number("LAMP")} << 16, .text = "FOO"}, "");
    observation.exited("LAMP", 9, "OOM", false);
    const auto found = lines(*sut);
    ASSERT_EQ(found.size(), 2u);
    EXPECT_THAT(found[0], HasSubstr(R"("fid":"LAMP.ON")"));
    EXPECT_THAT(found[1], HasSubstr(R"("kind":"exit","driver":"LAMP","status":9,"text":"OOM")"));
}

TEST_F(StreamFeedTest, EndsWithWhatThereIsWhereItDoesNotFollow) {
    sendFid("A", "B", "B.MOVE");
    const Feed sut = feed("?kinds=fid&follow=0");
    EXPECT_EQ(lines(*sut).size(), 2u);
    const auto last = sut->next();
    EXPECT_EQ(last.text, "");
    EXPECT_EQ(last.next, ENext::End);
}

TEST_F(StreamFeedTest, GivesTheLastOnesAndGoesOn) {
    for (int i = 0; i < 10; ++i)
        sendFid("A", "B", "B.F" + std::to_string(i));
    observation.started("A", 1, "");
    const Feed sut = feed("?kinds=fid&last=2&lines=1");
    const auto found = lines(*sut);
    ASSERT_EQ(found.size(), 3u);
    EXPECT_THAT(found[1], HasSubstr(R"("fid":"B.F8")"));
    EXPECT_THAT(found[2], HasSubstr(R"("fid":"B.F9")"));
    EXPECT_THAT(found[2], HasSubstr(R"( A fid B.F9 x=5 to B: written","cursor")"));
    sendFid("A", "B", "B.NEW");
    EXPECT_THAT(lines(*sut), ElementsAre(HasSubstr(R"("fid":"B.NEW")")));
}

TEST_F(StreamFeedTest, QuietLinesOfTheLogAreLeftOut) {
    const Feed sut = feed("?kinds=log&level=3");
    lines(*sut);
    observation.hostLine("HOST", 4, "quiet");
    observation.hostLine("HOST", 3, "loud");
    EXPECT_THAT(lines(*sut), ElementsAre(HasSubstr(R"("text":"loud")")));
}

TEST_F(StreamFeedTest, GoesOnWhereAClientWas) {
    sendFid("A", "B", "B.ONE");
    sendFid("A", "B", "B.TWO");
    const auto found = lines(*feed("?from=i1:both:4&follow=0"));
    ASSERT_EQ(found.size(), 2u);
    EXPECT_THAT(found[1], HasSubstr(R"("fid":"B.TWO")"));
}

TEST_F(StreamFeedTest, SaysThatTheHostWasStartedAnewAndGivesAll) {
    sendFid("A", "B", "B.ONE");
    EXPECT_THAT(lines(*feed("?from=i0:both:4000&kinds=fid&follow=0")),
                ElementsAre(R"({"kind":"hello","instance":"i1","restarted":true})", HasSubstr("B.ONE")));
}

TEST_F(StreamFeedTest, ClientThatIsTooSlowIsToldHowManyItMissed) {
    const Feed sut = feed("?kinds=exit");
    lines(*sut);
    const std::uint64_t next = pRing->lastNumber() + 1;
    for (int i = 0; i < 3000; ++i)
        observation.exited("LAMP", 9, "signal 9", false);
    const auto found = lines(*sut);
    const std::uint64_t missed = recorded.lapped(RecordedStream::EReader::Client);
    ASSERT_GT(missed, 1000u);
    ASSERT_GT(found.size(), 2u);
    EXPECT_THAT(found[0], HasSubstr(R"({"kind":"gap","reason":"lapped","first":)" + std::to_string(next) +
                                    R"(,"next":)" + std::to_string(next + missed) + R"(,"count":)" +
                                    std::to_string(missed) + ","));
    EXPECT_THAT(found[1], HasSubstr("{\"number\":" + std::to_string(next + missed) + ","));
    EXPECT_THAT(found.back(), HasSubstr("{\"number\":" + std::to_string(pRing->lastNumber()) + ","));
}

TEST_F(StreamFeedTest, WhatIsLongGoneIsMissedOnlyByWhoNamesItsPlace) {
    for (int i = 0; i < 3000; ++i)
        observation.exited("LAMP", 9, "signal 9", false);
    EXPECT_THAT(lines(*feed("?kinds=exit&follow=0")).at(1), HasSubstr(R"("kind":"exit")"));
    EXPECT_THAT(lines(*feed("?kinds=exit&follow=0&from=i1:both:3")).at(1),
                HasSubstr(R"({"kind":"gap","reason":"lapped","first":3,)"));
}

TEST_F(StreamFeedTest, PiecesAreSmallHoweverMuchThereIs) {
    for (int i = 0; i < 1000; ++i)
        observation.exited("LAMP", 9, std::string(30, 'x'), false);
    const Feed sut = feed("?kinds=exit&from=oldest");
    std::size_t pieces = 0;
    for (IAnswerBody::Piece piece{{}, ENext::AtOnce}; piece.next == ENext::AtOnce; ++pieces) {
        piece = sut->next();
        EXPECT_LT(piece.text.size(), 80u * 1024);
    }
    EXPECT_GT(pieces, 1u);
}

TEST_F(StreamFeedTest, NamesTheParameterThatIsWrong) {
    EXPECT_THAT(refusal("?kinds=fids"), HasSubstr("kinds: \"fids\" is no kind of record; there are "));
    EXPECT_EQ(refusal("?last=0"), "last is a number from 1 to 10000, not \"0\"");
    EXPECT_EQ(refusal("?follow=2"), "follow is a number from 0 to 1, not \"2\"");
    EXPECT_EQ(refusal("?level=x"), "level is a number from 1 to 5, not \"x\"");
    EXPECT_THAT(refusal("?from=here"), HasSubstr("from: "));
    EXPECT_EQ(refusal("?from=i1:both:900"),
              "from: \"i1:both:900\" lies beyond the stream, which has come to 1");
    host.pRecorded = nullptr;
    EXPECT_EQ(refusal(""), "the host does not record (--record-off)");
}

}  // namespace
