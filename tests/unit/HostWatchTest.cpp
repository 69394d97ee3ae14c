#include "HostWatch.h"

#include <gtest/gtest.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <chrono>
#include <future>
#include <thread>
#include <utility>

#include "HangGuard.h"

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

/// A host whose end the test decides: of its queues, and of its process, which an eventfd stands for.
class ScriptedHost {
public:
    ~ScriptedHost() { close(processFd); }

    HostWatch::Settings settings(bool known) {
        return {.hostFd = known ? processFd : -1,
                .grace = 100ms,
                .stopTimeout = 400ms,
                .waitForHostEnd = [released = released.get_future().share()] { released.wait(); },
                .onHostEnd = [this] { ended.set_value(); },
                .onOverdue = [this] { overdue.set_value(Clock::now()); }};
    }
    void letGoOfQueues() { released.set_value(); }
    void die() { eventfd_write(processFd, 1); }

    const int processFd = eventfd(0, EFD_CLOEXEC);
    std::promise<void> released;
    std::promise<void> ended;
    std::promise<Clock::time_point> overdue;
};

/// Whether a driver that is finished with in the grace period is ever overdue. A test that comes too late for
/// the period tries a longer one.
bool finishedIsOverdue(bool known) {
    for (auto grace = 100ms; grace < c_hangGuard; grace *= 2) {
        ScriptedHost host;
        HostWatch::Settings settings = host.settings(known);
        settings.grace = grace;
        HostWatch sut(std::move(settings));
        auto overdue = host.overdue.get_future();
        host.die();
        host.letGoOfQueues();
        host.ended.get_future().wait();
        sut.finish();
        if (overdue.wait_for(0s) == std::future_status::timeout)
            return overdue.wait_for(grace + 200ms) == std::future_status::ready;
    }
    return true;
}

TEST(HostWatch, SaysThatTheHostLetGo) {
    ScriptedHost host;
    HostWatch sut(host.settings(true));
    auto ended = host.ended.get_future();
    EXPECT_EQ(ended.wait_for(50ms), std::future_status::timeout);
    host.letGoOfQueues();
    EXPECT_EQ(ended.wait_for(c_hangGuard), std::future_status::ready);
}

TEST(HostWatch, DeadHostLeavesTheGracePeriodAlone) {
    ScriptedHost host;
    HostWatch::Settings settings = host.settings(true);
    settings.stopTimeout = 1h;
    HostWatch sut(std::move(settings));
    sut.stopRequested();
    auto overdue = host.overdue.get_future();
    const auto death = Clock::now();
    host.die();
    host.letGoOfQueues();
    ASSERT_EQ(overdue.wait_for(c_hangGuard), std::future_status::ready);
    EXPECT_GE(overdue.get() - death, 100ms);
}

TEST(HostWatch, DeadHostWhoseQueuesAChildHoldsIsGone) {
    ScriptedHost host;
    HostWatch sut(host.settings(true));
    auto ended = host.ended.get_future();
    auto overdue = host.overdue.get_future();
    host.die();
    EXPECT_EQ(ended.wait_for(c_hangGuard), std::future_status::ready);
    EXPECT_EQ(overdue.wait_for(c_hangGuard), std::future_status::ready);
}

TEST(HostWatch, EndIsSaidOnceWhicheverIsSeenFirst) {
    for (const bool isProcessFirst : {true, false}) {
        ScriptedHost host;
        HostWatch sut(host.settings(true));
        auto ended = host.ended.get_future();
        // A second time would throw, since the promise is kept.
        isProcessFirst ? host.die() : host.letGoOfQueues();
        EXPECT_EQ(ended.wait_for(c_hangGuard), std::future_status::ready);
        isProcessFirst ? host.letGoOfQueues() : host.die();
        EXPECT_EQ(host.overdue.get_future().wait_for(c_hangGuard), std::future_status::ready);
    }
}

TEST(HostWatch, FinishDoesNotWaitWhereAChildHoldsTheQueuesOfADeadHost) {
    ScriptedHost host;
    auto ended = host.ended.get_future();
    {
        HostWatch sut(host.settings(true));
        host.die();
        EXPECT_EQ(ended.wait_for(c_hangGuard), std::future_status::ready);
    }
    host.letGoOfQueues();
}

TEST(HostWatch, LivingHostIsLeftToJudge) {
    ScriptedHost host;
    HostWatch sut(host.settings(true));
    auto overdue = host.overdue.get_future();
    host.letGoOfQueues();
    EXPECT_EQ(overdue.wait_for(700ms), std::future_status::timeout);
}

TEST(HostWatch, GraceCountsFromTheEndOfTheProcess) {
    ScriptedHost host;
    HostWatch sut(host.settings(true));
    auto overdue = host.overdue.get_future();
    host.letGoOfQueues();
    std::this_thread::sleep_for(300ms);
    const auto death = Clock::now();
    host.die();
    ASSERT_EQ(overdue.wait_for(c_hangGuard), std::future_status::ready);
    EXPECT_GE(overdue.get() - death, 100ms);
}

TEST(HostWatch, UnknownHostLeavesTheGracePeriodAlone) {
    ScriptedHost host;
    HostWatch::Settings settings = host.settings(false);
    // Nobody asked for the end: nothing of this is granted.
    settings.stopTimeout = 1h;
    HostWatch sut(std::move(settings));
    auto overdue = host.overdue.get_future();
    const auto end = Clock::now();
    host.letGoOfQueues();
    ASSERT_EQ(overdue.wait_for(c_hangGuard), std::future_status::ready);
    EXPECT_GE(overdue.get() - end, 100ms);
}

TEST(HostWatch, UnknownHostThatAskedForTheEndLeavesItsStopTimeoutToo) {
    ScriptedHost host;
    HostWatch sut(host.settings(false));
    auto overdue = host.overdue.get_future();
    sut.stopRequested();
    const auto end = Clock::now();
    host.letGoOfQueues();
    ASSERT_EQ(overdue.wait_for(c_hangGuard), std::future_status::ready);
    EXPECT_GE(overdue.get() - end, 500ms);
}

TEST(HostWatch, FinishedDriverIsNotOverdue) {
    EXPECT_FALSE(finishedIsOverdue(true));
}

TEST(HostWatch, FinishedDriverOfAnUnknownHostIsNotOverdue) {
    EXPECT_FALSE(finishedIsOverdue(false));
}

TEST(HostWatch, FinishDoesNotWaitForALivingHost) {
    ScriptedHost host;
    auto ended = host.ended.get_future();
    {
        HostWatch sut(host.settings(true));
        sut.finish();
    }
    host.letGoOfQueues();
    EXPECT_EQ(ended.wait_for(300ms), std::future_status::timeout);
}

}  // namespace
