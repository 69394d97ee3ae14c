#include "KeptFrame.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using stream::EKind;
using stream::StreamRecord;
using Lines = std::vector<std::string>;

namespace {

constexpr std::size_t s_page = 4096;

StreamRecord event(std::uint64_t number, std::string text) {
    StreamRecord record;
    record.number = number;
    record.kind = EKind::Event;
    record.key = 1u << 16;
    record.text = std::move(text);
    return record;
}

StreamRecord value(std::uint64_t number, std::uint32_t key, std::string keyText = {}) {
    StreamRecord record;
    record.number = number;
    record.kind = EKind::Int;
    record.key = key;
    record.value = static_cast<std::uint32_t>(number);
    record.keyText = std::move(keyText);
    return record;
}

Lines all(KeptFrame& frame) {
    Lines found;
    frame.forEach([&](const StreamRecord& record) {
        found.push_back(std::to_string(record.number) + ':' + record.keyText + record.text);
    });
    return found;
}

}  // namespace

TEST(KeptFrameTest, GivesWholeRecordsInTheOrderInWhichTheyCame) {
    KeptFrame sut(s_page);
    StreamRecord record = event(7, "text");
    record.time = stream::Time(std::chrono::seconds(5));
    record.value = 9;
    record.cause = 3;
    record.keyText = "KEY";
    record.isCut = true;
    EXPECT_TRUE(sut.isEmpty());
    EXPECT_TRUE(sut.add(record));
    EXPECT_TRUE(sut.add(event(5, "")));
    EXPECT_FALSE(sut.isEmpty());
    std::vector<StreamRecord> found;
    sut.forEach([&](const StreamRecord& one) { found.push_back(one); });
    EXPECT_EQ(found, (std::vector<StreamRecord>{record, event(5, "")}));
}

TEST(KeptFrameTest, OfEachValueTheLastOneStays) {
    KeptFrame sut(s_page);
    sut.add(value(1, 0x10001));
    sut.add(value(2, 0x10002));
    sut.add(value(3, 0x10000, "A"));
    sut.add(value(4, 0x10000, "B"));
    sut.add(event(5, "x"));
    sut.add(event(6, "x"));
    sut.add(value(7, 0x10000, "A"));
    sut.add(value(8, 0x10001));
    EXPECT_EQ(all(sut), (Lines{"2:", "4:B", "5:x", "6:x", "7:A", "8:"}));
}

TEST(KeptFrameTest, ManyValuesAreToldApart) {
    KeptFrame sut(64 * s_page);
    for (std::uint32_t round = 0; round < 3; ++round) {
        for (std::uint32_t key = 1; key <= 2000; ++key)
            ASSERT_TRUE(sut.add(value(round * 2000 + key, 0x10000 + key)));
    }
    const Lines found = all(sut);
    ASSERT_EQ(found.size(), 2000u);
    EXPECT_EQ(found.front(), "4001:");
    EXPECT_EQ(found.back(), "6000:");
}

TEST(KeptFrameTest, RoomOfReplacedValuesIsUsedAgain) {
    KeptFrame sut(s_page);
    sut.add(event(1, "first"));
    for (std::uint64_t number = 2; number <= 10'000; ++number)
        ASSERT_TRUE(sut.add(value(number, 0x10001 + number % 2)));
    EXPECT_EQ(all(sut), (Lines{"1:first", "9999:", "10000:"}));
}

TEST(KeptFrameTest, RecordWithoutRoomChangesNothing) {
    KeptFrame sut(s_page);
    EXPECT_TRUE(sut.add(event(1, std::string(4000, 'x'))));
    EXPECT_TRUE(sut.add(value(2, 0x10001)));
    EXPECT_FALSE(sut.add(event(3, "no more")));
    EXPECT_EQ(all(sut), (Lines{"1:" + std::string(4000, 'x'), "2:"}));
    sut.clear();
    EXPECT_TRUE(sut.isEmpty());
    EXPECT_EQ(all(sut), Lines());
    EXPECT_TRUE(sut.add(value(4, 0x10001)));
    EXPECT_EQ(all(sut), (Lines{"4:"}));
}

TEST(KeptFrameTest, GrowthIsLessByTheOlderOneOfAValue) {
    KeptFrame sut(s_page);
    EXPECT_EQ(sut.growth(value(1, 0x10001)), 32);
    sut.add(value(1, 0x10001));
    EXPECT_EQ(sut.growth(value(2, 0x10001)), 0);
    EXPECT_EQ(sut.growth(value(2, 0x10002)), 32);
    StreamRecord text = value(3, 0x10001);
    text.kind = EKind::Text;
    text.text = "nine char";
    EXPECT_EQ(sut.growth(text), 16);
    EXPECT_EQ(sut.growth(event(4, "12345678")), 40);
}
