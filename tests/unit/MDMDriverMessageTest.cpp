#include "MDMDriverMessage.h"

#include <gtest/gtest.h>

#include <string>

#include "FIDParameterList.h"

using namespace std::string_literals;

namespace {

std::string bytesOf(const MDMDriverMessage& message) {
    return {reinterpret_cast<const char*>(message.data()), static_cast<std::size_t>(message.length())};
}

/// A message as the receiving thread sees it: zero behind its end.
struct Buffer {
    explicit Buffer(const std::string& message) {
        for (std::size_t index = 0; index < message.size(); ++index)
            bytes[index] = static_cast<unsigned char>(message[index]);
    }

    unsigned char bytes[1024] = {};
};

}  // namespace

TEST(MDMDriverMessage, CodeStandsWithoutTerminator) {
    EXPECT_EQ(bytesOf(MDMDriverMessage("DEINIT")), "DEINIT");
}

TEST(MDMDriverMessage, IntIsFourBytesLowestFirst) {
    EXPECT_EQ(bytesOf(MDMDriverMessage("SETCFG").addInt(-2)), "SETCFG\xfe\xff\xff\xff"s);
}

TEST(MDMDriverMessage, StringIsLengthAndBytes) {
    EXPECT_EQ(bytesOf(MDMDriverMessage("SUBSCR").addString("AB")),
              "SUBSCR\x02"
              "AB"s);
}

TEST(MDMDriverMessage, EmptyStringIsOneZeroByte) {
    EXPECT_EQ(bytesOf(MDMDriverMessage("SUBSCR").addString("")), "SUBSCR\0"s);
}

TEST(MDMDriverMessage, StringOf255BytesIsWhole) {
    const std::string text(255, 'x');
    EXPECT_EQ(bytesOf(MDMDriverMessage("SUBSCR").addString(text)), "SUBSCR\xff" + text);
}

TEST(MDMDriverMessage, StringOf256BytesIsCutToNothing) {
    EXPECT_EQ(bytesOf(MDMDriverMessage("SUBSCR").addString(std::string(256, 'x'))), "SUBSCR\0"s);
}

TEST(MDMDriverMessage, StringOf300BytesIsCutTo44) {
    EXPECT_EQ(bytesOf(MDMDriverMessage("SUBSCR").addString(std::string(300, 'x'))),
              "SUBSCR\x2c" + std::string(44, 'x'));
}

TEST(MDMDriverMessage, ParametersFollowTheName) {
    FIDParameterList parameters;
    parameters.add("to", "5");
    EXPECT_EQ(bytesOf(MDMDriverMessage("SNDFDP").addString("MOVE").addParameters(parameters)),
              "SNDFDP\x04MOVE\x01\x02to\x01"
              "5"s);
}

TEST(MDMDriverMessage, SixStringsOf1008BytesFit) {
    MDMDriverMessage sut("SETCFG");
    sut.addInt(1);
    for (int index = 0; index < 6; ++index)
        sut.addString(std::string(168, 'x'));
    EXPECT_TRUE(sut.fits());
    EXPECT_EQ(sut.length(), 1024);
}

TEST(MDMDriverMessage, OneByteMoreDoesNotFitAndIsNotWritten) {
    MDMDriverMessage sut("SETCFG");
    sut.addInt(1);
    for (int index = 0; index < 5; ++index)
        sut.addString(std::string(168, 'x'));
    sut.addString(std::string(169, 'x'));
    EXPECT_FALSE(sut.fits());
    EXPECT_LE(sut.length(), 1024);
}

TEST(MDMDriverMessage, WhatFollowsATextThatDidNotFitIsNotWrittenEither) {
    MDMDriverMessage sut("SETCFG");
    for (int index = 0; index < 4; ++index)
        sut.addString(std::string(255, 'x'));
    const int length = sut.length();
    sut.addString("y").addInt(1).addParameters(FIDParameterList());
    EXPECT_FALSE(sut.fits());
    EXPECT_EQ(sut.length(), length);
}

TEST(MDMDriverMessageReader, TellsCodesApart) {
    const Buffer buffer("SETVAI");
    const MDMDriverMessageReader sut(buffer.bytes);
    EXPECT_TRUE(sut.hasCode("SETVAI"));
    EXPECT_FALSE(sut.hasCode("SETVAL"));
    EXPECT_FALSE(sut.hasCode("setvai"));
}

TEST(MDMDriverMessageReader, TakesFieldsInOrder) {
    const Buffer buffer(
        "SETVAX\x01"
        "A\x2a\x00\x00\x00\x00\x00\xc0\x3f\x02\x07"s);
    MDMDriverMessageReader sut(buffer.bytes);
    EXPECT_EQ(sut.takeString(), "A");
    EXPECT_EQ(sut.takeInt(), 42);
    EXPECT_EQ(sut.takeFloat(), 1.5f);
    EXPECT_TRUE(sut.takeBool());
    EXPECT_EQ(sut.takeCount(), 7u);
}

TEST(MDMDriverMessageReader, StringEndsAtItsFirstZeroByteAndTheNextFieldBehindItsLength) {
    const Buffer buffer(
        "SETVAL\x03"
        "a\0b\x01"
        "c"s);
    MDMDriverMessageReader sut(buffer.bytes);
    EXPECT_EQ(sut.takeString(), "a");
    EXPECT_EQ(sut.takeString(), "c");
}

TEST(MDMDriverMessageReader, FieldsBehindTheMessageReadAsEmpty) {
    const Buffer buffer("SETVAL");
    MDMDriverMessageReader sut(buffer.bytes);
    EXPECT_EQ(sut.takeString(), "");
    EXPECT_EQ(sut.takeInt(), 0);
    EXPECT_EQ(sut.takeFloat(), 0.0f);
    EXPECT_FALSE(sut.takeBool());
    EXPECT_EQ(sut.takeCount(), 0u);
}

TEST(MDMDriverMessageReader, FieldThatWouldCrossTheEndIsEmptyAndSoIsAllBehindIt) {
    // 6 + 3 * 256 bytes, then a length byte that promises one byte more than there is.
    std::string message = "SETVAL";
    for (int index = 0; index < 3; ++index)
        message += "\xff" + std::string(255, 'x');
    message += "\xfa" + std::string(249, 'y');
    ASSERT_EQ(message.size(), 1024u);
    const Buffer buffer(message);
    MDMDriverMessageReader sut(buffer.bytes);
    for (int index = 0; index < 3; ++index)
        EXPECT_EQ(sut.takeString(), std::string(255, 'x'));
    EXPECT_EQ(sut.takeString(), "");
    EXPECT_EQ(sut.takeInt(), 0);
    EXPECT_EQ(sut.takeFloat(), 0.0f);
    EXPECT_FALSE(sut.takeBool());
    EXPECT_EQ(sut.takeCount(), 0u);
}

TEST(MDMDriverMessageReader, StringThatEndsWithTheBufferIsWhole) {
    std::string message = "SETVAL";
    for (int index = 0; index < 3; ++index)
        message += "\xff" + std::string(255, 'x');
    message += "\xf9" + std::string(249, 'y');
    const Buffer buffer(message);
    MDMDriverMessageReader sut(buffer.bytes);
    for (int index = 0; index < 3; ++index)
        sut.takeString();
    EXPECT_EQ(sut.takeString(), std::string(249, 'y'));
}
