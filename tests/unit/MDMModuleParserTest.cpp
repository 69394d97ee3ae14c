#include "MDMModuleParser.h"

#include <gtest/gtest.h>
#include <tinyxml.h>

#include <filesystem>
#include <iostream>
#include <list>
#include <memory>
#include <sstream>
#include <type_traits>

#include "FakeHost.h"
#include "MDMModuleInfo.h"
#include "StandardOutput.h"

namespace {

struct Scan {
    fakehost::FakeHost host;
    MDMModuleParser sut;
    std::list<MDMModuleInfo*> modules;

    ~Scan() {
        for (const MDMModuleInfo* pModule : modules)
            delete pModule;
    }
    std::string scan(const std::string& directory = "/mods") {
        return fakehost::printedBy([&] { sut.parseDirectory(modules, directory); });
    }
    std::list<std::string> types() const {
        std::list<std::string> result;
        for (const MDMModuleInfo* pModule : modules)
            result.push_back(pModule->getMFDriverType());
        return result;
    }
};

using Types = std::list<std::string>;

}  // namespace

TEST(MDMModuleParser, ReadsEveryAttributeIntoItsField) {
    Scan s;
    s.host.writeFile("/mods/axis.xml",
                     "<?xml version=\"1.0\"?>\n<!-- axes -->\n<mfDriverModule>\n"
                     "<module_type name=\"libAxis.so\" type=\"Axis\" description=\"moves\" version=\"1.0\""
                     " pdlFile=\"axis.pdl\" prefix=\"AX\"/>\n</mfDriverModule>\n");
    EXPECT_EQ(s.scan(), "");
    ASSERT_EQ(s.modules.size(), 1u);
    const MDMModuleInfo& module = *s.modules.front();
    EXPECT_EQ(module.getMFDriverFilename(), "libAxis.so");
    EXPECT_EQ(module.getMFDriverType(), "Axis");
    EXPECT_EQ(module.getMFDriverDirectory(), "/mods");
    EXPECT_EQ(module.getMfDriverDescription(), "moves");
    EXPECT_EQ(module.getMfDriverVersion(), "1.0");
    EXPECT_EQ(module.getMfDriverPDLFile(), "axis.pdl");
    EXPECT_EQ(module.getMfDriverPrefix(), "AX");
}

TEST(MDMModuleParser, ListsTheFilesBeforeItEntersTheDirectoryAndReturns) {
    Scan s;
    s.host.makeDirectory("/mods");
    s.scan();
    EXPECT_EQ(s.host.journal().linesOf({"files", "chdir"}),
              (std::vector<std::string>{"files /mods xml 0", "chdir /mods", "chdir /wp"}));
}

TEST(MDMModuleParser, RecordsKeepTheDirectoryAsItWasGiven) {
    Scan s;
    s.host.writeFile("/wp/mods/a.xml", "<mfDriverModule><module_type type=\"A\"/></mfDriverModule>");
    s.scan("mods/../mods//");
    ASSERT_EQ(s.modules.size(), 1u);
    EXPECT_EQ(s.modules.front()->getMFDriverDirectory(), "mods/../mods//");
}

TEST(MDMModuleParser, DirectoryWithoutXmlFilesLeavesListAndWorkingDirectory) {
    Scan s;
    s.host.writeFile("/mods/readme.txt", "nothing");
    EXPECT_EQ(s.scan(), "");
    EXPECT_TRUE(s.modules.empty());
    EXPECT_EQ(s.host.workingDirectory, "/wp");
    EXPECT_EQ(std::filesystem::current_path().string(), s.host.realPath("/wp"));
}

TEST(MDMModuleParser, DirectoryThatCannotBeEnteredAddsNothing) {
    Scan s;
    s.host.writeFile("/mods/a.xml", "<mfDriverModule><module_type type=\"A\"/></mfDriverModule>");
    s.host.fail("chdir /mods");
    EXPECT_EQ(s.scan(), "");
    EXPECT_TRUE(s.modules.empty());
    EXPECT_EQ(s.host.workingDirectory, "/wp");
}

TEST(MDMModuleParser, DirectoryThatDoesNotExistAddsNothing) {
    Scan s;
    EXPECT_EQ(s.scan("/nowhere"), "");
    EXPECT_TRUE(s.modules.empty());
}

TEST(MDMModuleParser, RootInAnotherCaseYieldsNothing) {
    Scan s;
    s.host.writeFile("/mods/a.xml", "<MfDriverModule><module_type type=\"A\"/></MfDriverModule>");
    EXPECT_EQ(s.scan(), "");
    EXPECT_TRUE(s.modules.empty());
}

TEST(MDMModuleParser, FirstElementDecidesWhetherAFileCounts) {
    Scan s;
    s.host.writeFile("/mods/a.xml", "<other/><mfDriverModule><module_type type=\"A\"/></mfDriverModule>");
    EXPECT_EQ(s.scan(), "");
    EXPECT_TRUE(s.modules.empty());
}

TEST(MDMModuleParser, FileWithoutAnElementIsSkippedSilently) {
    Scan s;
    s.host.writeFile("/mods/a.xml", "<!-- nothing -->");
    EXPECT_EQ(s.scan(), "");
    EXPECT_TRUE(s.modules.empty());
}

TEST(MDMModuleParser, EmptyEntryYieldsARecordWithTheDirectoryAlone) {
    Scan s;
    s.host.writeFile("/mods/a.xml", "<mfDriverModule><module_type/></mfDriverModule>");
    s.scan();
    ASSERT_EQ(s.modules.size(), 1u);
    const MDMModuleInfo& module = *s.modules.front();
    EXPECT_EQ(module.getMFDriverDirectory(), "/mods");
    EXPECT_EQ(module.getMFDriverFilename() + module.getMFDriverType() + module.getMfDriverDescription() +
                  module.getMfDriverVersion() + module.getMfDriverPDLFile() + module.getMfDriverPrefix(),
              "");
}

TEST(MDMModuleParser, UnknownAttributesAndOtherCasesAreIgnored) {
    Scan s;
    s.host.writeFile("/mods/a.xml",
                     "<mfDriverModule><module_type Type=\"X\" pdlfile=\"y\" color=\"z\" type=\"A\"/>"
                     "</mfDriverModule>");
    s.scan();
    ASSERT_EQ(s.modules.size(), 1u);
    EXPECT_EQ(s.modules.front()->getMFDriverType(), "A");
    EXPECT_EQ(s.modules.front()->getMfDriverPDLFile(), "");
}

TEST(MDMModuleParser, ElementsInsideAnEntryAreIgnored) {
    Scan s;
    s.host.writeFile("/mods/a.xml",
                     "<mfDriverModule><module_type type=\"A\"><module_type type=\"B\"/></module_type>"
                     "</mfDriverModule>");
    s.scan();
    EXPECT_EQ(s.types(), Types{"A"});
}

TEST(MDMModuleParser, CommentBetweenEntriesEndsTheFile) {
    Scan s;
    s.host.writeFile("/mods/a.xml",
                     "<mfDriverModule><module_type type=\"A\"/><!-- next --><module_type type=\"B\"/>"
                     "</mfDriverModule>");
    EXPECT_EQ(s.scan(), "");
    EXPECT_EQ(s.types(), Types{"A"});
}

TEST(MDMModuleParser, TextBetweenEntriesEndsTheFile) {
    Scan s;
    s.host.writeFile(
        "/mods/a.xml",
        "<mfDriverModule><module_type type=\"A\"/>and<module_type type=\"B\"/></mfDriverModule>");
    s.scan();
    EXPECT_EQ(s.types(), Types{"A"});
}

TEST(MDMModuleParser, ElementOfAnotherNameEndsTheFile) {
    Scan s;
    s.host.writeFile("/mods/a.xml",
                     "<mfDriverModule><module_type type=\"A\"/><note/><module_type type=\"B\"/>"
                     "</mfDriverModule>");
    s.scan();
    EXPECT_EQ(s.types(), Types{"A"});
}

TEST(MDMModuleParser, CommentBeforeTheFirstEntryEndsTheFile) {
    Scan s;
    s.host.writeFile("/mods/a.xml",
                     "<mfDriverModule><!-- first --><module_type type=\"A\"/></mfDriverModule>");
    s.scan();
    EXPECT_TRUE(s.modules.empty());
}

TEST(MDMModuleParser, BrokenFilePrintsOneErrorLineAndTheScanGoesOn) {
    Scan s;
    s.host.writeFile("/mods/a.xml", "<mfDriverModule><module_type type=\"A\"");
    s.host.writeFile("/mods/b.xml", "<mfDriverModule><module_type type=\"B\"/></mfDriverModule>");
    EXPECT_EQ(s.scan(), "error: Error parsing Element.\n");
    EXPECT_EQ(s.types(), Types{"B"});
}

TEST(MDMModuleParser, ErrorLineReachesAPipeAtOnce) {
    Scan s;
    s.host.writeFile("/mods/a.xml", "");
    std::string flushed;
    {
        const fakehost::StandardOutput output;
        s.sut.parseDirectory(s.modules, "/mods");
        flushed = output.flushed();
    }
    EXPECT_EQ(flushed, "error: Error document empty.\n");
}

TEST(MDMModuleParser, EmptyFilePrintsOneErrorLine) {
    Scan s;
    s.host.writeFile("/mods/a.xml", "");
    EXPECT_EQ(s.scan(), "error: Error document empty.\n");
}

TEST(MDMModuleParser, MissingFilePrintsOneErrorLineAndTheScanGoesOn) {
    Scan s;
    s.host.writeFile("/mods/b.xml", "<mfDriverModule><module_type type=\"B\"/></mfDriverModule>");
    s.host.fileLists["/mods"] = {"a.xml", "b.xml"};
    EXPECT_EQ(s.scan(), "error: Failed to open file\n");
    EXPECT_EQ(s.types(), Types{"B"});
}

TEST(MDMModuleParser, DirectoryInPlaceOfAFilePrintsOneErrorLineAndTheScanGoesOn) {
    Scan s;
    s.host.makeDirectory("/mods/a.xml");
    s.host.writeFile("/mods/b.xml", "<mfDriverModule><module_type type=\"B\"/></mfDriverModule>");
    s.host.fileLists["/mods"] = {"a.xml", "b.xml"};
    EXPECT_EQ(s.scan(), "error: Failed to open file\n");
    EXPECT_EQ(s.types(), Types{"B"});
}

TEST(MDMModuleParser, WorkingDirectoryIsRestoredBehindABrokenFile) {
    Scan s;
    s.host.writeFile("/mods/a.xml", "<mfDriverModule");
    s.scan();
    EXPECT_EQ(s.host.journal().linesOf({"chdir"}), (std::vector<std::string>{"chdir /mods", "chdir /wp"}));
    EXPECT_EQ(std::filesystem::current_path().string(), s.host.realPath("/wp"));
}

TEST(MDMModuleParser, DescriptorsAreReadWithoutALookAtTheirSignature) {
    Scan s;
    s.host.fail("verify");
    s.host.writeFile("/mods/a.xml", "<mfDriverModule><module_type type=\"A\"/></mfDriverModule>");
    s.scan();
    EXPECT_EQ(s.types(), Types{"A"});
    EXPECT_EQ(s.host.journal().linesOf({"verify", "log"}), std::vector<std::string>{});
}

TEST(MDMModuleParser, OneFileIsReadFromTheWorkingDirectoryWithTheDirectoryAsGiven) {
    Scan s;
    s.host.writeFile("/wp/a.xml", "<mfDriverModule><module_type type=\"A\"/></mfDriverModule>");
    s.sut.parseXML(s.modules, "elsewhere", "a.xml");
    ASSERT_EQ(s.modules.size(), 1u);
    EXPECT_EQ(s.modules.front()->getMFDriverDirectory(), "elsewhere");
    EXPECT_EQ(s.host.journal().linesOf({"chdir"}), std::vector<std::string>{});
}

TEST(MDMModuleParser, AttributeValuesAreTakenVerbatim) {
    Scan s;
    s.host.writeFile("/mods/a.xml",
                     "<mfDriverModule><module_type type=\" A  b \" description=\"Gr\xc3\xb6\xc3\x9f"
                     "e\"/>"
                     "</mfDriverModule>");
    s.scan();
    ASSERT_EQ(s.modules.size(), 1u);
    EXPECT_EQ(s.modules.front()->getMFDriverType(), " A  b ");
    EXPECT_EQ(s.modules.front()->getMfDriverDescription(),
              "Gr\xc3\xb6\xc3\x9f"
              "e");
}

TEST(MDMModuleParser, FilesAreReadInTheHostsOrderAndRecordsInDocumentOrder) {
    Scan s;
    s.host.writeFile("/mods/a.xml",
                     "<mfDriverModule><module_type type=\"A2\"/><module_type type=\"A1\"/></mfDriverModule>");
    s.host.writeFile("/mods/b.xml", "<mfDriverModule><module_type type=\"B\"/></mfDriverModule>");
    s.host.fileLists["/mods"] = {"b.xml", "a.xml"};
    s.scan();
    EXPECT_EQ(s.types(), (Types{"B", "A2", "A1"}));
}

TEST(MDMModuleParser, SameTypeAndVersionTwiceGivesTwoRecords) {
    Scan s;
    s.host.writeFile("/mods/a.xml",
                     "<mfDriverModule><module_type type=\"A\"/><module_type type=\"A\"/></mfDriverModule>");
    s.scan();
    EXPECT_EQ(s.types(), (Types{"A", "A"}));
}

TEST(MDMModuleParser, SecondScanAppends) {
    Scan s;
    s.host.writeFile("/mods/a.xml", "<mfDriverModule><module_type type=\"A\"/></mfDriverModule>");
    s.scan();
    s.scan();
    EXPECT_EQ(s.types(), (Types{"A", "A"}));
}

TEST(MDMModuleParser, NullNodeIsRefusedAndAddsNothing) {
    Scan s;
    EXPECT_FALSE(s.sut.parseModuleType(s.modules, nullptr, "/mods"));
    EXPECT_TRUE(s.modules.empty());
}

TEST(MDMModuleParser, ElementGivenDirectlyIsAppended) {
    Scan s;
    TiXmlElement element("module_type");
    element.SetAttribute("type", "A");
    EXPECT_TRUE(s.sut.parseModuleType(s.modules, &element, "/mods"));
    EXPECT_EQ(s.types(), Types{"A"});
}

TEST(MDMModuleParser, BrokenFileIsReportedWithFormattedPrinting) {
    Scan s;
    s.host.writeFile("/mods/a.xml", "<mfDriverModule");
    std::string streamed;
    const std::string printed = fakehost::printedBy([&] {
        std::ostringstream stream;
        std::streambuf* pFormer = std::cout.rdbuf(stream.rdbuf());
        s.sut.parseDirectory(s.modules, "/mods");
        std::cout.rdbuf(pFormer);
        streamed = stream.str();
    });
    EXPECT_EQ(printed, "error: Failed to read Element name\n");
    EXPECT_EQ(streamed, "");
}

TEST(MDMModuleParser, EachBrokenFilePrintsALineAndNothingIsLogged) {
    Scan s;
    s.host.writeFile("/mods/a.xml", "");
    s.host.writeFile("/mods/b.xml", "<mfDriverModule");
    EXPECT_EQ(s.scan(), "error: Error document empty.\nerror: Failed to read Element name\n");
    EXPECT_EQ(s.host.journal().lines(),
              (std::vector<std::string>{"files /mods xml 0", "chdir /mods", "chdir /wp"}));
}

TEST(MDMModuleParser, BrokenFileYieldsNoneOfItsEntries) {
    Scan s;
    s.host.writeFile("/mods/a.xml", "<mfDriverModule><module_type type=\"A\"/><module_type type=\"B\"");
    s.scan();
    EXPECT_TRUE(s.modules.empty());
}

TEST(MDMModuleParser, EntryInAnotherCaseEndsTheFile) {
    Scan s;
    s.host.writeFile("/mods/a.xml",
                     "<mfDriverModule><module_type type=\"A\"/><Module_type type=\"B\"/>"
                     "<module_type type=\"C\"/></mfDriverModule>");
    EXPECT_EQ(s.scan(), "");
    EXPECT_EQ(s.types(), Types{"A"});
}

TEST(MDMModuleParser, UnexpectedNodeEndsItsOwnFileAlone) {
    Scan s;
    s.host.writeFile("/mods/a.xml",
                     "<mfDriverModule><!-- none --><module_type type=\"A\"/></mfDriverModule>");
    s.host.writeFile("/mods/b.xml", "<mfDriverModule><module_type type=\"B\"/></mfDriverModule>");
    s.scan();
    EXPECT_EQ(s.types(), Types{"B"});
}

TEST(MDMModuleParser, AttributesOfTheRootAndFurtherRootsAreIgnored) {
    Scan s;
    s.host.writeFile("/mods/a.xml",
                     "<!DOCTYPE mfDriverModule><mfDriverModule type=\"X\"><module_type type=\"A\"/>"
                     "</mfDriverModule><mfDriverModule><module_type type=\"B\"/></mfDriverModule>");
    EXPECT_EQ(s.scan(), "");
    EXPECT_EQ(s.types(), Types{"A"});
}

TEST(MDMModuleParser, RootWithoutEntriesYieldsNothing) {
    Scan s;
    s.host.writeFile("/mods/a.xml", "<mfDriverModule/>");
    EXPECT_EQ(s.scan(), "");
    EXPECT_TRUE(s.modules.empty());
}

TEST(MDMModuleParser, NoFileIsReadWhenTheDirectoryCannotBeEntered) {
    Scan s;
    s.host.writeFile("/mods/a.xml", "<broken");
    s.host.writeFile("/wp/a.xml", "<mfDriverModule><module_type type=\"A\"/></mfDriverModule>");
    s.host.fail("chdir /mods");
    EXPECT_EQ(s.scan(), "");
    EXPECT_EQ(s.host.journal().lines(), (std::vector<std::string>{"files /mods xml 0", "chdir /mods"}));
}

TEST(MDMModuleParser, DirectoryStringIsHandedOnUnchangedToListAndChange) {
    Scan s;
    s.host.makeDirectory("/wp/mods");
    s.scan("mods/./");
    EXPECT_EQ(s.host.journal().linesOf({"files", "chdir"}),
              (std::vector<std::string>{"files mods/./ xml 0", "chdir mods/./", "chdir /wp"}));
}

TEST(MDMModuleParser, EntryGivenDirectlyTakesTheDirectoryAsGiven) {
    Scan s;
    TiXmlElement element("anything");
    EXPECT_TRUE(s.sut.parseModuleType(s.modules, &element, "some/where/"));
    ASSERT_EQ(s.modules.size(), 1u);
    EXPECT_EQ(s.modules.front()->getMFDriverDirectory(), "some/where/");
}

TEST(MDMModuleParser, RecordsAreAppendedBehindThoseThatStandInTheList) {
    Scan s;
    auto* pFirst = new MDMModuleInfo;
    s.modules.push_back(pFirst);
    s.host.writeFile("/mods/a.xml", "<mfDriverModule><module_type type=\"A\"/></mfDriverModule>");
    s.scan();
    EXPECT_EQ(s.types(), (Types{"", "A"}));
    EXPECT_EQ(s.modules.front(), pFirst);
}

TEST(MDMModuleParser, HasAVirtualDestructor) {
    EXPECT_TRUE(std::has_virtual_destructor_v<MDMModuleParser>);
}
