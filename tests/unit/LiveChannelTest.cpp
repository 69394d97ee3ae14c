#include "LiveChannel.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

/// Says of each position how far it is from what there is now.
class Source final : public ILiveSource {
public:
    std::string host() const override { return R"("instance":"i","workplace":"w")"; }
    void look() override { ++looks; }
    LiveChanges changes(const LivePosition& since) const override {
        ++written;
        LiveChanges found;
        found.end.store = version;
        found.isWhole = since.store == 0 || since.store < forgotten;
        if (since.store < version)
            found.members = R"("news":")" + std::to_string(since.store) + "-" + std::to_string(version) + '"';
        return found;
    }

    std::uint64_t version = 1;
    std::uint64_t forgotten = 0;
    int looks = 0;
    mutable int written = 0;
};

class Page final : public LiveChannel::IPage {
public:
    void send(LiveChannel::Text message) override { texts.push_back(std::move(message)); }
    std::size_t unsent() const override { return waiting; }
    void sendLast(LiveChannel::Text message) override { last = *message; }

    /// What has come since the last time.
    std::vector<std::string> take() {
        std::vector<std::string> taken;
        for (const auto& pText : texts)
            taken.push_back(*pText);
        texts.clear();
        return taken;
    }

    std::vector<LiveChannel::Text> texts;
    std::size_t waiting = 0;
    std::string last;
};

class LiveChannelTest : public testing::Test {
protected:
    LiveChannelTest() {
        ApiCaller caller;
        caller.role = ERole::Operate;
        caller.name = "anna";
        session = sessions.open(sessions.addCode(caller), "").session;
        tick(0ms);
    }
    void join(std::uint64_t id, Page& page) { sut.join(id, page, session); }
    /// Shorter than to the next heartbeat, unless it says so.
    void tick(std::chrono::milliseconds time = 1ms) {
        now += time;
        sut.tick(now);
    }
    /// Joined, and told everything.
    void settle(std::uint64_t id, Page& page) {
        join(id, page);
        tick();
        page.take();
    }

    Source source;
    WebSessions sessions;
    WebSessions::Session session;
    LiveChannel sut{source, sessions, {.now = [] { return std::chrono::system_clock::time_point(5us); }}};
    LiveChannel::Clock::time_point now;
};

TEST_F(LiveChannelTest, PageIsToldWhoItIsAndThenEverything) {
    Page page;
    join(1, page);
    EXPECT_THAT(
        page.take(),
        ElementsAre(R"({"kind":"hello","instance":"i","workplace":"w","role":"operate","user":"anna",)"
                    R"("session":"1","time":5,"version":0,"heartbeat":1000})"));
    tick();
    EXPECT_THAT(page.take(), ElementsAre(R"({"kind":"chunk","from":0,"to":1,"time":5,"news":"0-1"})"));
    tick();
    EXPECT_THAT(page.take(), IsEmpty());
}

TEST_F(LiveChannelTest, PageOfAHostWithoutAnythingIsToldSo) {
    source.version = 0;
    Page page;
    join(1, page);
    page.take();
    tick();
    EXPECT_THAT(page.take(), ElementsAre(R"({"kind":"chunk","from":0,"to":1,"time":5})"));
}

TEST_F(LiveChannelTest, ChunkGoesOnWhereTheFormerEnded) {
    Page page;
    settle(1, page);
    source.version = 7;
    tick();
    EXPECT_THAT(page.take(), ElementsAre(R"({"kind":"chunk","from":1,"to":2,"time":5,"news":"1-7"})"));
}

TEST_F(LiveChannelTest, WhatCannotBeToldAsADifferenceIsToldWhole) {
    Page page;
    settle(1, page);
    source.version = 9;
    source.forgotten = 5;
    tick();
    EXPECT_THAT(page.take(), ElementsAre(R"({"kind":"chunk","from":0,"to":2,"time":5,"news":"1-9"})"));
}

TEST_F(LiveChannelTest, ChunkIsWrittenOnceForAllThatKnowTheSame) {
    Page one;
    Page other;
    Page late;
    settle(1, one);
    settle(2, other);
    source.version = 2;
    tick();
    one.take();
    other.take();
    join(3, late);
    late.take();
    source.version = 3;
    source.written = 0;
    tick();
    EXPECT_EQ(source.written, 2);
    ASSERT_EQ(one.texts.size(), 1u);
    ASSERT_EQ(other.texts.size(), 1u);
    EXPECT_EQ(one.texts[0], other.texts[0]);
    EXPECT_THAT(one.take(), ElementsAre(HasSubstr(R"("from":3,)")));
    EXPECT_THAT(late.take(), ElementsAre(HasSubstr(R"("from":0,"to":4,)")));
}

TEST_F(LiveChannelTest, SlowPageIsPassedOverAndThenToldOnce) {
    Page page;
    Page quick;
    settle(1, page);
    settle(2, quick);
    page.waiting = 256 * 1024 + 1;
    for (source.version = 2; source.version < 6; ++source.version)
        tick();
    EXPECT_THAT(page.take(), IsEmpty());
    EXPECT_EQ(quick.take().size(), 4u);
    page.waiting = 256 * 1024;
    tick();
    EXPECT_THAT(page.take(), ElementsAre(HasSubstr(R"("news":"1-6")")));
}

TEST_F(LiveChannelTest, PageThatIsSlowForThirtySecondsIsLetGo) {
    Page page;
    settle(1, page);
    page.waiting = 1u << 20;
    tick();
    tick(30s);
    EXPECT_EQ(page.last, "");
    tick(1ms);
    EXPECT_EQ(page.last,
              R"({"kind":"bye","code":"slow","text":"the page has not taken what it was sent for 30 s"})");
    EXPECT_TRUE(sut.isEmpty());
}

TEST_F(LiveChannelTest, PageThatCatchesUpHasAllItsPatienceAgain) {
    Page page;
    settle(1, page);
    page.waiting = 1u << 20;
    tick();
    tick(29s);
    page.waiting = 0;
    tick();
    page.waiting = 1u << 20;
    tick();
    tick(29s);
    EXPECT_EQ(page.last, "");
}

TEST_F(LiveChannelTest, HeartbeatComesEachSecondAlsoBesideChunks) {
    Page page;
    settle(1, page);
    tick(998ms);
    EXPECT_THAT(page.take(), IsEmpty());
    tick(1ms);
    EXPECT_THAT(page.take(), ElementsAre(R"({"kind":"heartbeat","time":5,"version":1})"));
    source.version = 2;
    tick(1s);
    EXPECT_THAT(page.take(), ElementsAre(HasSubstr("chunk"), R"({"kind":"heartbeat","time":5,"version":2})"));
}

TEST_F(LiveChannelTest, PageWhoseSessionIsEndedIsLetGoWithinASecond) {
    Page page;
    settle(1, page);
    sessions.end(session.id);
    tick(1s);
    EXPECT_EQ(page.last, R"({"kind":"bye","code":"revoked","text":"the session was ended"})");
    EXPECT_TRUE(sut.isEmpty());
}

TEST_F(LiveChannelTest, AtTheEndEveryPageIsToldWhy) {
    Page one;
    Page other;
    settle(1, one);
    settle(2, other);
    sut.end("stopping", "the host is shutting down");
    EXPECT_EQ(one.last, R"({"kind":"bye","code":"stopping","text":"the host is shutting down"})");
    EXPECT_EQ(other.last, one.last);
    EXPECT_TRUE(sut.isEmpty());
}

TEST_F(LiveChannelTest, PageThatHasLeftIsToldNothing) {
    Page page;
    settle(1, page);
    sut.leave(1);
    source.version = 2;
    tick(2s);
    EXPECT_THAT(page.take(), IsEmpty());
}

}  // namespace
