#include "DescriptorChanges.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "TemporaryDirectory.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class DescriptorChangesTest : public testing::Test {
protected:
    DescriptorChangesTest() { describe("a.xml", type("Axis", "1.0", "axis.so")); }

    static std::string type(const std::string& type, const std::string& version, const std::string& name,
                            const std::string& description = {}) {
        return "<module_type name='" + name + "' type='" + type + "' version='" + version +
               "' description='" + description + "'/>\n";
    }
    void describe(const std::string& file, const std::string& types) {
        m_directory.write(file, "<mfDriverModule>\n" + types + "</mfDriverModule>");
    }
    DescriptorCatalogue catalogue() const { return DescriptorCatalogue({m_directory.path()}); }
    DescriptorChanges since(const DescriptorCatalogue& known) const {
        return DescriptorChanges::between(known, catalogue());
    }
    std::string path(const std::string& file) const { return m_directory.path(file); }

    TemporaryDirectory m_directory;
};

}  // namespace

TEST_F(DescriptorChangesTest, WhatIsAsItWasIsNoChange) {
    const auto known = catalogue();
    describe("a.xml", "<!-- a comment would end it -->" + type("Axis", "1.0", "axis.so"));
    describe("a.xml", "\n\n" + type("Axis", "1.0", "axis.so"));
    EXPECT_THAT(since(known).newFiles, IsEmpty());
    EXPECT_THAT(since(known).needRestart, IsEmpty());
}

TEST_F(DescriptorChangesTest, NewDescriptorIsSearchedFor) {
    const auto known = catalogue();
    describe("b.xml", type("Belt", "1.0", "belt.so") + type("Belt", "2.0", "belt2.so"));
    EXPECT_THAT(since(known).newFiles, ElementsAre(path("b.xml")));
    EXPECT_THAT(since(known).needRestart, IsEmpty());
}

TEST_F(DescriptorChangesTest, DescriptorOfANewVersionAloneIsSearchedFor) {
    const auto known = catalogue();
    describe("a.xml", type("Axis", "1.1", "axis.so"));
    EXPECT_THAT(since(known).newFiles, ElementsAre(path("a.xml")));
    EXPECT_THAT(since(known).needRestart, IsEmpty());
}

TEST_F(DescriptorChangesTest, ChangedOneOfTheSameTypeAndVersionNeedsARestart) {
    const auto known = catalogue();
    describe("a.xml", type("Axis", "1.0", "other.so"));
    EXPECT_THAT(since(known).newFiles, IsEmpty());
    EXPECT_THAT(
        since(known).needRestart,
        ElementsAre(path("a.xml") + " line 2: type \"Axis\" in version \"1.0\" has changed, which needs a "
                                    "restart of the host"));
    describe("a.xml", type("Axis", "1.0", "axis.so", "an axis"));
    EXPECT_EQ(1u, since(known).needRestart.size());
}

TEST_F(DescriptorChangesTest, NewOneBesideAKnownOneNeedsARestart) {
    const auto known = catalogue();
    describe("a.xml", type("Axis", "1.0", "axis.so") + type("Axis", "1.1", "axis.so"));
    EXPECT_THAT(since(known).newFiles, IsEmpty());
    EXPECT_THAT(
        since(known).needRestart,
        ElementsAre(path("a.xml") + " line 3: type \"Axis\" in version \"1.1\" is new beside what is known "
                                    "already, which needs a restart of the host, or a descriptor of its "
                                    "own"));
}

TEST_F(DescriptorChangesTest, OneThatIsGoneChangesNothing) {
    const auto known = catalogue();
    std::filesystem::remove(path("a.xml"));
    EXPECT_THAT(since(known).newFiles, IsEmpty());
    EXPECT_THAT(since(known).needRestart, IsEmpty());
}

TEST_F(DescriptorChangesTest, WhatWasSearchedForIsKnownFromThenOn) {
    auto known = catalogue();
    describe("b.xml", type("Belt", "1.0", "belt.so"));
    describe("c.xml", type("Cart", "1.0", "cart.so"));
    known.add(catalogue(), {path("b.xml")});
    ASSERT_NE(nullptr, known.find("Belt", "1.0"));
    EXPECT_EQ(path("belt.so"), known.find("Belt", "1.0")->module);
    EXPECT_EQ(nullptr, known.find("Cart", "1.0"));
    EXPECT_EQ(nullptr, known.find("Belt", "2.0"));
    EXPECT_THAT(since(known).newFiles, ElementsAre(path("c.xml")));
}
