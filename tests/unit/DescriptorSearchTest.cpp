#include "DescriptorSearch.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "IMDMConfiguration.h"
#include "LogCapture.h"
#include "TemporaryDirectory.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

/// Lists in each search the descriptors that it would read, and goes elsewhere as the real one may.
class Module : public IMDMConfiguration {
public:
    IInterface* queryInterface(unsigned int) override { return nullptr; }
    void searchMfDriver(const std::string& directory) override {
        searched.push_back(directory);
        for (const auto& file : std::filesystem::directory_iterator(directory))
            if (file.path().extension() == ".xml" && DescriptorSearch::isWanted(file.path()))
                read.push_back(file.path().filename());
        std::filesystem::current_path(directory);
    }
    bool startMfDriver(int, const std::string&, const std::string&, const std::string&, const std::string&,
                       const std::string&, const std::string&, EInterfaceTypes) override {
        return false;
    }
    bool startMfDrivers(const std::string&) override { return false; }
    bool reloadMfDriver(const std::string&) override { return false; }
    std::string getPDLFilename(std::string&) const override { return {}; }

    std::vector<std::string> searched;
    std::vector<std::string> read;
};

class DescriptorSearchTest : public testing::Test {
protected:
    DescriptorSearchTest() {
        for (const char* file : {"one/a.xml", "two/b.xml", "two/c.xml"})
            m_directory.write(file, "<mfDriverModule><module_type name='m' type='" + std::string(file) +
                                        "' version='1.0'/></mfDriverModule>");
    }
    std::string path(const std::string& name) const { return m_directory.path(name); }
    DescriptorCatalogue catalogue() const { return DescriptorCatalogue({path("one"), path("two")}); }

    TemporaryDirectory m_directory;
    LogCapture m_log;
    Module m_module;
    const std::filesystem::path m_before = std::filesystem::current_path();
};

}  // namespace

TEST_F(DescriptorSearchTest, EachDirectoryIsSearchedOnce) {
    const DescriptorSearch sut({path("one"), path("two"), path("one/.."), path("one"), path("none")});
    sut.searchAll(m_module, catalogue());
    EXPECT_THAT(m_module.searched, ElementsAre(path("one"), path("two"), path("one/..")));
    EXPECT_EQ(m_before, std::filesystem::current_path());
    EXPECT_EQ("", m_log.text());
}

TEST_F(DescriptorSearchTest, DirectoryOfWhichNothingCouldBeReadIsTold) {
    const DescriptorSearch sut({path("one"), path("two")});
    sut.searchAll(m_module, DescriptorCatalogue({path("two")}));
    EXPECT_THAT(m_log.text(),
                HasSubstr("warning  HOST: " + path("one") +
                          ": none of its descriptors could be read; no drivers are found there\n"));
}

TEST_F(DescriptorSearchTest, OnlyTheFilesThatAreAskedForAreRead) {
    const DescriptorSearch sut({path("one"), path("two")});
    sut.searchFiles(m_module, {path("two/c.xml")});
    EXPECT_THAT(m_module.searched, ElementsAre(path("two")));
    EXPECT_THAT(m_module.read, ElementsAre("c.xml"));
    EXPECT_EQ(m_before, std::filesystem::current_path());
    // Later searches, as the console may ask for them, read all again.
    EXPECT_TRUE(DescriptorSearch::isWanted(path("two/b.xml")));
}

TEST_F(DescriptorSearchTest, FileOfNoDirectoryIsNotSearchedFor) {
    const DescriptorSearch sut({path("one")});
    sut.searchFiles(m_module, {path("two/c.xml")});
    EXPECT_THAT(m_module.searched, IsEmpty());
}
