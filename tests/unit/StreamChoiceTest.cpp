#include "StreamChoice.h"

#include "RecordingFixture.h"

namespace {

class StreamChoiceTest : public RecordingFixture {};

}  // namespace

TEST_F(StreamChoiceTest, TakesWhatIsWanted) {
    stream::KeyNames names;
    names.define(1u << 16, "AXIS1");
    names.define(2u << 16, "LAMP");
    stream::StreamRecord record;
    record.kind = stream::EKind::Exit;
    record.key = 1u << 16;
    record.text = "signal 9";
    EXPECT_TRUE(StreamChoice().filter().matches(record, names));
    const StreamChoice sut{{"OTHER", "AXIS*"}, {"value", "exit,hang"}, "signal*"};
    EXPECT_TRUE(sut.filter().matches(record, names));
    record.key = 2u << 16;
    EXPECT_FALSE(sut.filter().matches(record, names));
    record.key = 1u << 16;
    record.kind = stream::EKind::Restart;
    EXPECT_FALSE(sut.filter().matches(record, names));
    record.kind = stream::EKind::Hang;
    EXPECT_TRUE(sut.filter().matches(record, names));
    record.text = "no answer";
    EXPECT_FALSE(sut.filter().matches(record, names));
}

TEST_F(StreamChoiceTest, WhatIsNoKindIsWrongUsage) {
    const auto [exit, text] = errorOf([] { StreamChoice{{}, {"fid", "exits"}, ""}.filter(); });
    EXPECT_EQ(EExit::WrongUsage, exit);
    EXPECT_THAT(text, testing::StartsWith("\"exits\" is no kind of record; there are value, "));
}
