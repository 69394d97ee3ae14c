#include "sal/ProcessFamily.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <memory>
#include <sstream>
#include <thread>
#include <utility>
#include <vector>

#include "TemporaryDirectory.h"
#include "sal/Process.h"

namespace {

using namespace std::chrono_literals;
using testing::IsEmpty;

bool eventually(const std::function<bool()>& condition) {
    for (int i = 0; i < 1500; ++i) {
        if (condition())
            return true;
        std::this_thread::sleep_for(20ms);
    }
    return false;
}

/// State and parent; nothing of one that is gone.
std::pair<char, pid_t> statOf(pid_t pid) {
    std::ifstream file("/proc/" + std::to_string(pid) + "/stat");
    std::string text;
    std::getline(file, text);
    std::pair<char, pid_t> stat{};
    const auto end = text.rfind(')');
    if (end != std::string::npos)
        std::istringstream(text.substr(end + 1)) >> stat.first >> stat.second;
    return stat;
}

bool isAlive(pid_t pid) {
    const char state = statOf(pid).first;
    return state != 0 && state != 'Z' && state != 'X';
}

pid_t parentOf(pid_t pid) {
    return statOf(pid).second;
}

/// A script's child is a shell at first.
bool becomesSleep(pid_t pid) {
    return eventually([pid] {
        std::ifstream file("/proc/" + std::to_string(pid) + "/comm");
        std::string name;
        std::getline(file, name);
        return name == "sleep";
    });
}

/// As long as it lives, the process can have only so many descriptors more.
class FewDescriptors {
public:
    explicit FewDescriptors(std::size_t free) {
        ::getrlimit(RLIMIT_NOFILE, &m_before);
        const rlimit low{std::min<rlim_t>(256, m_before.rlim_max), m_before.rlim_max};
        ::setrlimit(RLIMIT_NOFILE, &low);
        for (int fd = 0; (fd = ::dup(STDERR_FILENO)) >= 0;)
            m_taken.push_back(fd);
        for (; free > 0 && !m_taken.empty(); --free)
            giveBack();
    }
    ~FewDescriptors() {
        while (!m_taken.empty())
            giveBack();
        ::setrlimit(RLIMIT_NOFILE, &m_before);
    }
    FewDescriptors(const FewDescriptors&) = delete;
    FewDescriptors& operator=(const FewDescriptors&) = delete;

private:
    void giveBack() {
        ::close(m_taken.back());
        m_taken.pop_back();
    }

    rlimit m_before{};
    std::vector<int> m_taken;
};

/// A shell script as a child, as a host starts its driver processes.
class ProcessFamily : public testing::Test, private sal::Process::Observer {
protected:
    ProcessFamily() { sal::Process::setObserver(this); }
    ~ProcessFamily() override {
        sal::Process::setObserver(nullptr);
        if (m_process.pid > 0) {
            ::kill(m_process.pid, SIGKILL);
            m_pSut->endOthers();
            collectProcess();
        }
        for (const pid_t pid : m_toKill)
            ::kill(pid, SIGKILL);
    }

    /// In the script, "note NAME" writes the shell's number into the file of that name. The shell itself
    /// does, so that no process of its own is left when the file is there.
    void start(const std::string& script) {
        sal::Path shell("/bin/sh");
        ASSERT_TRUE(sal::Process::createProcess("sh", shell, {"-c", m_prelude + script}));
        m_pSut = std::make_unique<sal::ProcessFamily>(m_process.pid, m_process.mark);
    }
    sal::ProcessFamily& sut() { return *m_pSut; }
    pid_t pid() const { return m_process.pid; }

    /// The number that a process of the script has noted.
    pid_t noted(const std::string& name) {
        EXPECT_TRUE(eventually([&] { return m_directory.read(name).ends_with('\n'); })) << name;
        const pid_t pid = std::atoi(m_directory.read(name).c_str());
        if (pid > 0)
            m_toKill.push_back(pid);
        return pid;
    }
    /// Kills the process and leaves it uncollected.
    void killProcess() {
        ASSERT_GT(m_process.pid, 0);
        ::kill(m_process.pid, SIGKILL);
        pollfd end{m_process.pidFd, POLLIN, 0};
        ASSERT_EQ(::poll(&end, 1, 30'000), 1);
    }
    void collectProcess() {
        ::waitpid(m_process.pid, nullptr, 0);
        ::close(m_process.pidFd);
        m_process = {};
    }
    std::vector<int> endOthers() {
        std::vector<int> pids;
        for (const auto& member : sut().endOthers().ended)
            pids.push_back(member.pid);
        std::sort(pids.begin(), pids.end());
        return pids;
    }
    bool endsWithTheOthers(pid_t pid) {
        return eventually([pid] { return !isAlive(pid); });
    }

    TemporaryDirectory m_directory;
    const std::string m_prelude =
        "cd " + m_directory.path() +
        "; note() { sh -c 'echo $PPID' > $1.draft; read number < $1.draft; echo $number > $1; }; "
        "stay() { while :; do sleep 1000; done; }; ";

private:
    void processStarted(const sal::Process::Started& process) override { m_process = process; }

    sal::Process::Started m_process;
    std::unique_ptr<sal::ProcessFamily> m_pSut;
    std::vector<pid_t> m_toKill;
};

TEST_F(ProcessFamily, OfAProcessThatLeavesNobodyIsEmpty) {
    start("exit 0");
    killProcess();
    EXPECT_THAT(endOthers(), IsEmpty());
}

TEST_F(ProcessFamily, ProcessItselfIsNoMatterOfIt) {
    start("note self; exec sleep 1000");
    noted("self");
    EXPECT_THAT(endOthers(), IsEmpty());
    EXPECT_TRUE(isAlive(pid()));
}

TEST_F(ProcessFamily, ChildInTheSessionEnds) {
    start("(note child; exec sleep 1000) & stay");
    const pid_t child = noted("child");
    ASSERT_TRUE(becomesSleep(child));
    killProcess();
    const auto result = sut().endOthers();
    ASSERT_FALSE(result.ended.empty());
    EXPECT_THAT(result.left, IsEmpty());
    EXPECT_TRUE(std::any_of(result.ended.begin(), result.ended.end(), [&](const auto& member) {
        return member.pid == child && member.name == "sleep";
    }));
    EXPECT_TRUE(endsWithTheOthers(child));
}

TEST_F(ProcessFamily, GrandchildThatHasLostItsParentEnds) {
    start("((note grandchild; exec sleep 1000) &); stay");
    const pid_t grandchild = noted("grandchild");
    killProcess();
    EXPECT_THAT(endOthers(), testing::Contains(grandchild));
    EXPECT_TRUE(endsWithTheOthers(grandchild));
}

TEST_F(ProcessFamily, DaemonInASessionOfItsOwnEndsByItsMark) {
    start("(setsid sh -c 'echo $$ > daemon.draft; mv daemon.draft daemon; exec sleep 1000' &); stay");
    const pid_t daemon = noted("daemon");
    killProcess();
    EXPECT_THAT(endOthers(), testing::Contains(daemon));
    EXPECT_TRUE(endsWithTheOthers(daemon));
}

TEST_F(ProcessFamily, WhatADaemonHasStartedEndsWithIt) {
    start(
        "(setsid sh -c 'env -i setsid sleep 1000 & echo $! > below.draft; mv below.draft below; wait' &); "
        "stay");
    const pid_t below = noted("below");
    killProcess();
    EXPECT_THAT(endOthers(), testing::Contains(below));
    EXPECT_TRUE(endsWithTheOthers(below));
}

TEST_F(ProcessFamily, ChildWithoutMarkAndSessionEndsWhenItWasSeen) {
    start("env -i setsid sleep 1000 & echo $! > child.draft; mv child.draft child; wait");
    const pid_t child = noted("child");
    ASSERT_TRUE(becomesSleep(child));
    sut().look();
    killProcess();
    EXPECT_THAT(endOthers(), testing::Contains(child));
    EXPECT_TRUE(endsWithTheOthers(child));
}

TEST_F(ProcessFamily, WhoWasSeenIsKnownBeyondTheDeathOfItsParent) {
    ASSERT_EQ(::mkfifo(m_directory.path("pipe").c_str(), 0600), 0);
    start(
        "(env -i setsid sleep 1000 & echo $! > child.draft; mv child.draft child; read line < pipe) & stay");
    const pid_t child = noted("child");
    ASSERT_TRUE(becomesSleep(child));
    sut().look();
    const pid_t parent = parentOf(child);
    // Which waits for this line.
    std::ofstream(m_directory.path("pipe")) << "end" << std::endl;
    ASSERT_TRUE(eventually([&] { return parentOf(child) != parent; }));
    sut().look();
    killProcess();
    EXPECT_THAT(endOthers(), testing::Contains(child));
    EXPECT_TRUE(endsWithTheOthers(child));
}

TEST_F(ProcessFamily, ShortageOfDescriptorsAtAnyStepIsAnswered) {
    start("sleep 1000 & echo $! > child.draft; mv child.draft child; wait");
    const pid_t child = noted("child");
    ASSERT_TRUE(becomesSleep(child));
    killProcess();
    // It looks with one descriptor and ends with two.
    for (const std::size_t free : {0, 1}) {
        const FewDescriptors few(free);
        const auto result = sut().endOthers();
        EXPECT_FALSE(result.isWhole) << free;
        EXPECT_THAT(result.ended, IsEmpty()) << free;
    }
    EXPECT_TRUE(isAlive(child));
    const FewDescriptors few(2);
    EXPECT_TRUE(sut().endOthers().isWhole);
    EXPECT_TRUE(endsWithTheOthers(child));
}

TEST_F(ProcessFamily, StrangersAreLeftAlone) {
    start("stay");
    const pid_t stranger = ::fork();
    if (stranger == 0) {
        ::setsid();
        ::pause();
        ::_exit(0);
    }
    killProcess();
    endOthers();
    EXPECT_TRUE(isAlive(stranger));
    ::kill(stranger, SIGKILL);
    ::waitpid(stranger, nullptr, 0);
}

TEST_F(ProcessFamily, MarkIsComparedWhole) {
    start(
        "(setsid env MFD_PROCESS=$MFD_PROCESS'0' sh -c 'echo $$ > other.draft; mv other.draft other; "
        "exec sleep 1000' &); (setsid env OTHER=MFD_PROCESS=$MFD_PROCESS MFD_PROCESS= sh -c 'echo $$ > "
        "more.draft; mv more.draft more; exec sleep 1000' &); stay");
    const pid_t other = noted("other");
    const pid_t more = noted("more");
    killProcess();
    endOthers();
    EXPECT_TRUE(isAlive(other));
    EXPECT_TRUE(isAlive(more));
}

TEST_F(ProcessFamily, OneThatStartsNewOnesAllTheTimeComesToItsEnd) {
    start("(note root; while :; do (sleep 1000 &) ; (setsid sleep 1000 &); done) & stay");
    const pid_t root = noted("root");
    std::this_thread::sleep_for(100ms);
    killProcess();
    EXPECT_THAT(endOthers(), testing::Contains(root));
    EXPECT_TRUE(endsWithTheOthers(root));
    std::this_thread::sleep_for(50ms);
    EXPECT_THAT(endOthers(), IsEmpty());
}

TEST_F(ProcessFamily, OneThatBecomesAnotherProgramAllTheTimeIsEnded) {
    std::ofstream(m_directory.path() + "/again") << "exec sh ./again\n";
    for (int round = 0; round < 40; ++round) {
        const std::string name = "again" + std::to_string(round);
        start("(setsid sh -c 'echo $$ > " + name + ".draft; mv " + name + ".draft " + name +
              "; exec sh ./again' &); exec sleep 1000");
        const pid_t child = noted(name);
        std::this_thread::sleep_for(std::chrono::microseconds(100 * round));
        killProcess();
        ASSERT_THAT(endOthers(), testing::Contains(child)) << round;
        ASSERT_TRUE(endsWithTheOthers(child));
        collectProcess();
    }
}

TEST_F(ProcessFamily, EndedOrphansThatThisProcessTakesInAreCollected) {
    ASSERT_EQ(::prctl(PR_SET_CHILD_SUBREAPER, 1), 0);
    start("((note orphan; exec sleep 1000) &); stay");
    const pid_t orphan = noted("orphan");
    EXPECT_TRUE(eventually([&] { return parentOf(orphan) == ::getpid(); }));
    killProcess();
    EXPECT_THAT(endOthers(), testing::Contains(orphan));
    EXPECT_TRUE(eventually([&] {
        sut().look();
        return statOf(orphan).first == 0;
    }));
    ::prctl(PR_SET_CHILD_SUBREAPER, 0);
}

TEST_F(ProcessFamily, OfTheCallingProcessIsEndedWithoutItself) {
    const pid_t caller = ::fork();
    if (caller == 0) {
        ::setsid();
        ::setenv("MFD_PROCESS", "family-test", 1);
        sal::Process::setObserver(nullptr);
        const pid_t child = ::fork();
        if (child == 0) {
            for (;;)
                ::pause();
        }
        auto family = sal::ProcessFamily::ofThisProcess();
        const auto result = family.endOthers();
        const bool isRight = family.hasMark() && result.ended.size() == 1 && result.ended[0].pid == child;
        ::_exit(isRight ? 0 : 1);
    }
    int status = -1;
    ::waitpid(caller, &status, 0);
    EXPECT_EQ(status, 0);
}

TEST_F(ProcessFamily, AncestryOfAProcessLeadsUpToTheCallingOne) {
    start("(note between; (note below; exec sleep 1000) & wait) & wait");
    const pid_t between = noted("between");
    const pid_t below = noted("below");
    EXPECT_THAT(sal::ProcessFamily::ancestry(below).value(), testing::ElementsAre(below, between, pid()));
    EXPECT_THAT(sal::ProcessFamily::ancestry(::getpid()).value(), IsEmpty());
    const pid_t gone = pid();
    killProcess();
    endOthers();
    collectProcess();
    EXPECT_THAT(sal::ProcessFamily::ancestry(gone).value(), IsEmpty());
}

TEST_F(ProcessFamily, WhatAChildHasStartedHasItsMarkHoweverFarAway) {
    start("(setsid sh -c 'echo $$ > daemon.draft; mv daemon.draft daemon; exec sleep 1000' &); stay");
    const pid_t daemon = noted("daemon");
    EXPECT_EQ(sal::ProcessFamily::hasMarkOfChild(daemon), true);
    EXPECT_EQ(sal::ProcessFamily::hasMarkOfChild(pid()), true);
    EXPECT_EQ(sal::ProcessFamily::hasMarkOfChild(::getpid()), false);
}

TEST_F(ProcessFamily, WithoutMarkIsKnownByItsSessionAndDescentAlone) {
    ::unsetenv("MFD_PROCESS");
    EXPECT_FALSE(sal::ProcessFamily::ofThisProcess().hasMark());
}

/// A child that sleeps, with these words as its environment.
pid_t startSleep(std::vector<std::string> words) {
    const pid_t pid = ::fork();
    if (pid == 0) {
        char program[] = "sleep";
        char time[] = "600";
        char* arguments[] = {program, time, nullptr};
        std::vector<char*> environment;
        for (std::string& word : words)
            environment.push_back(word.data());
        environment.push_back(nullptr);
        ::execve("/bin/sleep", arguments, environment.data());
        ::_exit(127);
    }
    EXPECT_TRUE(becomesSleep(pid));
    return pid;
}

pid_t startStopped(const std::string& word) {
    const pid_t pid = startSleep({word});
    ::kill(pid, SIGSTOP);
    EXPECT_TRUE(eventually([pid] { return statOf(pid).first == 'T'; }));
    return pid;
}

/// All processes of the machine are looked through, those of another run beside this one, too.
std::string wordOfThisRun() {
    return "WHERE=/one-" + std::to_string(::getpid());
}

void end(pid_t pid) {
    ::kill(pid, SIGKILL);
    ::waitpid(pid, nullptr, 0);
}

TEST(ProcessFamilyOfAnotherHost, HasNoMarkOfAChildOfThisOne) {
    const pid_t other = startSleep({"MFD_PROCESS=7-8-1"});
    EXPECT_EQ(sal::ProcessFamily::hasMarkOfChild(other), false);
    end(other);
}

TEST(ProcessFamilyOfADeadHost, IsContinuedByAWordOfItsEnvironmentAlone) {
    const std::string word = wordOfThisRun();
    const pid_t meant = startStopped(word);
    const pid_t other = startStopped(word + "/more");
    const auto continued = sal::ProcessFamily::continueStopped(word);
    ASSERT_EQ(continued.size(), 1U);
    EXPECT_EQ(continued[0].pid, meant);
    EXPECT_EQ(continued[0].name, "sleep");
    EXPECT_TRUE(eventually([meant] { return statOf(meant).first == 'S'; }));
    EXPECT_EQ(statOf(other).first, 'T');
    EXPECT_THAT(sal::ProcessFamily::continueStopped(word), IsEmpty());
    end(meant);
    end(other);
}

TEST(ProcessFamilyOfADeadHost, IsEndedWhereItHasAWordAndTheMarkOfAChild) {
    const std::string word = wordOfThisRun();
    const std::string mark = "MFD_PROCESS=" + std::to_string(::getpid());
    const pid_t meant = startSleep({word, mark + "-8-1"});
    const pid_t oneOfItsFamily = startSleep({mark + "-8-1"});
    const pid_t ofTheHostItself = startSleep({word});
    const pid_t ofAnotherHost = startSleep({word + "/more", mark + "-9-1"});
    std::vector<int> ended;
    for (const auto& process : sal::ProcessFamily::endMarked(word)) {
        EXPECT_EQ(process.name, "sleep");
        ended.push_back(process.pid);
    }
    EXPECT_THAT(ended, testing::UnorderedElementsAre(meant, oneOfItsFamily));
    EXPECT_TRUE(eventually([&] { return !isAlive(meant) && !isAlive(oneOfItsFamily); }));
    EXPECT_TRUE(isAlive(ofTheHostItself));
    EXPECT_TRUE(isAlive(ofAnotherHost));
    for (const pid_t pid : {meant, oneOfItsFamily, ofTheHostItself, ofAnotherHost})
        end(pid);
}

}  // namespace
