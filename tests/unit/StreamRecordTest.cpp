#include "StreamRecord.h"

#include <gtest/gtest.h>

#include <string>

#include "StreamBody.h"

namespace layout = stream::layout;
using stream::EKind;
using stream::StreamBody;
using stream::StreamEntry;
using stream::StreamRecord;
using stream::Time;

namespace {

/// There and back.
StreamRecord reread(const StreamEntry& entry, Time time = Time(), std::uint64_t number = 1) {
    std::uint64_t words[layout::s_longestBodyWords];
    const StreamBody body = StreamBody::pack(entry, words);
    StreamRecord record;
    EXPECT_TRUE(StreamBody::unpack(
        layout::timeAndKind(time, entry.kind), layout::numberLengthFlags(number, body.length, body.flags),
        layout::keyAndValue(entry.key, entry.value), reinterpret_cast<const char*>(words), record));
    return record;
}

}  // namespace

TEST(StreamRecord, ComesBackAsItWas) {
    const Time time(std::chrono::nanoseconds(1'795'356'202'181'123'400));
    const auto record = reread({.kind = EKind::Fid,
                                .key = 0x12345678,
                                .value = 0xfedcba98,
                                .cause = 99,
                                .keyText = "key",
                                .texts = {"a", "", "bc"}},
                               time, layout::s_lastNumber);
    EXPECT_EQ(record.time, time);
    EXPECT_EQ(record.number, 281474976710655u);
    EXPECT_EQ(record.kind, EKind::Fid);
    EXPECT_EQ(record.key, 0x12345678u);
    EXPECT_EQ(record.driver(), 0x1234);
    EXPECT_EQ(record.value, 0xfedcba98u);
    EXPECT_EQ(record.cause, 99u);
    EXPECT_EQ(record.keyText, "key");
    EXPECT_EQ(record.text, "abc");
    EXPECT_FALSE(record.isCut);
}

TEST(StreamRecord, TimeIsKeptToATenthOfAMicrosecond) {
    const Time time(std::chrono::nanoseconds(1'000'000'199));
    EXPECT_EQ(reread({.kind = EKind::Exit}, time).time, Time(std::chrono::nanoseconds(1'000'000'100)));
}

TEST(StreamRecord, TimeBefore1970ComesBack) {
    const Time time(std::chrono::seconds(-5));
    EXPECT_EQ(reread({.kind = EKind::Exit}, time).time, time);
}

TEST(StreamRecord, LongestTextFits) {
    const std::string text(4095, 'x');
    const auto record = reread({.kind = EKind::Log, .texts = {text}});
    EXPECT_EQ(record.text, text);
    EXPECT_FALSE(record.isCut);
}

TEST(StreamRecord, LongerTextIsCutAndSaysSo) {
    const std::string text(4000, 'x');
    const auto record =
        reread({.kind = EKind::Log, .keyText = "k", .texts = {text, std::string_view(text).substr(0, 96)}});
    EXPECT_EQ(record.text.size(), 4092u);
    EXPECT_EQ(record.keyText, "k");
    EXPECT_TRUE(record.isCut);
}

TEST(StreamRecord, KeyLongerThanItsBodyIsRefused) {
    const std::uint64_t words[1] = {0xffff};
    StreamRecord record;
    EXPECT_FALSE(StreamBody::unpack(16, layout::numberLengthFlags(1, 8, layout::s_hasKeyText), 0,
                                    reinterpret_cast<const char*>(words), record));
}

TEST(StreamRecord, CauseThatIsNotThereIsRefused) {
    const std::uint64_t words[1] = {0};
    StreamRecord record;
    EXPECT_FALSE(StreamBody::unpack(16, layout::numberLengthFlags(1, 4, layout::s_hasCause), 0,
                                    reinterpret_cast<const char*>(words), record));
}

TEST(StreamRecord, TakesThirtyTwoBytesWithoutAText) {
    EXPECT_EQ(layout::sizeOf(0), 32u);
    EXPECT_EQ(layout::sizeOf(1), 64u);
    EXPECT_EQ(layout::sizeOf(32), 64u);
    EXPECT_EQ(layout::sizeOf(33), 96u);
}
