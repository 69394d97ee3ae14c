#include "Sandbox.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <iostream>
#include <set>

#include "RefusedCalls.h"
#include "TemporaryDirectory.h"

namespace fs = std::filesystem;

namespace {

/// Whether the machine permits no namespaces; any other refusal is a fault.
bool areNamespacesRefused(const std::string& reason) {
    return reason.starts_with("unshare") || reason.starts_with("make the mounts private");
}

/// Runs the body in a process that has entered the sandbox; its exit code, or 77 where namespaces are
/// refused.
int inSandbox(const std::string& directory, const std::function<bool()>& body) {
    const pid_t child = ::fork();
    if (child == 0) {
        if (const std::string reason = enterSandbox(directory); !reason.empty()) {
            std::cerr << reason << std::endl;
            ::_exit(areNamespacesRefused(reason) ? 77 : 1);
        }
        ::_exit(body() ? 0 : 1);
    }
    int status = 0;
    ::waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

std::set<std::string> entries(const std::string& directory) {
    std::set<std::string> names;
    for (const auto& entry : fs::directory_iterator(directory))
        names.insert(entry.path().filename());
    return names;
}

ino_t inode(const std::string& path) {
    struct stat status {};
    return ::stat(path.c_str(), &status) == 0 ? status.st_ino : 0;
}

}  // namespace

#define EXPECT_IN_SANDBOX(directory, body)                        \
    do {                                                          \
        const int code = inSandbox(directory, body);              \
        if (code == 77)                                           \
            GTEST_SKIP() << "needs mount and network namespaces"; \
        EXPECT_EQ(0, code);                                       \
    } while (false)

TEST(Sandbox, HasAnEmptyDataDirectoryOfItsOwn) {
    EXPECT_IN_SANDBOX("", [] {
        const bool isEmpty = fs::is_empty("/var/data");
        std::ofstream("/var/data/mark") << "x";
        return isEmpty && fs::exists("/var/data/mark");
    });
    EXPECT_FALSE(fs::exists("/var/data/mark"));
}

TEST(Sandbox, HidesTheMachinesDataDirectory) {
    // The outer sandbox plays the machine.
    EXPECT_IN_SANDBOX("", [] {
        std::ofstream("/var/data/mark") << "x";
        return inSandbox("", [] { return fs::is_empty("/var/data"); }) == 0 && fs::exists("/var/data/mark");
    });
}

TEST(Sandbox, LeavesTheRestOfVarInPlace) {
    auto before = entries("/var");
    before.insert("data");
    const ino_t library = inode("/var/lib");
    EXPECT_IN_SANDBOX("", ([&] { return entries("/var") == before && inode("/var/lib") == library; }));
}

TEST(Sandbox, LeavesLinksInVarAsLinks) {
    // The outer sandbox plays the machine.
    EXPECT_IN_SANDBOX("", [] {
        fs::create_symlink("lib", "/var/mfd-link");
        fs::create_symlink("/nowhere", "/var/mfd-dangling");
        return inSandbox("", [] {
                   return fs::is_symlink("/var/mfd-link") && fs::read_symlink("/var/mfd-link") == "lib" &&
                          fs::read_symlink("/var/mfd-dangling") == "/nowhere";
               }) == 0;
    });
}

TEST(Sandbox, KeepsTheDataDirectoryWhereItIsTold) {
    const TemporaryDirectory kept;
    EXPECT_IN_SANDBOX(kept.path("new"),
                      [] { return static_cast<bool>(std::ofstream("/var/data/mark") << "x" << std::flush); });
    EXPECT_TRUE(fs::exists(kept.path("new/data/mark")));
}

TEST(Sandbox, KeptDirectoryMayLieUnderVar) {
    const std::string kept = "/var/tmp/mfd-sandbox-" + std::to_string(::getpid());
    const int code = inSandbox(
        kept, [] { return static_cast<bool>(std::ofstream("/var/data/mark") << "x" << std::flush); });
    const bool isKept = fs::exists(kept + "/data/mark");
    fs::remove_all(kept);
    if (code == 77)
        GTEST_SKIP() << "needs mount and network namespaces";
    EXPECT_TRUE(isKept);
}

TEST(Sandbox, HasASharedMemoryDirectoryOfItsOwn) {
    const std::string mark = "/dev/shm/mfd-sandbox-" + std::to_string(::getpid());
    EXPECT_IN_SANDBOX("", [&] {
        std::ofstream(mark.c_str()) << "x";
        return fs::exists(mark);
    });
    EXPECT_FALSE(fs::exists(mark));
}

TEST(Sandbox, TryLeavesTheProcessWhereItIs) {
    const std::string network = fs::read_symlink("/proc/self/ns/net");
    const std::string refusal = sandboxRefusal();
    EXPECT_EQ(network, fs::read_symlink("/proc/self/ns/net").string());
    if (!refusal.empty())
        GTEST_SKIP() << "needs mount and network namespaces: " << refusal;
}

TEST(Sandbox, TrySaysWhatEnteringItWouldSay) {
    EXPECT_IN_SANDBOX("", [] {
        if (!sandboxRefusal().empty())
            return false;
        refuseNamespaces();
        const std::string refusal = sandboxRefusal();
        std::cerr << (refusal.empty() ? "no refusal" : refusal) << std::endl;
        return refusal == enterSandbox("") &&
               refusal == "unshare(user, mount, network): Operation not permitted";
    });
}

TEST(Sandbox, SaysWhichStepWasRefused) {
    const TemporaryDirectory directory;
    directory.write("file", "");
    const pid_t child = ::fork();
    if (child == 0) {
        const std::string reason = enterSandbox(directory.path("file"));
        const std::string expected = "cannot make " + directory.path("file") + "/data: Not a directory";
        ::_exit(areNamespacesRefused(reason) ? 77 : reason == expected ? 0 : 1);
    }
    int status = 0;
    ::waitpid(child, &status, 0);
    if (WEXITSTATUS(status) == 77)
        GTEST_SKIP() << "needs mount and network namespaces";
    EXPECT_EQ(0, WEXITSTATUS(status));
}
