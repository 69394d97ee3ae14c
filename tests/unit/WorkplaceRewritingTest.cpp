#include "WorkplaceRewriting.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <tuple>
#include <vector>

#include "WorkplaceFile.h"
#include "XmlInput.h"

namespace {

using Entries = std::vector<WorkplaceFile::Entry>;

WorkplaceFile parsed(const std::string& bytes) {
    XmlInput input;
    input.bytes = bytes;
    return WorkplaceFile("w.xml", input);
}

std::string workplace(const std::string& entries) {
    return "<workplaces>\n<workplace id='0'>\n" + entries + "</workplace>\n</workplaces>\n";
}

std::string entry(const std::string& id) {
    return "<mainframeDriver driverID='" + id + "' driverType='Axis' version='1.0' workingDirectory='data/" +
           id + "' ipAddress='10.0.0.1' networkAdapter='eth0' interfaceType='queue'/>\n";
}

/// All that is read of an entry but its line.
auto content(const WorkplaceFile::Entry& entry) {
    return std::tuple(entry.driverID, entry.driverType, entry.version, entry.workingDirectory,
                      entry.ipAddress, entry.networkAdapter, entry.interfaceWord, entry.hasAttributes,
                      entry.beginsWithDriverID);
}

/// The rewritten bytes have an entry for each of these drivers first, then the other entries of the bytes.
void expectSameButFor(const std::string& bytes, const std::set<std::string>& ids) {
    const std::string rewritten = withUnannounced(bytes, ids, "(parked)");
    Entries expected;
    for (const std::string& id : ids) {
        WorkplaceFile::Entry& parked = expected.emplace_back();
        parked.driverID = id;
        parked.driverType = "(parked)";
        parked.version = "1.0";
        parked.interfaceWord = "direct";
        parked.hasAttributes = true;
        parked.beginsWithDriverID = true;
    }
    const WorkplaceFile file = parsed(bytes);
    for (const auto& entry : file.entries()) {
        if (!ids.contains(entry.driverID))
            expected.push_back(entry);
    }
    const Entries actual = parsed(rewritten).entries();
    ASSERT_EQ(expected.size(), actual.size()) << rewritten;
    for (std::size_t i = 0; i < expected.size(); ++i)
        EXPECT_EQ(content(expected[i]), content(actual[i])) << rewritten;
}

}  // namespace

TEST(WorkplaceRewriting, WithoutDriversTheBytesStayAsTheyAre) {
    const std::string bytes = "\xef\xbb\xbf<?xml version='1.0'?>\r\n" + workplace("  " + entry("A"));
    EXPECT_EQ(bytes, withUnannounced(bytes, {}, "(parked)"));
}

TEST(WorkplaceRewriting, BytesThatAreNoXmlStayAsTheyAre) {
    for (const char* bytes : {"", "no XML", "<workplaces><workplace id='0'></workplaces>"})
        EXPECT_EQ(bytes, withUnannounced(bytes, {"A"}, "(parked)"));
}

TEST(WorkplaceRewriting, DriverGetsTheTypeAndComesFirst) {
    expectSameButFor(workplace(entry("A") + entry("B") + entry("C")), {"B"});
    const auto entries =
        parsed(withUnannounced(workplace(entry("A") + entry("B")), {"B"}, "(parked)")).entries();
    ASSERT_EQ(2u, entries.size());
    EXPECT_EQ("B", entries[0].driverID);
    EXPECT_EQ("(parked)", entries[0].driverType);
    EXPECT_EQ("A", entries[1].driverID);
    EXPECT_EQ("Axis", entries[1].driverType);
}

TEST(WorkplaceRewriting, SeveralDriversGetIt) {
    expectSameButFor(workplace(entry("A") + entry("B") + entry("C")), {"A", "C"});
}

TEST(WorkplaceRewriting, EveryEntryOfTheDriverGetsIt) {
    expectSameButFor(workplace(entry("A") + entry("B") + entry("A")), {"A"});
}

TEST(WorkplaceRewriting, DriverOfAnotherWorkplaceGetsIt) {
    expectSameButFor("<workplaces><workplace id='0'>" + entry("A") + "</workplace><workplace id='1'>" +
                         entry("B") + "</workplace></workplaces>",
                     {"B"});
}

TEST(WorkplaceRewriting, EntryWithoutATypeGetsOneAndStillBeginsWithItsID) {
    const auto entries =
        parsed(withUnannounced(workplace("<mainframeDriver driverID='A'/>"), {"A"}, "(parked)")).entries();
    ASSERT_EQ(1u, entries.size());
    EXPECT_EQ("(parked)", entries[0].driverType);
    EXPECT_TRUE(entries[0].beginsWithDriverID);
}

TEST(WorkplaceRewriting, DriverThatIsNotInTheFileGetsAnEntry) {
    const std::string bytes = workplace(entry("A") + entry("B"));
    expectSameButFor(bytes, {"B", "GONE"});
    const auto file = parsed(withUnannounced(bytes, {"B", "GONE"}, "(parked)"));
    ASSERT_EQ(3u, file.entries().size());
    const auto& added = file.entries()[1];
    EXPECT_EQ("GONE", added.driverID);
    EXPECT_EQ("(parked)", added.driverType);
    EXPECT_EQ("1.0", added.version);
    EXPECT_TRUE(added.beginsWithDriverID);
    EXPECT_EQ(EInterfaceTypes::Direct, added.interfaceType);
    // A reload finds it.
    EXPECT_EQ("", file.entryFault("GONE"));
    EXPECT_TRUE(file.isWhole());
}

TEST(WorkplaceRewriting, EachDriverThatIsNotInTheFileGetsOneEntry) {
    expectSameButFor(
        "<workplaces><workplace id='0'/><workplace id='1'>" + entry("A") + "</workplace></workplaces>", {});
    const auto entries = parsed(withUnannounced("<workplaces><workplace id='0'/><workplace id='1'>" +
                                                    entry("A") + "</workplace></workplaces>",
                                                {"X", "Y"}, "(parked)"))
                             .entries();
    ASSERT_EQ(3u, entries.size());
    EXPECT_EQ("X", entries[0].driverID);
    EXPECT_EQ("Y", entries[1].driverID);
    EXPECT_EQ("A", entries[2].driverID);
}

TEST(WorkplaceRewriting, FileWithoutAWorkplaceGetsOne) {
    EXPECT_EQ(1u, parsed(withUnannounced("<workplaces/>", {"A"}, "(parked)")).entries().size());
}

TEST(WorkplaceRewriting, DriverAfterAFaultOfTheFileIsReached) {
    const auto file = parsed(withUnannounced(workplace(entry("A") + "text" + entry("B")), {"B"}, "(parked)"));
    EXPECT_EQ("", file.entryFault("B"));
}

TEST(WorkplaceRewriting, WhatStandsAroundTheEntriesStays) {
    const std::string rewritten =
        withUnannounced("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<!-- mine -->\n" + workplace(entry("A")),
                        {"A"}, "(parked)");
    EXPECT_EQ(0u, rewritten.find("<?xml version=\"1.0\" encoding=\"UTF-8\" ?>")) << rewritten;
    EXPECT_NE(std::string::npos, rewritten.find("<!-- mine -->"));
    EXPECT_NE(std::string::npos, rewritten.find("<workplace id=\"0\">"));
}

TEST(WorkplaceRewriting, FileThatIsNotWholeIsReadUpToTheSamePlace) {
    for (const char* obstacle : {"<!-- comment -->", "text", "<![CDATA[ data ]]>", "<!UNKNOWN>"}) {
        const std::string bytes = workplace(entry("A") + obstacle + entry("B"));
        expectSameButFor(bytes, {"A"});
        const auto file = parsed(withUnannounced(bytes, {"A"}, "(parked)"));
        EXPECT_FALSE(file.isWhole()) << obstacle;
        ASSERT_EQ(1u, file.entries().size()) << obstacle;
        ASSERT_EQ(1u, file.unreachedEntries().size()) << obstacle;
    }
}

TEST(WorkplaceRewriting, TypeMayHoldWhatXmlHasItsOwnSignsFor) {
    const auto entries = parsed(withUnannounced(workplace(entry("A")), {"A"}, "<\"&'>")).entries();
    ASSERT_EQ(1u, entries.size());
    EXPECT_EQ("<\"&'>", entries[0].driverType);
}

TEST(WorkplaceRewriting, ValuesOfEveryKindComeThrough) {
    const std::vector<std::string> pieces{"A",      "&amp;",  "&lt;",     "&quot;",       "&apos;", "&#10;",
                                          "&#x41;", "&#xE4;", "\xc3\xa4", "\xe2\x82\xac", " ",      "\t",
                                          "&",      "'",      ">",        "&unknown;",    "&#x01;", "%"};
    std::mt19937 random(20261122);
    for (int i = 0; i < 3000; ++i) {
        std::string text;
        for (auto length = random() % 6; length > 0; --length)
            text += pieces.at(random() % pieces.size());
        const std::string bytes =
            workplace("<mainframeDriver driverID=\"X\" driverType=\"" + text + "\" version=\"" + text +
                      "\" workingDirectory=\"" + text + "\" interfaceType=\"" + text + "\"/>" + entry("A"));
        if (!parsed(bytes).isWhole())
            continue;
        expectSameButFor(bytes, {"A"});
        ASSERT_FALSE(testing::Test::HasFailure()) << text;
    }
}

TEST(WorkplaceRewriting, PanelHasAnEntryWhereItIsAskedFor) {
    const std::string bytes = workplace(entry("A") + entry("B"));
    EXPECT_EQ(bytes, withUnannounced(bytes, {}, "(none)"));
    const WorkplaceFile sut = parsed(withUnannounced(bytes, {"A"}, "(none)", true));
    EXPECT_TRUE(sut.isWhole());
    ASSERT_EQ(3u, sut.entries().size());
    const WorkplaceFile::Entry& panel = sut.entries()[0];
    EXPECT_EQ("PANEL", panel.driverID);
    EXPECT_TRUE(panel.beginsWithDriverID);
    EXPECT_EQ("Panel", panel.driverType);
    EXPECT_EQ("1.0", panel.version);
    EXPECT_EQ("data/PANEL", panel.workingDirectory);
    EXPECT_EQ(EInterfaceTypes::Direct, panel.interfaceType);
    EXPECT_EQ("A", sut.entries()[1].driverID);
    EXPECT_EQ("(none)", sut.entries()[1].driverType);
    EXPECT_EQ("B", sut.entries()[2].driverID);
    EXPECT_EQ(3u, parsed(withUnannounced(bytes, {}, "(none)", true)).entries().size());
}
