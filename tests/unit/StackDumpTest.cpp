#include "StackDump.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <future>
#include <thread>

#include "HangGuard.h"

namespace fs = std::filesystem;

namespace {

using namespace std::chrono_literals;

/// A dump made by a program of the test's own that goes by the tool's name.
class StackDumpTest : public testing::Test {
protected:
    StackDumpTest() {
        std::string directory = (fs::temp_directory_path() / "stackdump-XXXXXX").string();
        m_directory = ::mkdtemp(directory.data());
        ::setenv("PATH", m_directory.c_str(), 1);
    }
    ~StackDumpTest() override {
        ::setenv("PATH", m_path.c_str(), 1);
        fs::remove_all(m_directory);
    }

    void install(const std::string& script) const {
        const fs::path tool = m_directory / "eu-stack";
        std::ofstream(tool) << "#!/bin/sh\nPATH=/usr/bin:/bin\n" << script << "\n";
        fs::permissions(tool, fs::perms::owner_all);
    }
    std::string dumpOf(int number, std::chrono::milliseconds limit,
                       StackDump::EThreads threads = StackDump::EThreads::All) {
        std::promise<void> done;
        StackDump sut(
            number, limit, [&] { done.set_value(); }, threads);
        done.get_future().wait();
        EXPECT_TRUE(sut.isDone());
        return sut.text();
    }

    const std::string m_path = std::getenv("PATH");
    fs::path m_directory;
};

}  // namespace

TEST_F(StackDumpTest, IsWhatTheToolSaysOfTheProcess) {
    install("echo \"$@\"; echo '#0 in main'");
    EXPECT_EQ("-p 4711\n#0 in main", dumpOf(4711, c_hangGuard));
}

TEST_F(StackDumpTest, IsThatOfOneThreadWhereItIsAskedFor) {
    install("echo \"$@\"");
    EXPECT_EQ("-1p 4711", dumpOf(4711, c_hangGuard, StackDump::EThreads::One));
}

TEST_F(StackDumpTest, ShowsAThreadOfThisProcess) {
    ::setenv("PATH", m_path.c_str(), 1);
    if (std::system("eu-stack --version >/dev/null 2>&1") != 0)
        GTEST_SKIP() << "eu-stack is not installed";
    std::promise<int> number;
    std::promise<void> end;
    std::thread waiting([&] {
        number.set_value(::gettid());
        end.get_future().wait();
    });
    const int thread = number.get_future().get();
    const std::string text = dumpOf(thread, c_hangGuard, StackDump::EThreads::One);
    end.set_value();
    waiting.join();
    EXPECT_TRUE(text.starts_with("TID " + std::to_string(thread) + ":\n#0 ")) << text;
    EXPECT_EQ(text.find("TID", 1), std::string::npos) << text;
}

TEST_F(StackDumpTest, IsEmptyWithoutTheTool) {
    EXPECT_EQ("", dumpOf(4711, c_hangGuard));
}

TEST_F(StackDumpTest, TellsWhyTheToolCannot) {
    install("echo 'not allowed' >&2; exit 1");
    EXPECT_EQ("not allowed", dumpOf(4711, c_hangGuard));
}

TEST_F(StackDumpTest, EndsWithTheLimitAndKeepsWhatHasCome) {
    install("echo '#0 first'; exec sleep 3600");
    // How soon the tool comes to say something is the machine's affair.
    std::string text;
    for (auto limit = 300ms; text.empty() && limit < c_hangGuard; limit *= 2)
        text = dumpOf(4711, limit);
    EXPECT_EQ("#0 first", text);
}

TEST_F(StackDumpTest, IsCutWhenItIsTooLong) {
    install("exec yes");
    EXPECT_LE(dumpOf(4711, c_hangGuard).size(), 40000u);
}
