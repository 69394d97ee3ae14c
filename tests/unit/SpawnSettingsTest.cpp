#include "SpawnSettings.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <string>

#include "StandardErrorCapture.h"

namespace {

/// What comes out of the pipe until its end.
std::string textOf(int descriptor) {
    std::string text;
    std::array<char, 256> buffer{};
    for (ssize_t count = 0; (count = ::read(descriptor, buffer.data(), buffer.size())) > 0;)
        text.append(buffer.data(), static_cast<std::size_t>(count));
    return text;
}

/// Runs a shell script; its exit code, or the error number of the start, negative.
int run(sal::SpawnSettings& sut, std::string script, const char* program = "/bin/sh") {
    std::string title = "sh";
    std::string option = "-c";
    std::array<char*, 4> words{title.data(), option.data(), script.data(), nullptr};
    pid_t pid = -1;
    if (const int error = sut.spawn(pid, program, words.data(), environ))
        return -error;
    int status = 0;
    ::waitpid(pid, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

TEST(SpawnSettings, MissingProgramIsTheSystemsError) {
    sal::SpawnSettings sut;
    EXPECT_EQ(run(sut, "true", "/none/sh"), -ENOENT);
}

TEST(SpawnSettings, CapturedErrorsComeThroughThePipeAndOutputDoesNot) {
    std::array<int, 2> ends{};
    ASSERT_EQ(::pipe2(ends.data(), O_CLOEXEC), 0);
    sal::SpawnSettings sut;
    sut.captureErrors(ends[1]);
    EXPECT_EQ(run(sut, "echo output; echo error >&2"), 0);
    ::close(ends[1]);
    EXPECT_EQ(textOf(ends[0]), "error\n");
    ::close(ends[0]);
}

TEST(SpawnSettings, CapturedChildHasNoDescriptorButTheStandardOnes) {
    std::array<int, 2> ends{};
    // Not closed by the exec itself, so that the settings have to do it.
    ASSERT_EQ(::pipe(ends.data()), 0);
    sal::SpawnSettings sut;
    sut.captureErrors(ends[1]);
    const auto isClosed = [](int descriptor) {
        return "[ ! -e /proc/$$/fd/" + std::to_string(descriptor) + " ]";
    };
    EXPECT_EQ(run(sut, isClosed(ends[0]) + " && " + isClosed(ends[1])), 0);
    ::close(ends[1]);
    ::close(ends[0]);
}

TEST(SpawnSettings, ReplacedErrorsComeThroughThePipeAndTheFormerOnesAreThere) {
    std::array<int, 2> ends{};
    ASSERT_EQ(::pipe2(ends.data(), O_CLOEXEC), 0);
    const int writer = ::fcntl(ends[1], F_DUPFD_CLOEXEC, sal::SpawnSettings::s_handedOver + 1);
    ::close(ends[1]);
    StandardErrorCapture capture;
    {
        sal::SpawnSettings sut;
        sut.replaceErrors(writer, STDERR_FILENO);
        EXPECT_EQ(run(sut, "echo error >&2; echo former >&3; [ ! -e /proc/$$/fd/4 ]"), 0);
    }
    ::close(writer);
    EXPECT_EQ(capture.finish(), "former\n");
    EXPECT_EQ(textOf(ends[0]), "error\n");
    ::close(ends[0]);
}

TEST(SpawnSettings, FormerErrorsMayBeAnotherDescriptor) {
    std::array<int, 2> ends{};
    ASSERT_EQ(::pipe2(ends.data(), O_CLOEXEC), 0);
    const int former = ::fcntl(ends[1], F_DUPFD_CLOEXEC, 100);
    ::close(ends[1]);
    const int nowhere = ::open("/dev/null", O_WRONLY | O_CLOEXEC);
    const int writer = ::fcntl(nowhere, F_DUPFD_CLOEXEC, 200);
    {
        sal::SpawnSettings sut;
        sut.replaceErrors(writer, former);
        EXPECT_EQ(run(sut, "echo error >&2; echo former >&3; [ ! -e /proc/$$/fd/4 ]"), 0);
    }
    for (const int descriptor : {nowhere, writer, former})
        ::close(descriptor);
    EXPECT_EQ(textOf(ends[0]), "former\n");
    ::close(ends[0]);
}

TEST(SpawnSettings, ErrorsAreNotReplacedByADescriptorInTheWay) {
    sal::SpawnSettings sut;
    sut.replaceErrors(sal::SpawnSettings::s_handedOver, STDERR_FILENO);
    EXPECT_EQ(run(sut, "true"), -EINVAL);
}

TEST(SpawnSettings, HandedOverDescriptorIsTheOnlyOneBesideTheStandardOnes) {
    std::array<int, 2> ends{};
    ASSERT_EQ(::pipe(ends.data()), 0);
    const int high = ::fcntl(ends[1], F_DUPFD, 100);
    sal::SpawnSettings sut;
    sut.handOver(high);
    EXPECT_EQ(
        run(sut, "echo result >&3; for f in 4 5 6 7 8 9 100; do [ ! -e /proc/$$/fd/$f ] || exit 1; done"), 0);
    ::close(high);
    ::close(ends[1]);
    EXPECT_EQ(textOf(ends[0]), "result\n");
    ::close(ends[0]);
}

TEST(SpawnSettings, DescriptorThatHasTheNumberAlreadyIsHandedOver) {
    std::array<int, 2> ends{};
    ASSERT_EQ(::pipe2(ends.data(), O_CLOEXEC), 0);
    const int before = ::fcntl(sal::SpawnSettings::s_handedOver, F_DUPFD_CLOEXEC, 50);
    ASSERT_EQ(::dup3(ends[1], sal::SpawnSettings::s_handedOver, O_CLOEXEC), sal::SpawnSettings::s_handedOver);
    sal::SpawnSettings sut;
    sut.handOver(sal::SpawnSettings::s_handedOver);
    EXPECT_EQ(run(sut, "echo result >&3"), 0);
    if (before >= 0) {
        ::dup2(before, sal::SpawnSettings::s_handedOver);
        ::close(before);
    } else {
        ::close(sal::SpawnSettings::s_handedOver);
    }
    if (ends[1] != sal::SpawnSettings::s_handedOver)
        ::close(ends[1]);
    if (ends[0] != sal::SpawnSettings::s_handedOver) {
        EXPECT_EQ(textOf(ends[0]), "result\n");
        ::close(ends[0]);
    }
}

}  // namespace
