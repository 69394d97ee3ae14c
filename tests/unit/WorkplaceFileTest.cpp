#include "WorkplaceFile.h"

#include <gtest/gtest.h>

#include "TemporaryDirectory.h"

namespace {

class WorkplaceFileTest : public testing::Test {
protected:
    WorkplaceFile read(const std::string& drivers) {
        m_directory.write("w.xml",
                          "<workplaces>\n<workplace id='0'>\n" + drivers + "\n</workplace>\n</workplaces>");
        return WorkplaceFile(path(), XmlInput::read(path()));
    }
    std::string path() const { return m_directory.path("w.xml"); }

    TemporaryDirectory m_directory;
};

}  // namespace

TEST_F(WorkplaceFileTest, ReadsTheEntriesInOrder) {
    const auto sut = read(
        "<mainframeDriver driverID='B' driverType='T' version='1.2' interfaceType='queue'/>\n"
        "<ports><mainframeDriver driverID='HIDDEN'/></ports>\n"
        "<mainframeDriver driverID='A' interfaceType='direct'/><mainframeDriver driverID='C' "
        "interfaceType='Queue'/>");
    ASSERT_TRUE(sut.isWhole());
    ASSERT_EQ(3u, sut.entries().size());
    EXPECT_EQ("B", sut.entries()[0].driverID);
    EXPECT_EQ("T", sut.entries()[0].driverType);
    EXPECT_EQ("1.2", sut.entries()[0].version);
    EXPECT_EQ(EInterfaceTypes::Queue, sut.entries()[0].interfaceType);
    EXPECT_EQ(3, sut.entries()[0].line);
    EXPECT_EQ(EInterfaceTypes::Direct, sut.entries()[1].interfaceType);
    EXPECT_EQ(EInterfaceTypes::None, sut.entries()[2].interfaceType);
}

TEST_F(WorkplaceFileTest, KeepsWhatStandsBeforeAFault) {
    const auto sut = read("<mainframeDriver driverID='A'/>text<mainframeDriver driverID='B'/>");
    EXPECT_FALSE(sut.isWhole());
    EXPECT_EQ(1u, sut.entries().size());
}

TEST_F(WorkplaceFileTest, MissingFileHasNoEntries) {
    const WorkplaceFile sut("/nonexistent/w.xml", XmlInput::read("/nonexistent/w.xml"));
    EXPECT_FALSE(sut.isWhole());
    EXPECT_TRUE(sut.entries().empty());
}

TEST_F(WorkplaceFileTest, ReadsEveryAttribute) {
    const auto sut = read(
        "<mainframeDriver driverID='A' workingDirectory='data/A' ipAddress='192.0.2.20' "
        "networkAdapter='eth1' interfaceType='Queue'/>");
    ASSERT_EQ(1u, sut.entries().size());
    EXPECT_EQ("data/A", sut.entries()[0].workingDirectory);
    EXPECT_EQ("192.0.2.20", sut.entries()[0].ipAddress);
    EXPECT_EQ("eth1", sut.entries()[0].networkAdapter);
    EXPECT_EQ("Queue", sut.entries()[0].interfaceWord);
}

TEST_F(WorkplaceFileTest, KeepsApartWhatStandsBehindAFault) {
    const auto sut = read("<mainframeDriver driverID='A'/>text<mainframeDriver driverID='B'/>");
    ASSERT_EQ(1u, sut.unreachedEntries().size());
    EXPECT_EQ("B", sut.unreachedEntries()[0].driverID);
}

TEST_F(WorkplaceFileTest, EntryOnWhichAReloadSpinsStandsBeforeTheDriversOwn) {
    const auto sut = read(
        "<mainframeDriver driverID='A'/>\n<mainframeDriver driverType='T' driverID='B'/>\n"
        "<mainframeDriver driverID='C'/>");
    EXPECT_EQ(nullptr, sut.spinningEntry("A"));
    ASSERT_NE(nullptr, sut.spinningEntry("C"));
    EXPECT_EQ(4, sut.spinningEntry("C")->line);
}

struct Faulty {
    const char* claim;
    std::string text;
    int line;
    std::string fault;
};

class WorkplaceFileFaults : public testing::TestWithParam<Faulty> {};

TEST_P(WorkplaceFileFaults, IsNamedWithItsLine) {
    TemporaryDirectory directory;
    directory.write("w.xml", GetParam().text);
    const WorkplaceFile sut(directory.path("w.xml"), XmlInput::read(directory.path("w.xml")));
    ASSERT_EQ(1u, sut.faults().size());
    EXPECT_EQ(GetParam().line, sut.faults()[0].line);
    EXPECT_EQ(GetParam().fault, sut.faults()[0].text);
}

INSTANTIATE_TEST_SUITE_P(
    , WorkplaceFileFaults,
    testing::ValuesIn(std::vector<Faulty>{
        {"OpenTag", "<workplaces>\n<workplace id='0'", 2,
         "Error parsing Element; only the panel driver is started"},
        {"EmptyFile", "", 0, "cannot be read: Error document empty; only the panel driver is started"},
        {"NoElement", "<!-- nothing -->", 0, "holds no element; its root must be <workplaces>"},
        {"OtherRoot", "\n<desks/>", 2, "the root is <desks>; it must be <workplaces>"},
        {"CommentBesideWorkplaces", "<workplaces>\n<!-- one -->\n</workplaces>", 2,
         "a comment may not stand here, only <workplace>; no driver behind it is started"},
        {"OtherElementBesideWorkplaces", "<workplaces>\n<desk/></workplaces>", 2,
         "an element <desk> may not stand here, only <workplace>; no driver behind it is started"},
        {"TextInAWorkplace", "<workplaces>\n<workplace id='7'>one</workplace></workplaces>", 2,
         "text may not stand in a workplace; no driver behind it is started"},
        {"CommentInAWorkplace", "<workplaces><workplace id='7'>\n\n<!-- one --></workplace></workplaces>", 3,
         "a comment may not stand in a workplace; no driver behind it is started"},
        {"WorkplaceWithoutID", "<workplaces>\n<workplace/></workplaces>", 2,
         "the workplace has no id; give it a number from 0 to 7; it and what stands behind it is not "
         "started"},
        {"WorkplaceBeyondTheLast", "<workplaces>\n<workplace id='8'/></workplaces>", 2,
         "the workplace id \"8\" is not a number from 0 to 7; it and what stands behind it is not started"},
        {"WorkplaceBeforeTheFirst", "<workplaces>\n<workplace id='-1'/></workplaces>", 2,
         "the workplace id \"-1\" is not a number from 0 to 7; it and what stands behind it is not started"},
        {"WorkplaceInAWord", "<workplaces>\n<workplace id='x'/></workplaces>", 2,
         "the workplace id \"x\" is read as 0; write a number from 0 to 7"},
    }),
    [](const auto& test) { return test.param.claim; });

TEST_F(WorkplaceFileTest, MissingFileIsAFaultOfTheWholeFile) {
    const WorkplaceFile sut("/nonexistent/w.xml", XmlInput::read("/nonexistent/w.xml"));
    ASSERT_EQ(1u, sut.faults().size());
    EXPECT_EQ(0, sut.faults()[0].line);
    EXPECT_EQ("cannot be read: No such file or directory; only the panel driver is started",
              sut.faults()[0].text);
}

TEST_F(WorkplaceFileTest, NumberInWordsDoesNotStopTheReading) {
    m_directory.write(
        "w.xml", "<workplaces><workplace id='x'><mainframeDriver driverID='A'/></workplace></workplaces>");
    const WorkplaceFile sut(path(), XmlInput::read(path()));
    EXPECT_TRUE(sut.isWhole());
    EXPECT_EQ(1u, sut.entries().size());
}

TEST_F(WorkplaceFileTest, WorkplaceOutOfRangeEndsTheReading) {
    m_directory.write(
        "w.xml", "<workplaces><workplace id='8'><mainframeDriver driverID='A'/></workplace></workplaces>");
    const WorkplaceFile sut(path(), XmlInput::read(path()));
    EXPECT_FALSE(sut.isWhole());
    EXPECT_TRUE(sut.entries().empty());
}

TEST_F(WorkplaceFileTest, ReloadOfAKnownDriverIsFine) {
    EXPECT_EQ("", read("<mainframeDriver driverID='A'/>").entryFault("A"));
}

TEST_F(WorkplaceFileTest, ReloadOfAnUnknownDriverIsRefused) {
    EXPECT_EQ(path() + " has no driver \"a\"", read("<mainframeDriver driverID='A'/>").entryFault("a"));
}

TEST_F(WorkplaceFileTest, ReloadThatWouldMeetAnotherFirstAttributeIsRefused) {
    const std::string drivers =
        "<mainframeDriver driverID='A'/>\n<mainframeDriver driverType='T' driverID='B'/>\n"
        "<mainframeDriver driverID='C'/>";
    const std::string reason =
        path() + " line 4: driverID must be the first attribute of a mainframeDriver that can be reloaded";
    EXPECT_EQ("", read(drivers).entryFault("A"));
    EXPECT_EQ(reason, read(drivers).entryFault("B"));
    EXPECT_EQ(reason, read(drivers).entryFault("C"));
}

TEST_F(WorkplaceFileTest, ReloadPassesAnEntryWithoutAttributes) {
    EXPECT_EQ("", read("<mainframeDriver/><mainframeDriver driverID='A'/>").entryFault("A"));
}

TEST_F(WorkplaceFileTest, DriverThatMayStandBehindAFaultIsNotReloadedForIt) {
    const auto sut = read("<mainframeDriver driverID='A'/>\ntext<mainframeDriver driverID='B'/>");
    EXPECT_EQ("", sut.entryFault("A"));
    const std::string fault = path() + " line 4: text may not stand in a workplace";
    EXPECT_EQ(fault, sut.entryFault("B"));
    EXPECT_EQ(fault, sut.entryFault("C"));
}

TEST_F(WorkplaceFileTest, WholeFileHasNoObstacle) {
    EXPECT_EQ("", read("<mainframeDriver driverID='A'/>").obstacle());
}

TEST_F(WorkplaceFileTest, FirstFaultIsTheObstacle) {
    EXPECT_EQ(path() + " line 3: text may not stand in a workplace",
              read("text\n</workplace>\n<desk/>\n<workplace id='1'>").obstacle());
}

TEST_F(WorkplaceFileTest, FileThatIsCutShortIsNeverWhole) {
    const std::string whole =
        "<?xml version=\"1.0\"?>\n<!-- all -->\n<workplaces>\n<workplace id='0'>\n<ports><port/></ports>\n"
        "<mainframeDriver driverID='A' driverType='T'/>\n</workplace>\n</workplaces>";
    const WorkplaceFile all(path(), {whole, {}, std::nullopt});
    ASSERT_TRUE(all.isWhole()) << all.obstacle();
    for (std::size_t length = 0; length < whole.size(); ++length) {
        const WorkplaceFile sut(path(), {whole.substr(0, length), {}, std::nullopt});
        EXPECT_FALSE(sut.isWhole()) << whole.substr(0, length);
        EXPECT_NE("", sut.entryFault("B")) << whole.substr(0, length);
    }
}

TEST_F(WorkplaceFileTest, UnknownElementsAndAttributesAreNamedAndChangeNothing) {
    const auto sut = read(
        "<mainframedriver driverID='A'/>\n<mainframeDriver driverID='B' workdir='data/B' x:note='mine' "
        "interfaceType='queue'/>\n<ports/><x:note/>");
    EXPECT_TRUE(sut.isWhole());
    ASSERT_EQ(1u, sut.entries().size());
    EXPECT_EQ("B", sut.entries()[0].driverID);
    ASSERT_EQ(2u, sut.faults().size());
    EXPECT_EQ(3, sut.faults()[0].line);
    EXPECT_EQ(
        "the element <mainframedriver> is unknown, and nothing in it is read; did you mean "
        "<mainframeDriver>?",
        sut.faults()[0].text);
    EXPECT_EQ(4, sut.faults()[1].line);
    EXPECT_EQ(
        "the attribute \"workdir\" of <mainframeDriver> is unknown and not read; did you mean "
        "\"workingDirectory\"?",
        sut.faults()[1].text);
}
