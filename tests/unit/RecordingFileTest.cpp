#include "RecordingFile.h"

#include <sys/stat.h>

#include "RecordingFixture.h"
#include "SegmentWriter.h"
#include "WithoutCapabilities.h"

namespace {

class RecordingFileTest : public RecordingFixture {
protected:
    void lock() const { ASSERT_EQ(0, ::chmod(ringPath().c_str(), 0)); }
};

}  // namespace

TEST_F(RecordingFileTest, RingIsOpenedWhileItsHostLivesAndAfterThat) {
    EXPECT_TRUE(openRing(ringPath())->isLive());
    die();
    EXPECT_FALSE(openRing(ringPath())->isLive());
}

TEST_F(RecordingFileTest, SegmentIsOpened) {
    std::string error;
    const auto pWriter = stream::SegmentWriter::create(m_directory.path("1.seg"), "i1", error);
    ASSERT_NE(nullptr, pWriter) << error;
    stream::StreamRecord record;
    record.number = 7;
    record.time = at(0);
    record.kind = stream::EKind::Exit;
    pWriter->add(record, {});
    EXPECT_EQ("", pWriter->writeFrame());
    EXPECT_EQ(7u, openSegment(m_directory.path("1.seg"))->firstNumber());
}

TEST_F(RecordingFileTest, WhatMayNotBeReadIsNotAllowed) {
    lock();
    const WithoutCapabilities plain({CAP_DAC_OVERRIDE, CAP_DAC_READ_SEARCH});
    const std::pair refusal(
        EExit::NotAllowed,
        "\"" + ringPath() + "\" may be read by its host's user and by root only: Permission denied");
    EXPECT_EQ(refusal, errorOf([&] { openRing(ringPath()); }));
    EXPECT_EQ(refusal, errorOf([&] { openSegment(ringPath()); }));
}

TEST_F(RecordingFileTest, WhatIsNoRecordingHasFailed) {
    m_directory.write("text", "text");
    const std::string path = m_directory.path("text");
    EXPECT_EQ(std::pair(EExit::Failed, "\"" + path + "\" is no file of a stream: it has 4 bytes"),
              errorOf([&] { openRing(path); }));
    EXPECT_EQ(std::pair(EExit::Failed, "\"" + path + "\": no recording is in it"),
              errorOf([&] { openSegment(path); }));
    EXPECT_EQ(std::pair(EExit::Failed, "\"" + path + "s\" cannot be opened: No such file or directory"),
              errorOf([&] { openRing(path + "s"); }));
}
