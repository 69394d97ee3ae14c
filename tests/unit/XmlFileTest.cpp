#include "check/XmlFile.h"

#include <gtest/gtest.h>
#include <tinyxml.h>

#include <filesystem>

#include "TemporaryDirectory.h"

namespace {

class XmlFileTest : public testing::Test {
protected:
    XmlFile::Fault load(const std::string& text) {
        m_directory.write("f.xml", text);
        TiXmlDocument document(m_directory.path("f.xml"));
        return XmlFile::load(document);
    }

    TemporaryDirectory m_directory;
};

}  // namespace

TEST_F(XmlFileTest, RightFileHasNoFault) {
    EXPECT_EQ("", load("<a/>").text);
}

TEST_F(XmlFileTest, FaultHasItsLine) {
    const auto fault = load("<a>\n</b>\n</a>");
    EXPECT_EQ(2, fault.line);
    EXPECT_EQ("Error reading end tag", fault.text);
}

TEST_F(XmlFileTest, MarkupThatTheEndCutsOffIsInTheLastLine) {
    const auto fault = load("<a>\n<b c=");
    EXPECT_EQ(2, fault.line);
    EXPECT_EQ("Error reading Attributes", fault.text);
}

TEST_F(XmlFileTest, EmptyFileIsAFaultOfTheWhole) {
    const auto fault = load("");
    EXPECT_EQ(0, fault.line);
    EXPECT_EQ("cannot be read: Error document empty", fault.text);
}

TEST_F(XmlFileTest, MissingFileHasTheSystemsReason) {
    TiXmlDocument document("/nonexistent/f.xml");
    EXPECT_EQ("cannot be read: No such file or directory", XmlFile::load(document).text);
}
