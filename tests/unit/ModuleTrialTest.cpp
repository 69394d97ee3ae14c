#include "ModuleTrial.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>
#include <thread>

#include "LogCapture.h"
#include "TemporaryDirectory.h"

namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using testing::EndsWith;
using testing::HasSubstr;

constexpr const char* c_triedOut = "tried out in a process of its own, that process ";

std::string moduleFile(const std::string& name) {
    return std::string(MFD_TEST_MODULE_DIR) + "/" + name + ".so";
}

/// State letter and parent, from behind the name in /proc/PID/stat.
struct ProcessStat {
    char state = 0;
    pid_t parent = 0;
};
ProcessStat statOf(pid_t pid) {
    std::ifstream file("/proc/" + std::to_string(pid) + "/stat");
    std::ostringstream text;
    text << file.rdbuf();
    ProcessStat stat;
    const auto end = text.str().rfind(')');
    if (end != std::string::npos)
        std::istringstream(text.str().substr(end + 1)) >> stat.state >> stat.parent;
    return stat;
}

bool isGone(pid_t pid) {
    for (int i = 0; i < 500; ++i) {
        const char state = statOf(pid).state;
        if (state == 0 || state == 'Z' || state == 'X')
            return true;
        std::this_thread::sleep_for(20ms);
    }
    return false;
}

pid_t childOf(pid_t parent) {
    for (int i = 0; i < 500; ++i) {
        for (const auto& entry : fs::directory_iterator("/proc")) {
            const pid_t pid = std::atoi(entry.path().filename().c_str());
            if (pid > 0 && statOf(pid).parent == parent)
                return pid;
        }
        std::this_thread::sleep_for(20ms);
    }
    return 0;
}

/// A faulty driver module of the test's own, whose fault while it is tried out stands beside it.
class ModuleTrial : public testing::Test {
protected:
    ModuleTrial() { fs::copy_file(MFD_FAULTY_MODULE, file()); }

    std::string file() const { return m_directory.path("faulty.so"); }
    void plan(const std::string& faults) const { m_directory.write("faulty.so.faults", faults); }

    std::string refusalOf(const std::string& faults) {
        plan(faults);
        return m_sut.refusal(file());
    }

    TemporaryDirectory m_directory;
    sal::ModuleTrial m_sut{{MFD_PROBE_PROGRAM, 30s}};
};

TEST_F(ModuleTrial, HealthyModuleIsNotRefused) {
    LogCapture log;
    EXPECT_EQ(refusalOf(""), "");
    EXPECT_EQ(log.finish(), "");
}

TEST_F(ModuleTrial, DeathBySignalIsRefusedAndNamed) {
    EXPECT_THAT(refusalOf("load kill"),
                HasSubstr(std::string(c_triedOut) + "was ended by signal 9 (Killed)"));
}

TEST_F(ModuleTrial, ExitIsRefusedEvenWithCodeZero) {
    EXPECT_THAT(refusalOf("load exit 0"), HasSubstr(std::string(c_triedOut) + "ended with exit code 0"));
}

TEST_F(ModuleTrial, CrashIsRefused) {
    EXPECT_THAT(refusalOf("load crash"), HasSubstr(c_triedOut));
}

TEST_F(ModuleTrial, DeathInTheDestructorIsRefusedWithItsLastWords) {
    EXPECT_THAT(refusalOf("delete throw"), EndsWith("; it said: what():  thrown on purpose"));
}

TEST_F(ModuleTrial, ModuleThatIsNotReadyInTimeIsRefused) {
    sal::ModuleTrial sut{{MFD_PROBE_PROGRAM, 300ms}};
    plan("load sleep");
    EXPECT_THAT(sut.refusal(file()),
                HasSubstr("tried out in a process of its own, it was not ready within 300 ms"));
}

TEST_F(ModuleTrial, ModuleThatIsNotReadyInTimeLeavesNoProcess) {
    sal::ModuleTrial sut{{MFD_PROBE_PROGRAM, 300ms}};
    plan("load busy");
    sut.refusal(file());
    EXPECT_EQ(::waitpid(-1, nullptr, WNOHANG), -1);
    EXPECT_EQ(errno, ECHILD);
}

TEST_F(ModuleTrial, SlowModuleIsNotRefused) {
    EXPECT_EQ(refusalOf("load sleep 500"), "");
}

TEST_F(ModuleTrial, WhatTheLoaderRefusesWithoutHarmIsLeftToIt) {
    EXPECT_EQ(m_sut.refusal(moduleFile("MissingSymbol")), "");
    EXPECT_EQ(m_sut.refusal(moduleFile("WrongAbi")), "");
    EXPECT_EQ(m_sut.refusal(moduleFile("ThrowsInFactory")), "");
    EXPECT_EQ(m_sut.refusal("/none/Axis.so"), "");
}

TEST_F(ModuleTrial, FaultIsInTheLoadersOwnWords) {
    EXPECT_THAT(m_sut.fault(moduleFile("MissingSymbol")), testing::StartsWith("undefined symbol: "));
    EXPECT_THAT(m_sut.fault(moduleFile("WrongAbi")), EndsWith("this host has 1; build it again with this "
                                                              "host's driver kit"));
    EXPECT_EQ(m_sut.fault(moduleFile("ThrowsInFactory")),
              "its driver cannot be made: std::runtime_error: no device");
    plan("load kill");
    EXPECT_THAT(m_sut.fault(file()), HasSubstr("was ended by signal 9 (Killed)"));
    plan("");
    EXPECT_EQ(m_sut.fault(file()), "");
}

TEST_F(ModuleTrial, FaultIsNoneWhereNothingIsTriedOut) {
    sal::ModuleTrial sut{{MFD_PROBE_PROGRAM, 0ms}};
    EXPECT_EQ(sut.fault(moduleFile("NullFactory")), "");
}

TEST_F(ModuleTrial, ModuleThatAnswersNothingIsNotRefused) {
    EXPECT_EQ(m_sut.refusal(moduleFile("AnswersNothing")), "");
}

TEST_F(ModuleTrial, NamedPipeIsNotOpened) {
    ASSERT_EQ(::mkfifo(m_directory.path("pipe.so").c_str(), 0600), 0);
    EXPECT_EQ(m_sut.refusal(m_directory.path("pipe.so")), "");
}

TEST_F(ModuleTrial, TrialKnowsThatItIsOne) {
    EXPECT_THAT(m_sut.refusal(moduleFile("DiesInTrial")), HasSubstr("was ended by signal 6 (Aborted)"));
}

TEST_F(ModuleTrial, FileThatPassedIsNotTriedAgain) {
    ASSERT_EQ(refusalOf(""), "");
    EXPECT_EQ(refusalOf("load kill"), "");
}

TEST_F(ModuleTrial, FileThatPassedIsKnownByAnyName) {
    ASSERT_EQ(refusalOf(""), "");
    fs::create_directory(m_directory.path("other"));
    m_directory.write("other/Axis.so.faults", "load kill");
    fs::create_symlink(file(), m_directory.path("other/Axis.so"));
    EXPECT_EQ(m_sut.refusal(m_directory.path("other/Axis.so")), "");
}

TEST_F(ModuleTrial, ReplacedFileIsTriedAgain) {
    ASSERT_EQ(refusalOf(""), "");
    fs::copy_file(file(), m_directory.path("new.so"));
    fs::rename(m_directory.path("new.so"), file());
    EXPECT_NE(refusalOf("load kill"), "");
}

TEST_F(ModuleTrial, FileWrittenAnewIsTriedAgain) {
    ASSERT_EQ(refusalOf(""), "");
    fs::last_write_time(file(), fs::last_write_time(file()) + 1us);
    EXPECT_NE(refusalOf("load kill"), "");
}

TEST_F(ModuleTrial, FileOfAnotherSizeIsTriedAgain) {
    ASSERT_EQ(refusalOf(""), "");
    const auto time = fs::last_write_time(file());
    fs::resize_file(file(), fs::file_size(file()) + 1);
    fs::last_write_time(file(), time);
    EXPECT_NE(refusalOf("load kill"), "");
}

TEST_F(ModuleTrial, FileThatFailedIsTriedAgain) {
    ASSERT_NE(refusalOf("load kill"), "");
    EXPECT_EQ(refusalOf(""), "");
}

TEST_F(ModuleTrial, WithoutTheProgramNothingIsRefusedAndThatIsSaidOnce) {
    LogCapture log;
    sal::ModuleTrial sut{{"/none/mfdprobe"}};
    plan("load kill");
    EXPECT_EQ(sut.refusal(file()), "");
    EXPECT_EQ(sut.refusal(file()), "");
    const std::string text = log.finish();
    EXPECT_THAT(text, HasSubstr("warning  MODULE: there is no /none/mfdprobe; driver modules are loaded into "
                                "this process without being tried out\n"));
    EXPECT_EQ(text.find('\n'), text.size() - 1);
}

TEST_F(ModuleTrial, WhatCannotBeTriedOutIsNamedWithTheReason) {
    LogCapture log;
    m_directory.write("notaprogram", "");
    sal::ModuleTrial sut{{m_directory.path("notaprogram")}};
    EXPECT_EQ(sut.refusal(file()), "");
    EXPECT_THAT(log.finish(), HasSubstr("MODULE: " + file() + " is loaded without being tried out: " +
                                        m_directory.path("notaprogram") + ": Permission denied\n"));
}

TEST_F(ModuleTrial, WithoutADeadlineNothingIsTriedOut) {
    sal::ModuleTrial sut{{MFD_PROBE_PROGRAM, 0ms}};
    plan("load kill");
    EXPECT_EQ(sut.refusal(file()), "");
}

TEST_F(ModuleTrial, WhatTheModuleLeavesBehindEndsWithTheTrial) {
    const std::string child = m_directory.path("child");
    ::setenv("MFD_TEST_CHILD", child.c_str(), 1);
    EXPECT_EQ(m_sut.refusal(moduleFile("LeavesProcess")), "");
    ::unsetenv("MFD_TEST_CHILD");
    const pid_t pid = std::atoi(m_directory.read("child").c_str());
    ASSERT_GT(pid, 0);
    EXPECT_TRUE(isGone(pid));
}

/// SIGCHLD as a driver in the host's process may leave it: children are collected by nobody.
class ModuleTrialWithoutChildren : public ModuleTrial {
protected:
    ModuleTrialWithoutChildren() { ::signal(SIGCHLD, SIG_IGN); }
    ~ModuleTrialWithoutChildren() override { ::signal(SIGCHLD, SIG_DFL); }
};

TEST_F(ModuleTrialWithoutChildren, HealthyModuleIsNotRefused) {
    for (int i = 0; i < 5; ++i) {
        m_directory.write("again", "");
        fs::last_write_time(file(), fs::last_write_time(file()) + 1us);
        EXPECT_EQ(refusalOf(""), "");
    }
}

TEST_F(ModuleTrialWithoutChildren, WhatTheLoaderRefusesIsLeftToIt) {
    EXPECT_EQ(m_sut.refusal(moduleFile("ThrowsInFactory")), "");
}

TEST_F(ModuleTrialWithoutChildren, ModuleThatDiesIsRefused) {
    for (const char* fault : {"load kill", "load exit 0", "load crash", "delete abort"})
        EXPECT_THAT(refusalOf(fault),
                    HasSubstr(std::string(c_triedOut) + "ended before it was ready, and how is not known"))
            << fault;
}

/// How the module makes the process that it leaves behind in its trial.
class ModuleTrialOfProcesses : public ModuleTrial, public testing::WithParamInterface<std::string> {
protected:
    void expectEndsWithTheTrial() {
        const std::string child = m_directory.path("child");
        ::setenv("MFD_TEST_CHILD", child.c_str(), 1);
        ::setenv("MFD_TEST_STARTS", GetParam().c_str(), 1);
        EXPECT_EQ(m_sut.refusal(moduleFile("StartsProcesses")), "");
        ::unsetenv("MFD_TEST_CHILD");
        ::unsetenv("MFD_TEST_STARTS");
        const pid_t pid = std::atoi(m_directory.read("child").c_str());
        ASSERT_GT(pid, 0);
        EXPECT_TRUE(isGone(pid));
    }
};

TEST_P(ModuleTrialOfProcesses, WhatIsLeftBehindEndsWithTheTrial) {
    expectEndsWithTheTrial();
}

TEST_P(ModuleTrialOfProcesses, WhatIsLeftBehindEndsEvenWhereSomebodyElseCollectsTheTrial) {
    ::signal(SIGCHLD, SIG_IGN);
    expectEndsWithTheTrial();
    ::signal(SIGCHLD, SIG_DFL);
}

INSTANTIATE_TEST_SUITE_P(By, ModuleTrialOfProcesses,
                         testing::Values("FORK", "CLONE", "SLEEP", "SESSION", "DAEMON"),
                         [](const auto& test) { return test.param; });

TEST_F(ModuleTrial, TrialEndsWithTheHost) {
    plan("load sleep");
    const pid_t host = ::fork();
    if (host == 0) {
        m_sut.refusal(file());
        ::_exit(0);
    }
    const pid_t trial = childOf(host);
    ASSERT_NE(trial, 0);
    ::kill(host, SIGKILL);
    ASSERT_EQ(::waitpid(host, nullptr, 0), host);
    EXPECT_TRUE(isGone(trial));
}

TEST_F(ModuleTrial, DescriptorsDoNotGrow) {
    const auto count = [] {
        return std::distance(fs::directory_iterator("/proc/self/fd"), fs::directory_iterator());
    };
    const auto before = count();
    refusalOf("load kill");
    refusalOf("");
    EXPECT_EQ(count(), before);
}

/// What the environment says about the time for a trial.
class ModuleTrialSettings : public testing::Test {
protected:
    ~ModuleTrialSettings() override { ::unsetenv("MFD_PROBE_TIMEOUT"); }
    static sal::ModuleTrial::Settings with(const char* pText) {
        ::setenv("MFD_PROBE_TIMEOUT", pText, 1);
        return sal::ModuleTrial::Settings::ofProcess();
    }
};

TEST_F(ModuleTrialSettings, ProgramLiesBesideTheRunningOne) {
    EXPECT_EQ(sal::ModuleTrial::Settings::ofProcess().program,
              fs::read_symlink("/proc/self/exe").parent_path() / "mfdprobe");
}

TEST_F(ModuleTrialSettings, TenSecondsUnlessSaidOtherwise) {
    EXPECT_EQ(sal::ModuleTrial::Settings::ofProcess().deadline, 10s);
}

TEST_F(ModuleTrialSettings, SecondsComeFromTheEnvironment) {
    EXPECT_EQ(with("60").deadline, 60s);
    EXPECT_EQ(with("0").deadline, 0s);
}

TEST_F(ModuleTrialSettings, WhatIsNoNumberIsIgnoredAndNamed) {
    for (const char* pText : {"-1", "3601", "2s", "soon"}) {
        LogCapture log;
        EXPECT_EQ(with(pText).deadline, 10s);
        EXPECT_THAT(log.finish(), HasSubstr(std::string("MFD_PROBE_TIMEOUT=") + pText + " is ignored"));
    }
}

}  // namespace
