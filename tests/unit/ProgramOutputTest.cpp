#include "ProgramOutput.h"

#include <gtest/gtest.h>

TEST(ProgramOutput, HasTextAndExitCode) {
    const auto sut = ProgramOutput::of({"sh", "-c", "echo out; echo err >&2; exit 3"});
    EXPECT_EQ("out\nerr\n", sut.text);
    EXPECT_EQ(3, sut.exitCode);
    EXPECT_EQ("", sut.error);
}

TEST(ProgramOutput, ProgramThatIsMissingIsSaid) {
    const auto sut = ProgramOutput::of({"no-such-program"});
    EXPECT_EQ(-1, sut.exitCode);
    EXPECT_EQ("no-such-program: No such file or directory", sut.error);
}

TEST(ProgramOutput, ProgramThatTakesTooLongIsEnded) {
    const auto sut =
        ProgramOutput::of({"sh", "-c", "echo first; exec sleep 1000"}, std::chrono::milliseconds(300));
    EXPECT_EQ("sh took too long", sut.error);
    EXPECT_EQ(-1, sut.exitCode);
}

TEST(ProgramOutput, ProgramThatClosesItsOutputIsWaitedFor) {
    const auto sut = ProgramOutput::of({"sh", "-c", "exec >&- 2>&-; sleep 0.2; exit 4"});
    EXPECT_EQ(4, sut.exitCode);
}

TEST(ProgramOutput, SignalIsSaid) {
    EXPECT_EQ("sh was ended by signal 9", ProgramOutput::of({"sh", "-c", "kill -9 $$"}).error);
}

TEST(ProgramOutput, ProgramGetsNoInput) {
    EXPECT_EQ("0\n", ProgramOutput::of({"sh", "-c", "wc -c"}).text);
}
