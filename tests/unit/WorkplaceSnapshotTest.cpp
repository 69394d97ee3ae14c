#include "WorkplaceSnapshot.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>

#include "FileWatch.h"
#include "TemporaryDirectory.h"
#include "XMLVerify.h"

namespace {

const std::string g_text =
    "<workplaces>\n<workplace id='0'>\n<mainframeDriver driverID='A'/>\n</workplace></workplaces>";

class WorkplaceSnapshotTest : public testing::Test {
protected:
    WorkplaceSnapshotTest() { XMLVerify::setTrustDirectory({}); }
    std::string path() const { return m_directory.path("w.xml"); }

    TemporaryDirectory m_directory;
};

}  // namespace

TEST_F(WorkplaceSnapshotTest, ReadsFileAndSignatureOnce) {
    m_directory.write("w.xml", g_text);
    m_directory.write("w.xml.sig", std::string(64, 's'));
    FileWatch watch(m_directory.path());
    const WorkplaceSnapshot sut(path());
    EXPECT_EQ(1, watch.opened("w.xml"));
    EXPECT_EQ(1, watch.opened("w.xml.sig"));
    EXPECT_EQ(g_text, sut.bytes());
    EXPECT_EQ(std::string(64, 's'), sut.signature());
    EXPECT_EQ("no trust directory is set", sut.signatureFault());
    ASSERT_EQ(1u, sut.file().entries().size());
    EXPECT_EQ("A", sut.file().entries()[0].driverID);
}

TEST_F(WorkplaceSnapshotTest, WhatHappensToTheFileLaterDoesNotReachIt) {
    m_directory.write("w.xml", g_text);
    const WorkplaceSnapshot sut(path());
    m_directory.write("w.xml", "<other/>");
    EXPECT_EQ(g_text, sut.bytes());
    EXPECT_TRUE(sut.file().isWhole());
}

TEST_F(WorkplaceSnapshotTest, EmptyPathIsAWorkplaceWithoutAConfiguration) {
    const WorkplaceSnapshot sut({});
    EXPECT_FALSE(sut.bytes());
    EXPECT_FALSE(sut.finding());
    EXPECT_EQ("", sut.signatureFault());
    EXPECT_TRUE(sut.file().faults().empty());
}

TEST_F(WorkplaceSnapshotTest, MissingFileIsNotRefusedButHasNoBytes) {
    const WorkplaceSnapshot sut(path());
    EXPECT_FALSE(sut.bytes());
    EXPECT_EQ("", sut.refusal(false));
    EXPECT_EQ("the file cannot be read: No such file or directory", sut.signatureFault());
    EXPECT_EQ(path() + " cannot be read: No such file or directory", sut.file().obstacle());
}

TEST_F(WorkplaceSnapshotTest, FileThatIsKeptFromTheLibraryIsRefusedWithItsReason) {
    ASSERT_EQ(0, ::mkfifo(path().c_str(), 0600));
    const WorkplaceSnapshot sut(path());
    EXPECT_EQ(path() + " is no regular file", sut.refusal(false));
    EXPECT_EQ("the file cannot be read: not a regular file", sut.signatureFault());
    EXPECT_FALSE(sut.bytes());
    EXPECT_TRUE(sut.file().entries().empty());
}

TEST_F(WorkplaceSnapshotTest, WithoutARightSignatureItIsRefusedOnlyWhereOneIsRequired) {
    m_directory.write("w.xml", g_text);
    const WorkplaceSnapshot sut(path());
    EXPECT_EQ("", sut.refusal(false));
    EXPECT_EQ(path() +
                  " is not signed by a trusted key, and --require-signature asks for it: it is not signed, "
                  "there is no " +
                  path() + ".sig",
              sut.refusal(true));
}
