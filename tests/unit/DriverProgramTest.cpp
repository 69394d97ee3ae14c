#include "DriverProgram.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <string>

#include "TemporaryDirectory.h"

namespace {

/// A file of that name and mode.
std::string made(const TemporaryDirectory& directory, const std::string& name, const std::string& text,
                 mode_t mode) {
    directory.write(name, text);
    ::chmod(directory.path(name).c_str(), mode);
    return directory.path(name);
}

TEST(DriverProgram, IsAnExecutableFileThatIsNotNamedAsAModule) {
    const TemporaryDirectory directory;
    EXPECT_TRUE(driverprogram::isProgram(made(directory, "lamp.py", "#!/bin/sh\n", 0755)));
    EXPECT_TRUE(driverprogram::isProgram(made(directory, "lamp", "#!/bin/sh\n", 0700)));
    EXPECT_FALSE(driverprogram::isProgram(made(directory, "lamp.so", "#!/bin/sh\n", 0755)));
    EXPECT_FALSE(driverprogram::isProgram(made(directory, "lamp.txt", "#!/bin/sh\n", 0644)));
    EXPECT_FALSE(driverprogram::isProgram(directory.path()));
    EXPECT_FALSE(driverprogram::isProgram(directory.path("none")));
    EXPECT_FALSE(driverprogram::isProgram(""));
}

TEST(DriverProgram, ProcessBecomesItWithTheDriverId) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const TemporaryDirectory directory;
    const std::string program = made(directory, "lamp", "#!/bin/sh\necho \"$#:$1\" >&2\nexit 7\n", 0755);
    EXPECT_EXIT(driverprogram::become(program, "LAMP 1"), testing::ExitedWithCode(7), "^1:LAMP 1\n$");
}

TEST(DriverProgram, SaysWhyItCannotBeRun) {
    const TemporaryDirectory directory;
    const std::string noInterpreter = made(directory, "lamp.py", "#!/nowhere/python3\n", 0755);
    EXPECT_EQ(
        driverprogram::become(noInterpreter, "LAMP1"),
        noInterpreter +
            " cannot be run: No such file or directory; is the interpreter of its first line (#!) there?");
    const std::string noProgram = made(directory, "lamp", "lamp", 0755);
    EXPECT_EQ(driverprogram::become(noProgram, "LAMP1"), noProgram + " cannot be run: Exec format error");
}

}  // namespace
