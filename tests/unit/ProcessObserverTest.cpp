#include "ProcessObserver.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

namespace {

using sal::ProcessObserver;

/// The observer, which writes down what it is told.
class ProcessObserverTest : public testing::Test, public sal::Process::Observer {
protected:
    ProcessObserverTest() { ProcessObserver::set(this); }
    ~ProcessObserverTest() override {
        ProcessObserver::set(nullptr);
        ProcessObserver::awaitStart(0);
    }

    void processStarted(const sal::Process::Started& process) override {
        told.push_back("started " + std::to_string(process.pid));
    }
    bool capturesErrors() override { return isCapturing; }
    int formerErrors() override { return former; }
    void awaitStart(int pid, unsigned int seconds) override {
        told.push_back("await " + std::to_string(pid) + " " + std::to_string(seconds));
    }

    static bool tell(int pid) { return ProcessObserver::tell({.pid = pid, .title = {}, .arguments = {}}); }

    std::vector<std::string> told;
    bool isCapturing = false;
    int former = -1;
};

using Lines = std::vector<std::string>;

}  // namespace

TEST_F(ProcessObserverTest, WaitsForTheLastProcessOfTheThreadOnce) {
    EXPECT_FALSE(ProcessObserver::awaitStart(1));
    EXPECT_TRUE(tell(4));
    EXPECT_TRUE(tell(5));
    EXPECT_TRUE(ProcessObserver::awaitStart(7));
    EXPECT_FALSE(ProcessObserver::awaitStart(7));
    EXPECT_EQ(told, (Lines{"started 4", "started 5", "await 5 7"}));
}

TEST_F(ProcessObserverTest, EachThreadWaitsForItsOwn) {
    EXPECT_TRUE(tell(4));
    std::thread([] {
        EXPECT_FALSE(ProcessObserver::awaitStart(1));
        EXPECT_TRUE(tell(5));
        EXPECT_TRUE(ProcessObserver::awaitStart(2));
    }).join();
    EXPECT_TRUE(ProcessObserver::awaitStart(3));
    EXPECT_EQ(told, (Lines{"started 4", "started 5", "await 5 2", "await 4 3"}));
}

TEST_F(ProcessObserverTest, NobodyIsToldOrWaitsWithoutOne) {
    EXPECT_TRUE(tell(4));
    ProcessObserver::set(nullptr);
    EXPECT_FALSE(ProcessObserver::awaitStart(1));
    EXPECT_FALSE(tell(5));
    ProcessObserver::set(this);
    EXPECT_FALSE(ProcessObserver::awaitStart(1));
    EXPECT_EQ(told, (Lines{"started 4"}));
}

TEST_F(ProcessObserverTest, CapturesErrorsWhenItSaysSo) {
    EXPECT_FALSE(ProcessObserver::capturesErrors());
    isCapturing = true;
    EXPECT_TRUE(ProcessObserver::capturesErrors());
    ProcessObserver::set(nullptr);
    EXPECT_FALSE(ProcessObserver::capturesErrors());
}

TEST_F(ProcessObserverTest, FormerErrorsAreStandardErrorUnlessItNamesOthers) {
    EXPECT_EQ(ProcessObserver::formerErrors(), 2);
    former = 7;
    EXPECT_EQ(ProcessObserver::formerErrors(), 7);
    ProcessObserver::set(nullptr);
    EXPECT_EQ(ProcessObserver::formerErrors(), 2);
}
