#include "FIDParameterList.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "GoldenFrame.h"
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

// The rest of an "SNDFDP" message, as it stands in tests/data/frames.

/// What stands behind the name.
std::string parametersOf(const std::string& frame) {
    const std::string bytes = goldenText(frame);
    if (bytes.size() < 7)
        return {};
    return bytes.substr(std::min(bytes.size(), 7 + std::size_t{static_cast<unsigned char>(bytes[6])}));
}

struct Golden {
    std::string frame;
    std::vector<FIDParameterList::Parameter> pairs;
};

std::vector<Golden> goldenLists() {
    const std::string v(250, 'v');
    const std::string highs(255, '\xff');
    const FIDParameterList::Parameter to{"to", "12.5"};
    const std::vector<FIDParameterList::Parameter> emptyPairs(255);
    return {
        {"SNDFDP", {to, {"speed", "3"}}},
        {"SNDFDP-no-parameters", {}},
        {"SNDFDP-empty", {}},
        {"SNDFDP-empty-pair", {{"", ""}}},
        {"SNDFDP-255-bytes", {{std::string(255, 'n'), std::string(255, 'v')}}},
        {"SNDFDP-255-parameters", emptyPairs},
        {"SNDFDP-fullest", {{"a", v}, {"b", v}, {"c", v}, {"d", v}}},
        {"SNDFDP-cut", {{"a", "1"}}},
        {"SNDFDP-left-out", {{"a", "1"}, {"c", "3"}}},
        {"SNDFDP-zero-byte", {{"a\0b"s, "c\0d"s}}},
        {"unsent/SNDFDP-trailing", {{"a", "1"}}},
        {"unsent/SNDFDP-cut-6", {}},
        {"unsent/SNDFDP-cut-7", {}},
        {"unsent/SNDFDP-cut-9", {}},
        {"unsent/SNDFDP-cut-11", {}},
        {"unsent/SNDFDP-cut-12", {}},
        {"unsent/SNDFDP-cut-13", {}},
        {"unsent/SNDFDP-cut-14", {}},
        {"unsent/SNDFDP-cut-15", {}},
        {"unsent/SNDFDP-cut-16", {}},
        {"unsent/SNDFDP-cut-18", {}},
        {"unsent/SNDFDP-cut-20", {to}},
        {"unsent/SNDFDP-cut-26", {to}},
        {"unsent/SNDFDP-cut-27", {to}},
        {"unsent/SNDFDP-crossing", {{"a", v}, {"b", v}, {"c", v}}},
        {"unsent/SNDFDP-count-beyond", {{"a", "1"}}},
        {"unsent/SNDFDP-all-ff", {{highs, highs}}},
    };
}

TEST(FIDParameterList, WritesTheParametersOfEachGoldenFrame) {
    for (const auto& [frame, pairs] : goldenLists()) {
        if (frame.starts_with("unsent/"))
            continue;
        FIDParameterList sut;
        for (const auto& [name, value] : pairs)
            sut.add(name, value);
        const std::string expected = parametersOf(frame);
        const int room = static_cast<int>(1024 - (goldenText(frame).size() - expected.size()));
        EXPECT_TRUE(serialized(sut, room) == expected) << frame;
    }
}

TEST(FIDParameterList, LeavesWhatHasNoPlaceOutOfTheGoldenFrame) {
    const LogCapture log;
    FIDParameterList sut;
    sut.add("a", "1");
    sut.add("b", std::string(256, 'v'));
    sut.add(std::string(256, 'n'), "2");
    sut.add("c", "3");
    EXPECT_EQ(serialized(sut, 1016), parametersOf("SNDFDP-left-out"));
}

TEST(FIDParameterList, ReadsTheParametersOfEachGoldenFrame) {
    for (const auto& [frame, pairs] : goldenLists())
        EXPECT_EQ(pairsOf(deserialized(parametersOf(frame))), pairs) << frame;
}

TEST(FIDParameterList, EachGoldenFrameWithParametersIsRead) {
    std::set<std::string> read;
    for (const Golden& golden : goldenLists())
        read.insert(golden.frame);
    std::set<std::string> frames = goldenFrameNames();
    std::erase_if(frames, [](const std::string& name) { return name.find("SNDFDP") == std::string::npos; });
    EXPECT_EQ(read, frames);
}

}  // namespace
