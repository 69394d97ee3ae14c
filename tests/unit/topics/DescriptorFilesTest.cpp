#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <list>
#include <sstream>

#include "FakeHost.h"
#include "FileCases.h"
#include "MDMModuleInfo.h"
#include "MDMModuleParser.h"
#include "StandardOutput.h"
#include "WithoutCapabilities.h"

// Each file of tests/data/files/descriptor, and all that a scan makes of it: every field of every record,
// what it prints, and the host's calls.

namespace {

using Texts = std::vector<std::string>;

// A record is written as its file name, type, description, version, PDL file and prefix with "|" between
// them; a word without "|" is a record of that type alone.
struct File {
    const char* name;
    Texts records;
    std::string printed;
};

std::ostream& operator<<(std::ostream& stream, const File& file) {
    return stream << file.name;
}

File yields(const char* name, Texts records) {
    return {name, std::move(records), {}};
}

/// Cannot be loaded; the library says why.
File broken(const char* name, const std::string& reason) {
    return {name, {}, "error: " + reason + "\n"};
}

Texts hundred() {
    Texts records;
    for (int number = 0; number < 100; ++number)
        records.push_back("T" + std::to_string(number));
    return records;
}

const std::vector<File> g_files{
    // Attributes.
    yields("all-attributes", {"libAxis.so|Axis|moves|1.0|axis.pdl|AX"}),
    yields("attributes-in-another-order", {"libAxis.so|Axis|moves|1.0|axis.pdl|AX"}),
    yields("without-name", {"|Axis|moves|1.0|axis.pdl|AX"}),
    yields("without-type", {"libAxis.so||moves|1.0|axis.pdl|AX"}),
    yields("without-description", {"libAxis.so|Axis||1.0|axis.pdl|AX"}),
    yields("without-version", {"libAxis.so|Axis|moves||axis.pdl|AX"}),
    yields("without-pdl-file", {"libAxis.so|Axis|moves|1.0||AX"}),
    yields("without-prefix", {"libAxis.so|Axis|moves|1.0|axis.pdl|"}),
    yields("no-attributes", {"|||||"}),
    yields("empty-values", {"|||||"}),
    yields("unknown-attributes", {"A"}),
    yields("blanks-in-values", {"|  A  b\t|| 1.0 ||"}),
    yields("single-quotes", {"|A|\"moves\"|||"}),
    yields("value-without-quotes", {"A"}),
    // Entries.
    yields("several-entries", {"A", "B", "C"}),
    yields("same-entry-twice", {"A", "A"}),
    yields("hundred-entries", hundred()),
    yields("entry-of-two-tags", {"A", "B"}),
    yields("entries-in-an-entry", {"A", "C"}),
    yields("comment-in-an-entry", {"A", "B"}),
    yields("text-in-an-entry", {"A", "B"}),
    yields("line-ends-of-two-bytes", {"A", "B"}),
    yields("nested-100-levels", {"A", "B"}),
    // What is no entry ends the file without a word; what was read before stays.
    yields("comment-before-the-first-entry", {}),
    yields("comment-between-entries", {"A"}),
    yields("comment-behind-the-last-entry", {"A", "B"}),
    yields("text-between-entries", {"A"}),
    yields("character-data-between-entries", {"A"}),
    yields("document-type-between-entries", {"A"}),
    yields("declaration-between-entries", {"A"}),
    yields("other-element-between-entries", {"A"}),
    yields("entry-in-another-case", {"A"}),
    // The root.
    yields("nodes-before-the-root", {"A"}),
    yields("comment-behind-the-root", {"A"}),
    yields("text-behind-the-root", {"A"}),
    yields("second-root", {"A"}),
    yields("empty-root", {}),
    yields("wrong-root", {}),
    yields("root-in-another-case", {}),
    yields("right-root-behind-a-wrong-one", {}),
    yields("right-root-in-a-wrong-one", {}),
    yields("comment-only", {}),
    yields("declaration-only", {}),
    yields("end-tag-first", {}),
    // Encodings and entities.
    yields("byte-order-mark", {"A"}),
    yields("utf-8", {"Fr\xc3\xa4se"}),
    yields("latin-1-declared", {"Fr\xe4se"}),
    yields("latin-1-undeclared", {"Fr\xe4se"}),
    broken("utf-16-little-endian", "Error document empty."),
    broken("utf-16-big-endian", "Error document empty."),
    yields("known-entities", {"&<>\"'"}),
    yields("numeric-entities", {"AB"}),
    yields("numeric-entity-beyond-ascii", {"\xc3\xa4"}),
    // The library drops the "&" of what is no entity.
    yields("unknown-entity", {"Acopy;B"}),
    broken("zero-byte", "Error reading end tag."),
    broken("binary", "Error document empty."),
    // Files that cannot be loaded yield nothing, not even what stands before the fault.
    broken("empty", "Error document empty."),
    broken("white-space-only", "Error document empty."),
    broken("text-only", "Error document empty."),
    broken("repeated-attribute", "Error parsing Element."),
    broken("repeated-unknown-attribute", "Error parsing Element."),
    broken("open-tag", "Error parsing Element."),
    broken("open-value", "Error parsing Element."),
    broken("open-root", "Error reading end tag."),
    broken("root-without-end", "Error reading end tag."),
    broken("open-entry", "Error reading end tag."),
    broken("crossed-tags", "Error reading end tag."),
    broken("open-comment", "Error reading Element value."),
    broken("attribute-without-value", "Error reading Attributes."),
    broken("entry-behind-broken-markup", "Error reading Attributes."),
};

// Files that are made where they are needed: large ones, and places that are no files.
class DescriptorFilesMade : public testing::Test {
protected:
    ~DescriptorFilesMade() override {
        for (const MDMModuleInfo* pModule : m_modules)
            delete pModule;
    }

    std::string scan() {
        return fakehost::printedBy([&] { m_sut.parseDirectory(m_modules, "/mods"); });
    }

    /// The records, with the directory before each.
    Texts records() const {
        Texts result;
        for (const MDMModuleInfo* pModule : m_modules)
            result.push_back(pModule->getMFDriverDirectory() + ": " + pModule->getMFDriverFilename() + "|" +
                             pModule->getMFDriverType() + "|" + pModule->getMfDriverDescription() + "|" +
                             pModule->getMfDriverVersion() + "|" + pModule->getMfDriverPDLFile() + "|" +
                             pModule->getMfDriverPrefix());
        return result;
    }

    fakehost::FakeHost m_host;
    MDMModuleParser m_sut;
    std::list<MDMModuleInfo*> m_modules;
};

class DescriptorFiles : public DescriptorFilesMade, public testing::WithParamInterface<File> {};

}  // namespace

TEST_P(DescriptorFiles, ScanYieldsTheseRecordsAndPrintsThisAndNothingElse) {
    m_host.writeFile("/mods/b.xml", fileCase("descriptor", GetParam().name));
    m_host.writeFile("/mods/a.xml", "<mfDriverModule><module_type type=\"first\"/></mfDriverModule>");
    m_host.writeFile("/mods/c.xml", "<mfDriverModule><module_type type=\"last\"/></mfDriverModule>");
    EXPECT_EQ(scan(), GetParam().printed);

    Texts expected{"/mods: |first||||"};
    for (const std::string& record : GetParam().records)
        expected.push_back("/mods: " +
                           (record.find('|') == std::string::npos ? "|" + record + "||||" : record));
    expected.push_back("/mods: |last||||");
    EXPECT_EQ(records(), expected);
    EXPECT_EQ(m_host.journal().lines(), (Texts{"files /mods xml 0", "chdir /mods", "chdir /wp"}));
}

INSTANTIATE_TEST_SUITE_P(, DescriptorFiles, testing::ValuesIn(g_files),
                         [](const auto& test) { return fileTestName(test.param.name); });

TEST(DescriptorFilesList, HoldsEveryFileOfTheFolder) {
    expectHoldsEveryFile(g_files, "descriptor");
}

TEST_F(DescriptorFilesMade, EveryEntryOfAFileOfTenMegabytesIsRead) {
    std::string text = "<mfDriverModule>\n";
    std::size_t count = 0;
    const std::string description(1000, 'd');
    for (; text.size() < 10'000'000; ++count)
        text +=
            "<module_type type=\"T" + std::to_string(count) + "\" description=\"" + description + "\"/>\n";
    m_host.writeFile("/mods/a.xml", text + "</mfDriverModule>\n");
    EXPECT_EQ(scan(), "");
    ASSERT_EQ(m_modules.size(), count);
    EXPECT_EQ(m_modules.back()->getMFDriverType(), "T" + std::to_string(count - 1));
}

TEST_F(DescriptorFilesMade, UnreadableFileIsReportedAndTheScanGoesOn) {
    const WithoutCapabilities without({CAP_DAC_OVERRIDE, CAP_DAC_READ_SEARCH});
    ASSERT_FALSE(WithoutCapabilities::has(CAP_DAC_OVERRIDE) || WithoutCapabilities::has(CAP_DAC_READ_SEARCH));
    m_host.writeFile("/mods/a.xml", "<mfDriverModule><module_type type=\"A\"/></mfDriverModule>");
    m_host.writeFile("/mods/b.xml", "<mfDriverModule><module_type type=\"B\"/></mfDriverModule>");
    const std::string path = m_host.realPath("/mods/a.xml");
    std::filesystem::permissions(path, std::filesystem::perms::none);
    if (std::ifstream(path).is_open())
        GTEST_SKIP() << "this file system lets everybody read";
    EXPECT_EQ(scan(), "error: Failed to open file\n");
    EXPECT_EQ(records(), Texts{"/mods: |B||||"});
}

TEST_F(DescriptorFilesMade, LinkThatLeadsNowhereIsReportedAndTheScanGoesOn) {
    m_host.writeFile("/mods/b.xml", "<mfDriverModule><module_type type=\"B\"/></mfDriverModule>");
    std::filesystem::create_symlink("nowhere.xml", m_host.realPath("/mods/a.xml"));
    m_host.fileLists["/mods"] = {"a.xml", "b.xml"};
    EXPECT_EQ(scan(), "error: Failed to open file\n");
    EXPECT_EQ(records(), Texts{"/mods: |B||||"});
}

TEST_F(DescriptorFilesMade, FileThatTheHostNamesButThatIsGoneIsReported) {
    m_host.makeDirectory("/mods");
    m_host.fileLists["/mods"] = {"gone.xml"};
    EXPECT_EQ(scan(), "error: Failed to open file\n");
    EXPECT_EQ(m_host.journal().lines(), (Texts{"files /mods xml 0", "chdir /mods", "chdir /wp"}));
}
