#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>

#include "FakeHost.h"
#include "FileCases.h"
#include "MDMFidDistributor.h"
#include "MDMModuleHandler.h"
#include "RecordingDriver.h"
#include "RecordingSystem.h"
#include "StandardOutput.h"
#include "WithoutCapabilities.h"

// Each file of tests/data/files/workplace, and all that the module makes of it: the calls of a start and of a
// reload, one by one, and every line.

namespace {

using Calls = std::vector<std::string>;

// What a file leads to, entry by entry:
//   "-"            passed over: no module has this type and version
//   "A"            prepared: directories and link, but nothing to load
//   "A@3"          loaded into the host for workplace 3
//   "log ..."      a line of the log
//   anything else  the call itself
struct File {
    const char* name;
    bool isLoaded;  ///< by the XML library
    bool result;    ///< of the start
    Calls effects;
};

std::ostream& operator<<(std::ostream& stream, const File& file) {
    return stream << file.name;
}

const char* const g_emptyDocument = "Error document empty.";
const char* const g_parseError = "log MDM 2: Parse error in \"workplace.xml\" line ";
const char* const g_idError = "log MDM 2: Workplace ID missing or invalid in \"workplace.xml\" line ";

File starts(const char* name, Calls effects) {
    return {name, true, true, std::move(effects)};
}

/// A fault of the walk on that line, behind these entries.
File faulty(const char* name, int line, Calls effects = {}) {
    effects.push_back(g_parseError + std::to_string(line));
    return {name, true, false, std::move(effects)};
}

File wrongId(const char* name, int line, Calls effects = {}) {
    effects.push_back(g_idError + std::to_string(line));
    return {name, true, false, std::move(effects)};
}

/// Cannot be loaded; the library says why.
File broken(const char* name, const std::string& reason) {
    return {name, false, true, {"log MDM 2: Failed to open \"workplace.xml\" ('" + reason + "')"}};
}

const std::vector<File> g_files{
    // What the format allows.
    starts("one-driver", {"A"}),
    starts("direct-driver", {"A@3"}),
    starts("two-workplaces", {"A", "B", "C"}),
    starts("ids-from-0-to-7", {"D0@0", "D1@1", "D2@2", "D3@3", "D4@4", "D5@5", "D6@6", "D7@7"}),
    starts("empty-root", {}),
    starts("empty-root-of-two-tags", {}),
    starts("empty-workplace", {}),
    starts("nodes-before-the-root", {"A"}),
    starts("declaration-in-line-2", {"A"}),
    starts("comment-behind-the-root", {"A"}),
    starts("text-behind-the-root", {"A"}),
    starts("second-root", {"A"}),
    starts("second-workplaces", {"A"}),
    starts("single-quotes", {"A"}),
    starts("value-without-quotes", {"A"}),
    starts("blanks-round-equals-signs", {"A"}),
    starts("all-attributes",
           {"adapter list", "adapter open eth0", "mkdir /wp/data/A", "mkdir /wp/nvram/A",
            "symlink /wp/data/A -> /var/data/A replace", "adapter open eth0",
            "adapter add eth0 192.0.2.11 255.255.255.0", "module load 0 /mods/libAxis.so",
            "module query /mods/libAxis.so 1201", "module query /mods/libAxis.so 1100",
            "driver setPanelStateInterface", "driver setSystemInterface",
            "driver setConfiguration 7 [A] [data/A] [192.0.2.11] [eth0] [192.0.2.10] [/wp/nvram/A]",
            "driver initializationCompleted"}),
    // What stands in an entry, or in other elements, is none of the module's business.
    starts("comment-in-a-driver-entry", {"A", "B"}),
    starts("text-in-a-driver-entry", {"A", "B"}),
    starts("character-data-in-a-driver-entry", {"A", "B"}),
    starts("driver-in-a-driver-entry", {"A", "C"}),
    starts("drivers-in-ports", {"A", "C"}),
    starts("ports-in-another-case", {"A"}),
    starts("ports-with-a-drivers-attributes", {"A"}),
    starts("unknown-elements-in-a-workplace", {"A", "C"}),
    starts("workplace-in-a-workplace", {"A"}),
    starts("driver-entry-in-another-case", {"A"}),
    starts("nested-100-levels", {"A"}),
    // Attributes.
    starts("unknown-attributes", {"A"}),
    starts("id-behind-other-attributes", {"A@5"}),
    starts("driver-id-behind-other-attributes", {"A", "B"}),
    starts("interface-types-in-other-words", {"A", "B", "C", "D"}),
    starts("interface-type-socket", {"A"}),
    starts("attribute-names-in-another-case",
           {"adapter list", "adapter open eth0", "mkdir /wp/data/A", "mkdir /wp/nvram",
            "symlink /wp/data/A -> /var/data replace", "adapter list", "adapter open eth0"}),
    starts("entry-without-driver-id",
           {"adapter list", "adapter open eth0", "mkdir /wp/data/A", "mkdir /wp/nvram",
            "symlink /wp/data/A -> /var/data replace", "adapter list", "adapter open eth0"}),
    starts("entry-without-working-directory",
           {"adapter list", "adapter open eth0", "mkdir /wp", "mkdir /wp/nvram/A",
            "symlink /wp -> /var/data/A replace", "adapter list", "adapter open eth0"}),
    starts("entry-without-attributes", {"-", "A"}),
    starts("entry-without-driver-type", {"-", "A"}),
    starts("entry-without-version", {"-", "A"}),
    starts("type-and-version-in-other-bytes", {"-", "-", "-", "A"}),
    // Numbers of workplaces.
    starts("id-word", {"A@0"}),
    starts("id-empty", {"A@0"}),
    starts("id-behind-blanks", {"A@3"}),
    starts("id-before-letters", {"A@3"}),
    starts("id-hexadecimal", {"A@0"}),
    starts("id-with-a-sign", {"A@7"}),
    starts("id-with-zeros", {"A@7"}),
    starts("id-with-a-fraction", {"A@6"}),
    wrongId("id-8", 5, {"A"}),
    wrongId("id-minus-1", 5, {"A"}),
    wrongId("id-large", 5, {"A"}),
    wrongId("workplace-without-attributes", 6, {"A"}),
    wrongId("workplace-without-id", 2),
    wrongId("id-in-another-case", 4),
    // Faults; the line is that of the node, inside a workplace that of the workplace.
    faulty("comment-in-workplaces", 6, {"A"}),
    faulty("comment-before-the-first-workplace", 2),
    faulty("text-in-workplaces", 6, {"A"}),
    faulty("character-data-in-workplaces", 5, {"A"}),
    faulty("document-type-in-workplaces", 6, {"A"}),
    faulty("declaration-in-workplaces", 3),
    faulty("other-element-in-workplaces", 5, {"A"}),
    faulty("driver-in-workplaces", 2),
    faulty("workplace-in-another-case", 2),
    faulty("ports-in-workplaces", 3),
    faulty("comment-in-a-workplace", 3, {"A"}),
    faulty("text-in-a-workplace", 3, {"A"}),
    faulty("character-data-in-a-workplace", 2, {"A"}),
    faulty("document-type-in-a-workplace", 2),
    faulty("comment-behind-ports", 2),
    wrongId("two-faults", 5, {"A"}),
    faulty("wrong-root", 4),
    faulty("root-in-another-case", 1),
    faulty("right-root-behind-a-wrong-one", 1),
    faulty("comment-only", -1),
    faulty("declaration-only", -1),
    faulty("end-tag-first", -1),
    faulty("line-ends-of-two-bytes", 5, {"A"}),
    faulty("line-ends-of-one-carriage-return", 5, {"A"}),
    faulty("tabs-before-a-fault", 5, {"A"}),
    faulty("fault-in-line-1", 1),
    faulty("fault-in-line-1002", 1002),
    faulty("fault-behind-a-long-comment", 8),
    // Encodings: the bytes reach the drivers as they are.
    starts("byte-order-mark", {"A"}),
    faulty("byte-order-mark-before-a-fault", 2),
    broken("byte-order-mark-only", g_emptyDocument),
    starts("utf-8", {"Fr\xc3\xa4se"}),
    starts("utf-8-undeclared", {"Fr\xc3\xa4se"}),
    starts("latin-1-declared", {"Fr\xe4se"}),
    starts("latin-1-undeclared", {"Fr\xe4se"}),
    starts("unknown-encoding-declared", {"A"}),
    broken("utf-16-little-endian", g_emptyDocument),
    broken("utf-16-big-endian", g_emptyDocument),
    faulty("utf-16-without-a-mark", -1),
    broken("zero-byte", "Error reading end tag."),
    starts("zero-byte-behind-the-root", {"A"}),
    broken("binary", g_emptyDocument),
    // Entities.
    starts("known-entities",
           {"adapter list", "adapter open eth0", "mkdir /wp/data", "mkdir /wp/nvram/A&B<C>D\"E'F",
            "symlink /wp/data -> /var/data/A&B<C>D\"E'F replace", "adapter list", "adapter open eth0"}),
    starts("numeric-entities",
           {"adapter list", "adapter open eth0", "mkdir /wp/data", "mkdir /wp/nvram/ABc",
            "symlink /wp/data -> /var/data/ABc replace", "adapter list", "adapter open eth0"}),
    starts("numeric-entity-beyond-ascii",
           {"adapter list", "adapter open eth0", "mkdir /wp/data", "mkdir /wp/nvram/\xc3\xa4",
            "symlink /wp/data -> /var/data/\xc3\xa4 replace", "adapter list", "adapter open eth0"}),
    starts("numeric-entity-beyond-ascii-in-latin-1",
           {"adapter list", "adapter open eth0", "mkdir /wp/data", "mkdir /wp/nvram/\xe4",
            "symlink /wp/data -> /var/data/\xe4 replace", "adapter list", "adapter open eth0"}),
    // The library drops the "&" of what is no entity.
    starts("unknown-entity",
           {"adapter list", "adapter open eth0", "mkdir /wp/data", "mkdir /wp/nvram/Acopy;B",
            "symlink /wp/data -> /var/data/Acopy;B replace", "adapter list", "adapter open eth0"}),
    starts("lone-ampersand",
           {"adapter list", "adapter open eth0", "mkdir /wp/data", "mkdir /wp/nvram/A  B",
            "symlink /wp/data -> /var/data/A  B replace", "adapter list", "adapter open eth0"}),
    faulty("line-end-in-a-value", 3,
           {"adapter list", "adapter open eth0", "mkdir /wp/data", "mkdir /wp/nvram/A\nB",
            "symlink /wp/data -> /var/data/A\nB replace", "adapter list", "adapter open eth0"}),
    // Files that cannot be loaded.
    broken("empty", g_emptyDocument),
    broken("white-space-only", g_emptyDocument),
    broken("text-only", g_emptyDocument),
    broken("text-before-the-root", g_emptyDocument),
    broken("repeated-driver-attribute", "Error parsing Element."),
    broken("repeated-unknown-attribute", "Error parsing Element."),
    broken("repeated-id", "Error parsing Element."),
    broken("open-tag", "Error parsing Element."),
    broken("open-value", "Error parsing Element."),
    broken("open-root", "Error reading end tag."),
    broken("open-workplace", "Error reading end tag."),
    broken("crossed-tags", "Error reading end tag."),
    broken("end-tag-in-another-case", "Error reading end tag."),
    broken("open-comment", "Error reading Element value."),
    broken("open-character-data", "Error reading Element value."),
    broken("attribute-without-value", "Error reading Attributes."),
    broken("attribute-without-name", "Error reading Attributes."),
};

/// The calls behind one effect.
Calls spelledOut(const std::string& effect) {
    const Calls virtualPanel{"adapter list", "adapter open eth0"};
    if (effect == "-")
        return virtualPanel;
    if (effect.find(' ') != std::string::npos)
        return {effect};
    const std::size_t at = effect.find('@');
    const std::string id = effect.substr(0, at);
    Calls calls = virtualPanel;
    calls.insert(calls.end(), {"mkdir /wp/data/" + id, "mkdir /wp/nvram/" + id,
                               "symlink /wp/data/" + id + " -> /var/data/" + id + " replace", "adapter list",
                               "adapter open eth0"});
    if (at != std::string::npos) {
        const std::string workplace = effect.substr(at + 1);
        calls.insert(calls.end(), {"module load 0 /mods/libAxis.so", "module query /mods/libAxis.so 1201",
                                   "module query /mods/libAxis.so 1100", "driver setPanelStateInterface",
                                   "driver setSystemInterface",
                                   "driver setConfiguration " + workplace + " [" + id + "] [data/" + id +
                                       "] [192.0.2.10] [eth0] [192.0.2.10] [/wp/nvram/" + id + "]",
                                   "driver initializationCompleted"});
    }
    return calls;
}

// Files that are made where they are needed: large ones, and places that are no files.
class WorkplaceFilesMade : public testing::Test {
protected:
    WorkplaceFilesMade() {
        m_distributor.setSystemInterface(&m_system);
        m_pSut->init();
        m_pSut->setFidDistributor(&m_distributor);
        m_host.writeFile("/mods/axis.xml",
                         "<mfDriverModule><module_type name=\"libAxis.so\" type=\"Axis\" version=\"1.0\"/>"
                         "</mfDriverModule>");
        m_host.addModule("/mods/libAxis.so", []() -> IInterface* {
            return static_cast<IFunctionID*>(new RecordingDriver("driver"));
        });
        m_pSut->searchMfDriver("/mods");
        m_host.journal().clear();
    }
    ~WorkplaceFilesMade() override {
        fakehost::printedBy([&] { m_pSut.reset(); });
    }

    bool start() {
        bool result = false;
        m_printed = fakehost::printedBy([&] { result = m_pSut->startMfDrivers("workplace.xml"); });
        return result;
    }

    fakehost::FakeHost m_host;
    RecordingSystem m_system;
    MDMFidDistributor m_distributor;
    std::unique_ptr<MDMModuleHandler> m_pSut = std::make_unique<MDMModuleHandler>();
    std::string m_printed;
};

class WorkplaceFiles : public WorkplaceFilesMade, public testing::WithParamInterface<File> {
protected:
    void write() { m_host.writeFile("/wp/workplace.xml", fileCase("workplace", GetParam().name)); }
};

std::vector<File> faultyFiles() {
    std::vector<File> files;
    for (const File& file : g_files)
        if (!file.result || !file.isLoaded)
            files.push_back(file);
    return files;
}

class WorkplaceFilesWithAFault : public WorkplaceFiles {};

}  // namespace

TEST_P(WorkplaceFiles, StartMakesTheseCallsAndLogsTheseLinesAndNoOthers) {
    write();
    EXPECT_EQ(start(), GetParam().result);

    Calls expected{"adapter list", "adapter open eth0"};
    if (GetParam().isLoaded)
        expected.insert(expected.end(),
                        {"verify workplace.xml", "entries /var/data 0", "mkdir /wp/data/PANEL",
                         "symlink /wp/data/PANEL -> /var/data/PANEL replace"});
    std::string printed;
    for (const std::string& effect : GetParam().effects) {
        const Calls calls = spelledOut(effect);
        expected.insert(expected.end(), calls.begin(), calls.end());
        for (const std::string& call : calls)
            if (call.starts_with("driver setConfiguration ")) {
                const std::size_t at = call.find('[') + 1;
                printed += "Loading MF driver /mods/libAxis.so (ID: " + call.substr(at, call.find(']') - at) +
                           ")...OK\n";
            }
    }
    EXPECT_EQ(m_host.journal().lines(), expected);
    EXPECT_EQ(m_printed, printed);
}

INSTANTIATE_TEST_SUITE_P(, WorkplaceFiles, testing::ValuesIn(g_files),
                         [](const auto& test) { return fileTestName(test.param.name); });

// A reload of a driver that is not in the file goes through all of it and meets the fault that a start meets.
TEST_P(WorkplaceFilesWithAFault, ReloadLogsTheLineOfTheStartAndDoesNothing) {
    m_host.writeFile("/wp/workplace.xml", "<workplaces/>");
    start();
    write();
    m_host.journal().clear();
    bool result = true;
    EXPECT_EQ(fakehost::printedBy([&] { result = m_pSut->reloadMfDriver("NOBODY"); }), "");
    EXPECT_FALSE(result);
    Calls expected;
    if (GetParam().isLoaded)
        expected.push_back("verify workplace.xml");
    expected.push_back(GetParam().effects.back());
    EXPECT_EQ(m_host.journal().lines(), expected);
}

INSTANTIATE_TEST_SUITE_P(, WorkplaceFilesWithAFault, testing::ValuesIn(faultyFiles()),
                         [](const auto& test) { return fileTestName(test.param.name); });

TEST(WorkplaceFilesList, HoldsEveryFileOfTheFolder) {
    expectHoldsEveryFile(g_files, "workplace");
}

TEST_F(WorkplaceFilesMade, FaultInAFileOfTenMegabytesIsNamedWithItsLine) {
    std::string text = "<workplaces>\n<workplace id=\"0\">\n";
    const std::string ports = "<ports><socket number=\"1\"/></ports>\n";
    int line = 3;
    for (; text.size() < 10'000'000; ++line)
        text += ports;
    m_host.writeFile("/wp/workplace.xml", text + "</workplace>\n<desk/>\n</workplaces>\n");
    EXPECT_FALSE(start());
    EXPECT_EQ(m_host.journal().linesOf({"log"}), Calls{g_parseError + std::to_string(line + 1)});
}

TEST_F(WorkplaceFilesMade, UnreadableFileIsOneThatCannotBeLoaded) {
    const WithoutCapabilities without({CAP_DAC_OVERRIDE, CAP_DAC_READ_SEARCH});
    ASSERT_FALSE(WithoutCapabilities::has(CAP_DAC_OVERRIDE) || WithoutCapabilities::has(CAP_DAC_READ_SEARCH));
    m_host.writeFile("/wp/workplace.xml", "<workplaces/>");
    const std::string path = m_host.realPath("/wp/workplace.xml");
    std::filesystem::permissions(path, std::filesystem::perms::none);
    if (std::ifstream(path).is_open())
        GTEST_SKIP() << "this file system lets everybody read";
    EXPECT_TRUE(start());
    EXPECT_EQ(m_host.journal().lines(),
              (Calls{"adapter list", "adapter open eth0",
                     "log MDM 2: Failed to open \"workplace.xml\" ('Failed to open file')"}));
}

TEST_F(WorkplaceFilesMade, LinkThatLeadsNowhereIsAFileThatCannotBeLoaded) {
    std::filesystem::create_symlink("nowhere.xml", m_host.realPath("/wp/workplace.xml"));
    EXPECT_TRUE(start());
    EXPECT_EQ(m_host.journal().linesOf({"log", "verify"}),
              Calls{"log MDM 2: Failed to open \"workplace.xml\" ('Failed to open file')"});
}

TEST_F(WorkplaceFilesMade, FileIsReadThroughALink) {
    m_host.writeFile("/wp/real.xml", "<workplaces>\n<desk/>\n</workplaces>\n");
    std::filesystem::create_symlink("real.xml", m_host.realPath("/wp/workplace.xml"));
    EXPECT_FALSE(start());
    EXPECT_EQ(m_host.journal().linesOf({"log"}), Calls{g_parseError + std::to_string(2)});
}

TEST_F(WorkplaceFilesMade, FileThatWasMendedIsReadAnewByAReload) {
    m_host.writeFile("/wp/workplace.xml", "<workplaces>\n<desk/>\n</workplaces>\n");
    EXPECT_FALSE(start());
    m_host.writeFile("/wp/workplace.xml", fileCase("workplace", "one-driver"));
    m_host.journal().clear();
    EXPECT_TRUE(m_pSut->reloadMfDriver("A"));
    Calls expected{"verify workplace.xml"};
    for (const std::string& call : spelledOut("A"))
        expected.push_back(call);
    EXPECT_EQ(m_host.journal().lines(), expected);
}
