#include "DebugCommand.h"

#include <sys/stat.h>

#include <cstdlib>

#include "RemoteFixture.h"

namespace {

constexpr const char* s_answer = R"({"output":"","driver":{"id":"SYS","status":"running","pid":4712}})";

/// What stands in PATH is a gdb that tells how it was called.
class DebugCommandTest : public RemoteFixture {
protected:
    DebugCommandTest() {
        m_directory.write("gdb", "#!/bin/sh\nfor word; do echo \"[$word]\" >&2; done\nexit 42\n");
        ::chmod(m_directory.path("gdb").c_str(), 0700);
        ::setenv("PATH", (m_directory.path() + ":" + m_path).c_str(), 1);
        m_host.answer("POST /drivers/SYS/debug", s_answer);
    }
    ~DebugCommandTest() override { ::setenv("PATH", m_path.c_str(), 1); }

    const std::string m_path = std::getenv("PATH");
    TemporaryDirectory m_directory;
};

}  // namespace

TEST_F(DebugCommandTest, BecomesTheDebuggerAtTheDriversProcess) {
    auto remote = control();
    EXPECT_EXIT(DebugCommand(remote).run("SYS", {"-ex", "break here"}, std::chrono::seconds(9)),
                testing::ExitedWithCode(42),
                "\\[-iex\\]\n\\[set breakpoint pending on\\]\n\\[-p\\]\n\\[4712\\]\n\\[-ex\\]\n"
                "\\[break here\\]\n");
}

TEST_F(DebugCommandTest, WithoutADebuggerNothingIsReloaded) {
    ::setenv("PATH", "/nonexistent", 1);
    auto remote = control();
    EXPECT_EQ(std::pair(EExit::Failed, std::string("there is no gdb in PATH; install the package gdb")),
              errorOf([&] { DebugCommand(remote).run("SYS", {}, std::chrono::seconds(9)); }));
    EXPECT_EQ(0u, m_host.requests("POST /drivers/SYS/debug").size());
}

TEST_F(DebugCommandTest, HostsRefusalIsTold) {
    m_host.answer("POST /drivers/SYS/debug",
                  R"({"error":{"code":"refused","text":"it has no process of its own","nearest":[]}})", 409);
    auto remote = control();
    EXPECT_EQ(std::pair(EExit::Failed, std::string("it has no process of its own")),
              errorOf([&] { DebugCommand(remote).run("SYS", {}, std::chrono::seconds(9)); }));
}
