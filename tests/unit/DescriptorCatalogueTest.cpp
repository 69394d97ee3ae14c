#include "DescriptorCatalogue.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>

#include "TemporaryDirectory.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class DescriptorCatalogueTest : public testing::Test {
protected:
    DescriptorCatalogueTest() {
        m_directory.write("a.so", "module");
        m_directory.write("b.so", "module");
    }

    DescriptorCatalogue read() const { return DescriptorCatalogue({path()}); }
    std::string path(const std::string& name = {}) const { return m_directory.path(name); }

    static std::string entry(const std::string& name) {
        return "<module_type name='" + name + ".so' type='" + name + "' version='1.0'/>\n";
    }
    static std::string descriptor(const std::string& entries) {
        return "<mfDriverModule>\n" + entries + "</mfDriverModule>\n";
    }
    static std::vector<std::string> inWords(const DescriptorCatalogue& sut) {
        std::vector<std::string> words;
        for (const Finding& finding : sut.findings()) {
            EXPECT_FALSE(finding.isError());
            words.push_back(finding.inWords());
        }
        return words;
    }

    TemporaryDirectory m_directory;
};

}  // namespace

TEST_F(DescriptorCatalogueTest, ReadsTheRecordsInTheOrderOfTheFileNames) {
    m_directory.write("z.xml", descriptor(entry("a")));
    m_directory.write("b.xml", descriptor(entry("b")));
    const DescriptorCatalogue sut = read();
    ASSERT_EQ(2u, sut.records().size());
    EXPECT_EQ(path("b.xml"), sut.records()[0].file);
    EXPECT_EQ(2, sut.records()[0].line);
    EXPECT_EQ("b", sut.records()[0].type);
    EXPECT_EQ("1.0", sut.records()[0].version);
    EXPECT_EQ(path("b.so"), sut.records()[0].module);
    EXPECT_EQ("a", sut.records()[1].type);
    EXPECT_THAT(inWords(sut), IsEmpty());
}

TEST_F(DescriptorCatalogueTest, ReadsADirectoryOnceHoweverItIsNamed) {
    m_directory.write("a.xml", descriptor(entry("a")));
    const DescriptorCatalogue sut({path(), path() + "/../" + path().substr(path().rfind('/') + 1)});
    EXPECT_EQ(1u, sut.records().size());
}

TEST_F(DescriptorCatalogueTest, MissingDirectoryIsNamed) {
    EXPECT_THAT(
        inWords(DescriptorCatalogue({"/nonexistent"})),
        ElementsAre(
            "/nonexistent cannot be searched: No such file or directory; no drivers are found there"));
}

TEST_F(DescriptorCatalogueTest, FileInPlaceOfADirectoryIsNamed) {
    EXPECT_THAT(inWords(DescriptorCatalogue({path("a.so")})),
                ElementsAre(path("a.so") + " is not a directory; no drivers are found there"));
}

TEST_F(DescriptorCatalogueTest, AttributeThatCannotBeShownIsNamed) {
    m_directory.write("b.xml", descriptor("<module_type name='b.so' type='b\x1b[2J' version='\xc2\x9b' "
                                          "description='two\nlines,\t\xc3\xa4'/>"));
    EXPECT_THAT(inWords(read()),
                ElementsAre(path("b.xml") + " line 2: the type \"b\\x1b[2J\" holds a character that cannot "
                                            "be shown, and \"modules\" prints it as it is",
                            path("b.xml") + " line 2: the version \"\\u009b\" holds a character that cannot "
                                            "be shown, and \"modules\" prints it as it is"));
}

TEST_F(DescriptorCatalogueTest, IllFormedDescriptorIsNamedWithItsLineAndTheOthersAreRead) {
    m_directory.write("a.xml", descriptor(entry("a")));
    m_directory.write("b.xml", "<mfDriverModule>\n<module_type name=");
    const DescriptorCatalogue sut = read();
    EXPECT_EQ(1u, sut.records().size());
    EXPECT_THAT(inWords(sut),
                ElementsAre(path("b.xml") + " line 2: Error reading Attributes; the descriptor is skipped"));
}

TEST_F(DescriptorCatalogueTest, EmptyDescriptorIsNamed) {
    m_directory.write("a.xml", "");
    EXPECT_THAT(
        inWords(read()),
        ElementsAre(path("a.xml") + " cannot be read: Error document empty; the descriptor is skipped"));
}

TEST_F(DescriptorCatalogueTest, OtherRootIsNamedWithItsLine) {
    m_directory.write("a.xml", "\n<driver/>");
    EXPECT_THAT(
        inWords(read()),
        ElementsAre(path("a.xml") +
                    " line 2: the root is <driver>; a descriptor's root must be <mfDriverModule>, and "
                    "without it the file is skipped"));
}

TEST_F(DescriptorCatalogueTest, CommentBetweenEntriesEndsTheFile) {
    m_directory.write("a.xml", descriptor(entry("a") + "<!-- more -->\n" + entry("b")));
    const DescriptorCatalogue sut = read();
    EXPECT_EQ(1u, sut.records().size());
    EXPECT_THAT(
        inWords(sut),
        ElementsAre(path("a.xml") + " line 3: only <module_type> may stand here; the file is read up to "
                                    "this line"));
}

TEST_F(DescriptorCatalogueTest, DescriptorThatNestsTooDeepIsNamedWithItsLine) {
    std::string text;
    for (int i = 0; i < 101; ++i)
        text += "<a>\n";
    for (int i = 0; i < 101; ++i)
        text += "</a>\n";
    m_directory.write("a.xml", text);
    EXPECT_THAT(inWords(read()),
                ElementsAre(path("a.xml") +
                            " line 101: elements nest deeper than 100 levels; the descriptor is left out"));
}

TEST_F(DescriptorCatalogueTest, EntryWithoutANameIsNamed) {
    m_directory.write("a.xml", descriptor("<module_type type='a' version='1.0'/>\n"));
    EXPECT_THAT(
        inWords(read()),
        ElementsAre(path("a.xml") +
                    " line 2: the module_type has no name; it is the file name of the driver module"));
}

TEST_F(DescriptorCatalogueTest, DirectoryInPlaceOfAModuleIsNamed) {
    m_directory.write("a.xml", descriptor(entry("dir")));
    std::filesystem::create_directory(path("dir.so"));
    EXPECT_THAT(inWords(read()), ElementsAre(path("a.xml") + " line 2: the module file " + path("dir.so") +
                                             " is no regular file"));
}

TEST_F(DescriptorCatalogueTest, ModuleThatVanishesLaterIsNamedThen) {
    m_directory.write("a.xml", descriptor(entry("a")));
    const DescriptorCatalogue sut = read();
    ASSERT_THAT(inWords(sut), IsEmpty());
    std::filesystem::remove(path("a.so"));
    EXPECT_THAT(inWords(sut), ElementsAre(path("a.xml") + " line 2: the module file " + path("a.so") +
                                          " cannot be loaded: No such file or directory"));
}
