#include "FIDParameterList.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <sstream>
#include <vector>

#include "LogCapture.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Pair;

std::string serialized(const FIDParameterList& sut, int size) {
    // Exactly as long as it says, so that the sanitizer sees a byte beyond.
    const std::unique_ptr<char[]> pBuffer(new char[static_cast<std::size_t>(size)]);
    const int length = sut.serialize(pBuffer.get(), size);
    return {pBuffer.get(), static_cast<std::size_t>(length)};
}

FIDParameterList deserialized(const std::string& bytes, int* pLength = nullptr) {
    const std::unique_ptr<char[]> pBuffer(new char[bytes.size()]);
    std::copy(bytes.begin(), bytes.end(), pBuffer.get());
    FIDParameterList list;
    const int length = list.deserialize(pBuffer.get(), static_cast<int>(bytes.size()));
    if (pLength)
        *pLength = length;
    return list;
}

std::vector<FIDParameterList::Parameter> pairsOf(const FIDParameterList& list) {
    return {list.begin(), list.end()};
}

FIDParameterList twoPairs() {
    FIDParameterList list;
    list.add("x", "1");
    list.add("speed", "fast");
    return list;
}

using namespace std::string_literals;

TEST(FIDParameterList, KeepsOrderAndRepeatedNames) {
    FIDParameterList sut;
    sut.add("b", "1");
    sut.add("a", "2");
    sut.add("b", "3");
    EXPECT_THAT(pairsOf(sut), ElementsAre(Pair("b", "1"), Pair("a", "2"), Pair("b", "3")));
    EXPECT_EQ(sut.size(), 3u);
}

TEST(FIDParameterList, ValueIsTheFirstOfThatName) {
    FIDParameterList sut;
    sut.add("b", "1");
    sut.add("b", "3");
    EXPECT_EQ(sut.value("b"), "1");
    EXPECT_EQ(sut.value("none", "else"), "else");
}

TEST(FIDParameterList, ContainsNamesOnly) {
    EXPECT_TRUE(twoPairs().contains("speed"));
    EXPECT_FALSE(twoPairs().contains("fast"));
}

TEST(FIDParameterList, TextIsCommaSeparated) {
    std::ostringstream text;
    text << twoPairs();
    EXPECT_EQ(text.str(), "x=1, speed=fast");
}

TEST(FIDParameterList, EmptyListHasNoText) {
    std::ostringstream text;
    text << FIDParameterList();
    EXPECT_EQ(text.str(), "");
}

TEST(FIDParameterList, WireFormIsCountThenLengthsAndBytes) {
    EXPECT_EQ(serialized(twoPairs(), 1024), "\x02\x01x\x01"s + "1\x05speed\x04" + "fast");
}

TEST(FIDParameterList, EmptyListIsOneZeroByte) {
    EXPECT_EQ(serialized(FIDParameterList(), 1024), "\0"s);
}

TEST(FIDParameterList, NoRoomWritesNothing) {
    char byte = 'x';
    EXPECT_EQ(twoPairs().serialize(&byte, 0), 0);
    EXPECT_EQ(twoPairs().serialize(&byte, -1), 0);
    EXPECT_EQ(byte, 'x');
}

TEST(FIDParameterList, ExactRoomIsEnough) {
    const LogCapture log;
    EXPECT_EQ(serialized(twoPairs(), 16).size(), 16u);
}

TEST(FIDParameterList, PairThatDoesNotFitIsLeftOutWhole) {
    const LogCapture log;
    EXPECT_EQ(serialized(twoPairs(), 15), "\x01\x01x\x01"s + "1");
}

TEST(FIDParameterList, WhatIsLeftOutIsCountedAndLogged) {
    LogCapture log;
    serialized(twoPairs(), 15);
    EXPECT_THAT(log.finish(),
                HasSubstr("warning  FID: 1 of 2 parameters do not fit into the message and are left "
                          "out, the first is \"speed\" with a value of 4 bytes\n"));
}

TEST(FIDParameterList, SmallerPairBehindOneThatDoesNotFitIsWritten) {
    const LogCapture log;
    FIDParameterList sut;
    sut.add("big", std::string(100, 'b'));
    sut.add("s", "1");
    EXPECT_EQ(serialized(sut, 50), "\x01\x01s\x01"s + "1");
}

TEST(FIDParameterList, NameAndValueHoldUpTo255Bytes) {
    FIDParameterList sut;
    sut.add(std::string(255, 'n'), std::string(255, 'v'));
    EXPECT_EQ(deserialized(serialized(sut, 1024)), sut);
}

TEST(FIDParameterList, ValueOf256BytesIsLeftOut) {
    const LogCapture log;
    FIDParameterList sut;
    sut.add("n", std::string(256, 'v'));
    EXPECT_EQ(serialized(sut, 1024), "\0"s);
}

TEST(FIDParameterList, AtMost255PairsAreWritten) {
    const LogCapture log;
    FIDParameterList sut;
    for (int i = 0; i < 300; ++i)
        sut.add("", "");
    const std::string bytes = serialized(sut, 1024);
    EXPECT_EQ(bytes.size(), 1u + 255u * 2u);
    EXPECT_EQ(bytes.front(), '\xff');
}

TEST(FIDParameterList, WhatWasWrittenIsReadAgain) {
    int length = 0;
    EXPECT_EQ(deserialized(serialized(twoPairs(), 1024), &length), twoPairs());
    EXPECT_EQ(length, 16);
}

TEST(FIDParameterList, BytesBehindTheListAreNotRead) {
    int length = 0;
    EXPECT_EQ(deserialized(serialized(twoPairs(), 1024) + "rest", &length), twoPairs());
    EXPECT_EQ(length, 16);
}

TEST(FIDParameterList, PairsBehindTheEndAreAbsent) {
    const std::string whole = serialized(twoPairs(), 1024);
    for (std::size_t size = 5; size < whole.size(); ++size)
        EXPECT_THAT(pairsOf(deserialized(whole.substr(0, size))), ElementsAre(Pair("x", "1"))) << size;
    for (std::size_t size = 0; size < 5; ++size)
        EXPECT_TRUE(deserialized(whole.substr(0, size)).empty()) << size;
}

TEST(FIDParameterList, CountWithoutPairsReadsTheCountAlone) {
    int length = 0;
    EXPECT_TRUE(deserialized("\xff", &length).empty());
    EXPECT_EQ(length, 1);
}

TEST(FIDParameterList, NegativeSizeReadsNothing) {
    FIDParameterList sut;
    EXPECT_EQ(sut.deserialize("\x01", -5), 0);
}

TEST(FIDParameterList, EqualityLooksAtOrder) {
    FIDParameterList other;
    other.add("speed", "fast");
    other.add("x", "1");
    EXPECT_EQ(twoPairs(), twoPairs());
    EXPECT_FALSE(twoPairs() == other);
}

}  // namespace
