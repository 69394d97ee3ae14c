#include "StreamFilter.h"

#include "FidFields.h"
#include "StreamFixture.h"

using stream::EKind;
using stream::StreamFilter;
using stream::StreamRecord;

namespace {

class StreamFilterTest : public StreamFixture {
protected:
    StreamFilterTest() {
        m_names.define(1u << 16, "AXIS1");
        m_names.define(2u << 16, "LAMP");
        m_names.define(1u << 16 | 1, "AXIS1.POSITION");
    }
    static StreamRecord record(EKind kind, std::uint32_t key, std::string text = {},
                               std::uint32_t value = 0) {
        StreamRecord made;
        made.kind = kind;
        made.key = key;
        made.text = std::move(text);
        made.value = value;
        return made;
    }
    bool matches(const StreamRecord& record) const { return m_sut.matches(record, m_names); }

    stream::KeyNames m_names;
    StreamFilter m_sut;
    const StreamRecord m_value = record(EKind::Int, 1u << 16 | 1);
    const StreamRecord m_exit = record(EKind::Exit, 2u << 16, "signal 9");
    const StreamRecord m_fid = record(
        EKind::Fid, 1u << 16, std::string(1, '\0') + std::string(stream::FidFields("LAMP.ON").bytes()), 2);
};

}  // namespace

TEST_F(StreamFilterTest, LetsAllThroughButWhatIsAboutTheStream) {
    EXPECT_TRUE(matches(m_value));
    EXPECT_TRUE(matches(m_exit));
    EXPECT_TRUE(matches(m_fid));
    EXPECT_TRUE(matches(record(EKind::Gap, 0)));
    EXPECT_FALSE(matches(record(EKind::Define, 1u << 16)));
    EXPECT_FALSE(matches(record(EKind::Counts, 1u << 16)));
}

TEST_F(StreamFilterTest, KindsAreNamed) {
    EXPECT_EQ(m_sut.setKinds("exit,fid,counts"), "");
    EXPECT_FALSE(matches(m_value));
    EXPECT_TRUE(matches(m_exit));
    EXPECT_TRUE(matches(m_fid));
    EXPECT_TRUE(matches(record(EKind::FidEnd, 0)));
    EXPECT_TRUE(matches(record(EKind::Counts, 0)));
    EXPECT_EQ(m_sut.setKinds("value"), "");
    EXPECT_TRUE(matches(m_value));
    EXPECT_FALSE(matches(m_exit));
}

TEST_F(StreamFilterTest, WhatIsNoKindIsRefused) {
    EXPECT_EQ(
        m_sut.setKinds("fid,exits"),
        "\"exits\" is no kind of record; there are value, event, fid, fid-end, command, command-end, start, "
        "exit, hang, restart, configuration, log, output, stale, merged, mark, wire, define, counts, gap");
    EXPECT_TRUE(matches(m_exit));
}

TEST_F(StreamFilterTest, FidIsItsSendersAndItsReceivers) {
    m_sut.setDrivers("LAMP");
    EXPECT_FALSE(matches(m_value));
    EXPECT_TRUE(matches(m_exit));
    EXPECT_TRUE(matches(m_fid));
    m_sut.setDrivers("AXIS1,OTHER");
    EXPECT_TRUE(matches(m_value));
    EXPECT_FALSE(matches(m_exit));
    EXPECT_TRUE(matches(m_fid));
    m_sut.setDrivers("host");
    EXPECT_FALSE(matches(m_fid));
    EXPECT_TRUE(matches(record(EKind::Log, 0)));
}

TEST_F(StreamFilterTest, DriversMayBePatterns) {
    m_sut.setDrivers("OTHER,AX*");
    EXPECT_TRUE(matches(m_value));
    EXPECT_FALSE(matches(m_exit));
    m_sut.setDrivers("L?MP");
    EXPECT_TRUE(matches(m_exit));
    EXPECT_TRUE(matches(m_fid));
    EXPECT_FALSE(matches(m_value));
}

TEST_F(StreamFilterTest, GlobIsForWhatARecordIsAbout) {
    m_sut.setGlob("AXIS1.P*");
    EXPECT_TRUE(matches(m_value));
    EXPECT_FALSE(matches(m_fid));
    m_sut.setGlob("LAMP.*");
    EXPECT_TRUE(matches(m_fid));
    EXPECT_FALSE(matches(m_value));
    m_sut.setGlob("signal*");
    EXPECT_TRUE(matches(m_exit));
    m_sut.setGlob("*door*");
    EXPECT_TRUE(matches(record(EKind::Log, 0, "\3MDMthe door is open")));
    EXPECT_FALSE(matches(record(EKind::Log, 0, "\4doorthe lamp is on")));
}
