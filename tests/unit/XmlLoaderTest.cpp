#include "XmlLoader.h"

#include <gtest/gtest.h>
#include <tinyxml.h>

#include <filesystem>

#include "TemporaryDirectory.h"

namespace {

class XmlLoaderTest : public testing::Test {
protected:
    XmlFault load(const std::string& text) {
        TiXmlDocument document("f.xml");
        return loadXml(document, text);
    }
};

}  // namespace

TEST_F(XmlLoaderTest, RightFileHasNoFault) {
    EXPECT_EQ("", load("<a/>").text);
}

TEST_F(XmlLoaderTest, FaultHasItsLine) {
    const auto fault = load("<a>\n</b>\n</a>");
    EXPECT_EQ(2, fault.line);
    EXPECT_EQ("Error reading end tag", fault.text);
}

TEST_F(XmlLoaderTest, MarkupThatTheEndCutsOffIsInTheLastLine) {
    const auto fault = load("<a>\n<b c=");
    EXPECT_EQ(2, fault.line);
    EXPECT_EQ("Error reading Attributes", fault.text);
}

TEST_F(XmlLoaderTest, EmptyFileIsAFaultOfTheWhole) {
    const auto fault = load("");
    EXPECT_EQ(0, fault.line);
    EXPECT_EQ("cannot be read: Error document empty", fault.text);
}

TEST_F(XmlLoaderTest, ReadsBytesAsTheLibraryReadsTheirFile) {
    TemporaryDirectory directory;
    for (const std::string& text :
         {std::string("<a/>"), std::string("<a\r\nb='1\r2'/>\r\n<c/>"),
          std::string("\xEF\xBB\xBF<a b='\xC3\xA4'/>"), std::string("<a/>\0<b>", 8),
          std::string("<?xml version='1.0' encoding='ISO-8859-1'?><a b='\xE4'/>")}) {
        directory.write("f.xml", text);
        TiXmlDocument fromFile(directory.path("f.xml"));
        TiXmlDocument fromBytes(directory.path("f.xml"));
        ASSERT_TRUE(fromFile.LoadFile()) << text;
        ASSERT_EQ("", loadXml(fromBytes, text).text) << text;
        TiXmlPrinter expected;
        TiXmlPrinter printed;
        fromFile.Accept(&expected);
        fromBytes.Accept(&printed);
        EXPECT_EQ(expected.Str(), printed.Str());
        EXPECT_EQ(fromFile.RootElement()->Row(), fromBytes.RootElement()->Row());
    }
}
