#include "XmlDocument.h"

#include <gtest/gtest.h>
#include <tinyxml.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

namespace {

class XmlDocument : public testing::Test {
protected:
    XmlDocument() {
        std::string pattern = testing::TempDir() + "mfd-xml-XXXXXX";
        m_directory = ::mkdtemp(pattern.data());
    }
    ~XmlDocument() override { std::filesystem::remove_all(m_directory); }

    std::string file(const std::string& content) const {
        const std::string path = m_directory + "/file.xml";
        std::ofstream(path) << content;
        return path;
    }

    static long descriptors() {
        return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
    }

    std::string m_directory;
};

}  // namespace

TEST_F(XmlDocument, FileIsRead) {
    TiXmlDocument document(file("<workplaces/>"));
    ASSERT_TRUE(loadXmlDocument(document));
    EXPECT_STREQ(document.RootElement()->Value(), "workplaces");
}

TEST_F(XmlDocument, BrokenFileFailsWithTheLibrarysWords) {
    TiXmlDocument document(file("<workplaces>"));
    EXPECT_FALSE(loadXmlDocument(document));
    EXPECT_STREQ(document.ErrorDesc(), "Error reading Element value.");
}

TEST_F(XmlDocument, MissingFileFailsWithTheLibrarysWords) {
    TiXmlDocument document(m_directory + "/none.xml");
    EXPECT_FALSE(loadXmlDocument(document));
    EXPECT_STREQ(document.ErrorDesc(), "Failed to open file");
}

TEST_F(XmlDocument, DirectoryIsAFileThatCannotBeLoaded) {
    TiXmlDocument document(m_directory);
    EXPECT_FALSE(loadXmlDocument(document));
    EXPECT_STREQ(document.ErrorDesc(), "Failed to open file");
}

TEST_F(XmlDocument, DirectoryKeepsNoDescriptor) {
    const auto before = descriptors();
    for (int i = 0; i < 10; ++i) {
        TiXmlDocument document(m_directory);
        EXPECT_FALSE(loadXmlDocument(document));
    }
    EXPECT_EQ(descriptors(), before);
}
