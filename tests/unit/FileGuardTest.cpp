#include "FileGuard.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>

#include "TemporaryDirectory.h"

namespace {

std::string nested(int depth) {
    std::string text;
    for (int i = 0; i < depth; ++i)
        text += "<a>\n";
    for (int i = 0; i < depth; ++i)
        text += "</a>\n";
    return text;
}

}  // namespace

TEST(FileGuard, AcceptsAHundredLevels) {
    EXPECT_FALSE(FileGuard::tooDeepLine(nested(100)));
}

TEST(FileGuard, RefusesTheHundredAndFirstLevel) {
    EXPECT_EQ(101, FileGuard::tooDeepLine(nested(101)));
}

TEST(FileGuard, CountsDepthNotElements) {
    std::string text = "<a>";
    for (int i = 0; i < 500; ++i)
        text += "<b x='1'/><c></c>";
    EXPECT_FALSE(FileGuard::tooDeepLine(text + "</a>"));
}

TEST(FileGuard, CountsNothingInCommentsAndCharacterData) {
    EXPECT_FALSE(
        FileGuard::tooDeepLine("<a><!-- " + nested(200) + " --><![CDATA[" + nested(200) + "]]></a>"));
}

TEST(FileGuard, TagsEndOutsideQuotesOnly) {
    std::string text;
    for (int i = 0; i < 150; ++i)
        text += "<a x='/>'>";
    EXPECT_EQ(1, FileGuard::tooDeepLine(text));
}

TEST(FileGuard, DeclarationCannotHideElements) {
    EXPECT_TRUE(FileGuard::tooDeepLine("<?xml version=\"?><!--\"?>" + nested(20000)));
    EXPECT_TRUE(FileGuard::tooDeepLine("<?xml foo\"bar>" + nested(20000) + "\""));
}

TEST(FileGuard, DocumentTypeCannotHideElements) {
    EXPECT_TRUE(FileGuard::tooDeepLine("<!DOCTYPE a [ ' >" + nested(200)));
    EXPECT_TRUE(FileGuard::tooDeepLine("<?other \" >" + nested(200)));
}

TEST(FileGuard, UnfinishedMarkupIsNoTrouble) {
    for (const char* text : {"<", "<a", "<a x='", "<!--", "<![CDATA[", "</", "<?xml", "<?", "<!"})
        EXPECT_FALSE(FileGuard::tooDeepLine(text)) << text;
}

TEST(FileGuard, AcceptsAFile) {
    const TemporaryDirectory directory;
    directory.write("a.xml", "<a/>");
    EXPECT_FALSE(FileGuard::refusal(directory.path("a.xml")));
}

TEST(FileGuard, LeavesAMissingFileToItsReader) {
    EXPECT_FALSE(FileGuard::refusal("/nonexistent/a.xml"));
}

TEST(FileGuard, NamesFileAndLineOfWhatIsTooDeep) {
    const TemporaryDirectory directory;
    directory.write("a.xml", nested(150));
    EXPECT_EQ(directory.path("a.xml") + " line 101: elements nest deeper than 100 levels",
              FileGuard::refusal(directory.path("a.xml")));
}

TEST(FileGuard, RefusesAPipeWithoutWaiting) {
    const TemporaryDirectory directory;
    ASSERT_EQ(0, ::mkfifo(directory.path("pipe").c_str(), 0600));
    EXPECT_EQ(directory.path("pipe") + " is no regular file", FileGuard::refusal(directory.path("pipe")));
}

TEST(FileGuard, RefusesADirectory) {
    const TemporaryDirectory directory;
    EXPECT_EQ(directory.path() + " is no regular file", FileGuard::refusal(directory.path()));
}

TEST(FileGuard, RefusesASocket) {
    const TemporaryDirectory directory;
    const int fd = ::socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, directory.path("s").c_str(), sizeof address.sun_path - 1);
    ASSERT_EQ(0, ::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address));
    EXPECT_EQ(directory.path("s") + " is no regular file", FileGuard::refusal(directory.path("s")));
    ::close(fd);
}

TEST(FileGuard, RefusesMoreThanSixteenMegabytes) {
    const TemporaryDirectory directory;
    directory.write("a.xml", "");
    std::filesystem::resize_file(directory.path("a.xml"), 16 * 1024 * 1024);
    EXPECT_FALSE(FileGuard::refusal(directory.path("a.xml")));
    std::filesystem::resize_file(directory.path("a.xml"), 16 * 1024 * 1024 + 1);
    EXPECT_EQ(directory.path("a.xml") + " has 16777217 bytes; at most 16 MB are read",
              FileGuard::refusal(directory.path("a.xml")));
}
