#include "WorkplaceCopy.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <tinyxml.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <sstream>
#include <vector>

#include "LogCapture.h"
#include "NoDescriptors.h"
#include "TemporaryDirectory.h"
#include "WorkplaceSnapshot.h"
#include "XMLVerify.h"

namespace {

class WorkplaceCopyTest : public testing::Test {
protected:
    std::string path() const { return m_directory.path("w.xml"); }
    std::string take(const std::string& text) {
        m_directory.write("w.xml", text);
        return m_sut.take(WorkplaceSnapshot(path()));
    }
    /// What the module finds; nothing when it cannot open it.
    std::optional<std::string> content() const {
        std::ifstream file(m_sut.path(), std::ios::binary);
        if (!file)
            return std::nullopt;
        std::ostringstream text;
        text << file.rdbuf();
        return text.str();
    }
    static long descriptors() {
        return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
    }

    TemporaryDirectory m_directory;
    WorkplaceCopy m_sut;
};

}  // namespace

TEST_F(WorkplaceCopyTest, ModuleReadsTheBytesThatWereVerified) {
    const std::string verified("<workplaces/>\r\n\0<!-- behind -->", 31);
    m_directory.write("w.xml", verified);
    const WorkplaceSnapshot snapshot(path());
    m_directory.write("w.xml", "<workplaces>other</workplaces>");
    EXPECT_EQ("", m_sut.take(snapshot));
    EXPECT_EQ(verified, content());
    m_directory.write("w.xml", "<workplaces>another</workplaces>");
    EXPECT_EQ(verified, content());
}

TEST_F(WorkplaceCopyTest, SignatureOfTheCopyIsThatOfTheBytesAndNamesTheirFile) {
    m_directory.write("w.xml", "<workplaces/>");
    m_directory.write("w.xml.sig", "short");
    const WorkplaceSnapshot snapshot(path());
    std::filesystem::remove(path() + ".sig");
    ASSERT_EQ("", m_sut.take(snapshot));
    LogCapture log;
    EXPECT_FALSE(XMLVerify::verifySignature(sal::Path(m_sut.path())));
    EXPECT_NE(std::string::npos,
              log.finish().find("warning  VERIFY: " + path() + ": the signature " + path() +
                                ".sig is truncated: it has 5 bytes instead of 64\n"));
}

TEST_F(WorkplaceCopyTest, PathStaysWhileTheBytesChange) {
    const std::string before = m_sut.path();
    for (const char* text : {"<a/>", "<longer/>", "", "<b/>"}) {
        ASSERT_EQ("", take(text));
        EXPECT_EQ(text, content());
        EXPECT_EQ(before, m_sut.path());
    }
}

TEST_F(WorkplaceCopyTest, NobodyCanWriteToIt) {
    ASSERT_EQ("", take("<a/>"));
    const int fd = ::open(m_sut.path().c_str(), O_RDWR | O_CLOEXEC);
    if (fd >= 0) {
        EXPECT_EQ(-1, ::write(fd, "x", 1));
        EXPECT_EQ(EPERM, errno);
        EXPECT_EQ(-1, ::ftruncate(fd, 0));
        EXPECT_EQ(-1, ::ftruncate(fd, 100));
        ::close(fd);
    }
    EXPECT_EQ("<a/>", content());
}

TEST_F(WorkplaceCopyTest, DriverProcessesDoNotInheritIt) {
    ASSERT_EQ("", take("<a/>"));
    const int number = std::stoi(m_sut.path().substr(m_sut.path().rfind('/') + 1));
    EXPECT_EQ(FD_CLOEXEC, ::fcntl(number, F_GETFD));
}

TEST_F(WorkplaceCopyTest, FileThatCannotBeReadLeadsToNothingUntilItCan) {
    EXPECT_EQ(std::nullopt, content());
    ASSERT_EQ("", take("<a/>"));
    std::filesystem::remove(path());
    EXPECT_EQ("", m_sut.take(WorkplaceSnapshot(path())));
    TiXmlDocument document(m_sut.path());
    EXPECT_FALSE(document.LoadFile());
    EXPECT_STREQ("Failed to open file", document.ErrorDesc());
    ASSERT_EQ("", take("<b/>"));
    EXPECT_EQ("<b/>", content());
}

TEST_F(WorkplaceCopyTest, KeepsItsTwoDescriptorsHoweverOftenItIsTaken) {
    const long before = descriptors();
    for (int i = 0; i < 20; ++i)
        ASSERT_EQ("", take("<a/>"));
    EXPECT_EQ(before, descriptors());
    {
        WorkplaceCopy other;
        EXPECT_EQ(before + 2, descriptors());
    }
    EXPECT_EQ(before, descriptors());
}

TEST_F(WorkplaceCopyTest, LimitBelowItsNumberIsWantOfDescriptors) {
    ASSERT_EQ("", take("<a/>"));
    const WorkplaceSnapshot snapshot(path());
    std::string reason;
    {
        const NoDescriptors none;
        reason = m_sut.take(snapshot);
    }
    EXPECT_EQ(path() + " cannot be handed to the module: Too many open files", reason);
}

TEST_F(WorkplaceCopyTest, WithoutADescriptorItSaysWhyAndNothingOldIsLeft) {
    ASSERT_EQ("", take("<a/>"));
    const WorkplaceSnapshot snapshot(path());
    rlimit before{};
    ASSERT_EQ(0, ::getrlimit(RLIMIT_NOFILE, &before));
    const rlimit few{100, before.rlim_max};
    ASSERT_EQ(0, ::setrlimit(RLIMIT_NOFILE, &few));
    std::vector<int> taken;
    for (int fd = 0; (fd = ::dup(STDERR_FILENO)) >= 0;)
        taken.push_back(fd);
    const std::string reason = m_sut.take(snapshot);
    for (const int fd : taken)
        ::close(fd);
    ASSERT_EQ(0, ::setrlimit(RLIMIT_NOFILE, &before));
    EXPECT_EQ(path() + " cannot be handed to the module: Too many open files", reason);
    EXPECT_EQ(std::nullopt, content());
    EXPECT_EQ("", m_sut.take(snapshot));
    EXPECT_EQ("<a/>", content());
}
