#include "WorkplaceFile.h"

#include <gtest/gtest.h>

#include "TemporaryDirectory.h"

namespace {

class WorkplaceFileTest : public testing::Test {
protected:
    WorkplaceFile read(const std::string& drivers) {
        m_directory.write("w.xml",
                          "<workplaces>\n<workplace id='0'>\n" + drivers + "\n</workplace>\n</workplaces>");
        return WorkplaceFile(path());
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
    const WorkplaceFile sut("/nonexistent/w.xml");
    EXPECT_FALSE(sut.isWhole());
    EXPECT_TRUE(sut.entries().empty());
    EXPECT_EQ("", sut.startRefusal());
}

TEST_F(WorkplaceFileTest, StartIsRefusedWithoutADriverID) {
    EXPECT_EQ(path() + " line 4: the mainframeDriver has no driverID; give it one of its own",
              read("<mainframeDriver driverID='A'/>\n<mainframeDriver driverType='T'/>").startRefusal());
    EXPECT_EQ("", read("<mainframeDriver driverType='T' driverID='A'/>").startRefusal());
}

TEST_F(WorkplaceFileTest, StartIsRefusedWithTwoDriversUnderOneID) {
    EXPECT_EQ(
        path() + " line 4: the driver ID \"A\" stands in line 3 already; give each driver one of its own",
        read("<mainframeDriver driverID='A' interfaceType='queue'/>\n"
             "<mainframeDriver driverID='A' interfaceType='direct'/>")
            .startRefusal());
}

TEST_F(WorkplaceFileTest, EntryThatLoadsNothingMayRepeatAnID) {
    EXPECT_EQ("",
              read("<mainframeDriver driverID='A' interfaceType='queue'/>\n"
                   "<mainframeDriver driverID='A' interfaceType='socket'/><mainframeDriver driverID='A'/>")
                  .startRefusal());
}

TEST_F(WorkplaceFileTest, StartIsRefusedWithASecondPanel) {
    EXPECT_EQ(
        path() +
            " line 3: the panel driver is started without an entry and would run twice; remove the entry",
        read("<mainframeDriver driverID='PANEL' interfaceType='direct'/>").startRefusal());
}

TEST_F(WorkplaceFileTest, ReloadOfAKnownDriverIsFine) {
    EXPECT_EQ("", read("<mainframeDriver driverID='A'/>").reloadRefusal("A"));
}

TEST_F(WorkplaceFileTest, ReloadOfAnUnknownDriverIsRefused) {
    EXPECT_EQ(path() + " has no driver \"a\"", read("<mainframeDriver driverID='A'/>").reloadRefusal("a"));
}

TEST_F(WorkplaceFileTest, ReloadThatWouldMeetAnotherFirstAttributeIsRefused) {
    const std::string drivers =
        "<mainframeDriver driverID='A'/>\n<mainframeDriver driverType='T' driverID='B'/>\n"
        "<mainframeDriver driverID='C'/>";
    const std::string reason =
        path() + " line 4: driverID must be the first attribute of a mainframeDriver that can be reloaded";
    EXPECT_EQ("", read(drivers).reloadRefusal("A"));
    EXPECT_EQ(reason, read(drivers).reloadRefusal("B"));
    EXPECT_EQ(reason, read(drivers).reloadRefusal("C"));
}

TEST_F(WorkplaceFileTest, ReloadPassesAnEntryWithoutAttributes) {
    EXPECT_EQ("", read("<mainframeDriver/><mainframeDriver driverID='A'/>").reloadRefusal("A"));
}

TEST_F(WorkplaceFileTest, FaultBehindTheEntriesIsLeftToTheModule) {
    EXPECT_EQ("", read("<mainframeDriver driverID='A'/>text").reloadRefusal("B"));
}
