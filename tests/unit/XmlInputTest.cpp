#include "XmlInput.h"

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

TEST(XmlInput, AcceptsAHundredLevels) {
    EXPECT_FALSE(XmlInput::tooDeepLine(nested(100)));
}

TEST(XmlInput, RefusesTheHundredAndFirstLevel) {
    EXPECT_EQ(101, XmlInput::tooDeepLine(nested(101)));
}

TEST(XmlInput, ElementThatEndsAtOnceIsALevelToo) {
    std::string text = nested(100);
    EXPECT_EQ(101, XmlInput::tooDeepLine(text.insert(text.find("</a>"), "<b/>")));
    text = nested(99);
    EXPECT_FALSE(XmlInput::tooDeepLine(text.insert(text.find("</a>"), "<b/><b/>")));
}

TEST(XmlInput, CountsDepthNotElements) {
    std::string text = "<a>";
    for (int i = 0; i < 500; ++i)
        text += "<b x='1'/><c></c>";
    EXPECT_FALSE(XmlInput::tooDeepLine(text + "</a>"));
}

TEST(XmlInput, CountsNothingInCommentsAndCharacterData) {
    EXPECT_FALSE(XmlInput::tooDeepLine("<a><!-- " + nested(200) + " --><![CDATA[" + nested(200) + "]]></a>"));
}

TEST(XmlInput, TagsEndOutsideQuotesOnly) {
    std::string text;
    for (int i = 0; i < 150; ++i)
        text += "<a x='/>'>";
    EXPECT_EQ(1, XmlInput::tooDeepLine(text));
}

TEST(XmlInput, DeclarationCannotHideElements) {
    EXPECT_TRUE(XmlInput::tooDeepLine("<?xml version=\"?><!--\"?>" + nested(20000)));
    EXPECT_TRUE(XmlInput::tooDeepLine("<?xml foo\"bar>" + nested(20000) + "\""));
}

TEST(XmlInput, DocumentTypeCannotHideElements) {
    EXPECT_TRUE(XmlInput::tooDeepLine("<!DOCTYPE a [ ' >" + nested(200)));
    EXPECT_TRUE(XmlInput::tooDeepLine("<?other \" >" + nested(200)));
}

TEST(XmlInput, EndTagOutsideOfElementsCannotHideElements) {
    EXPECT_TRUE(XmlInput::tooDeepLine("</a>" + nested(101)));
    EXPECT_TRUE(XmlInput::tooDeepLine("<a/></a></b>" + nested(101)));
    EXPECT_FALSE(XmlInput::tooDeepLine("</a></a>" + nested(100)));
}

TEST(XmlInput, UnfinishedMarkupIsNoTrouble) {
    for (const char* text : {"<", "<a", "<a x='", "<!--", "<![CDATA[", "</", "<?xml", "<?", "<!"})
        EXPECT_FALSE(XmlInput::tooDeepLine(text)) << text;
}

TEST(XmlInput, AcceptsAFile) {
    const TemporaryDirectory directory;
    directory.write("a.xml", "<a/>");
    EXPECT_EQ("", XmlInput::refusal(directory.path("a.xml")));
}

TEST(XmlInput, LeavesAMissingFileToItsReader) {
    EXPECT_EQ("", XmlInput::refusal("/nonexistent/a.xml"));
}

TEST(XmlInput, NamesFileAndLineOfWhatIsTooDeep) {
    const TemporaryDirectory directory;
    directory.write("a.xml", nested(150));
    EXPECT_EQ(directory.path("a.xml") + " line 101: elements nest deeper than 100 levels",
              XmlInput::refusal(directory.path("a.xml")));
}

TEST(XmlInput, RefusesAPipeWithoutWaiting) {
    const TemporaryDirectory directory;
    ASSERT_EQ(0, ::mkfifo(directory.path("pipe").c_str(), 0600));
    EXPECT_EQ(directory.path("pipe") + " is no regular file", XmlInput::refusal(directory.path("pipe")));
}

TEST(XmlInput, RefusesADirectory) {
    const TemporaryDirectory directory;
    EXPECT_EQ(directory.path() + " is no regular file", XmlInput::refusal(directory.path()));
}

TEST(XmlInput, RefusesASocket) {
    const TemporaryDirectory directory;
    const int fd = ::socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, directory.path("s").c_str(), sizeof address.sun_path - 1);
    ASSERT_EQ(0, ::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address));
    EXPECT_EQ(directory.path("s") + " is no regular file", XmlInput::refusal(directory.path("s")));
    ::close(fd);
}

TEST(XmlInput, RefusesMoreThanSixteenMegabytes) {
    const TemporaryDirectory directory;
    directory.write("a.xml", "");
    std::filesystem::resize_file(directory.path("a.xml"), 16 * 1024 * 1024);
    EXPECT_EQ("", XmlInput::refusal(directory.path("a.xml")));
    std::filesystem::resize_file(directory.path("a.xml"), 16 * 1024 * 1024 + 1);
    EXPECT_EQ(directory.path("a.xml") + " has 16777217 bytes; at most 16 MB are read",
              XmlInput::refusal(directory.path("a.xml")));
}
