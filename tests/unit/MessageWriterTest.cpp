#include "MessageWriter.h"

#include <gtest/gtest.h>

#include <string>

#include "MessageReader.h"

using namespace std::string_literals;

using protocol::MessageReader;
using protocol::MessageWriter;

namespace {

std::string bytes(const MessageWriter& message) {
    return {message.data(), message.data() + message.length()};
}

TEST(MessageWriter, BeginsWithTheCode) {
    EXPECT_EQ(bytes(MessageWriter("DEINIT")), "DEINIT");
}

TEST(MessageWriter, PacksFieldsWithoutPadding) {
    MessageWriter sut("SETVAI");
    sut.string("A").int32(1);
    EXPECT_EQ(bytes(sut), std::string("SETVAI\1A\1\0\0\0", 12));
}

TEST(MessageWriter, IntIsFourBytesLowestFirst) {
    EXPECT_EQ(bytes(MessageWriter("SETCFG").int32(-2)), "SETCFG\xfe\xff\xff\xff"s);
}

TEST(MessageWriter, FloatIsFourBytesLowestFirst) {
    EXPECT_EQ(bytes(MessageWriter("SETVAF").float32(1.5F)), "SETVAF\x00\x00\xc0\x3f"s);
}

TEST(MessageWriter, BoolIsOneByte) {
    EXPECT_EQ(bytes(MessageWriter("SETVAB").bool8(true).bool8(false)), "SETVAB\1\0"s);
}

TEST(MessageWriter, StringIsLengthAndBytes) {
    EXPECT_EQ(bytes(MessageWriter("SUBSCR").string("AB")), "SUBSCR\2AB"s);
}

TEST(MessageWriter, EmptyStringIsOneZeroByte) {
    EXPECT_EQ(bytes(MessageWriter("SUBSCR").string("")), "SUBSCR\0"s);
}

TEST(MessageWriter, StringOf255BytesIsWhole) {
    const std::string text(255, 'x');
    const MessageWriter sut = MessageWriter("UNSVAL").string(text);
    EXPECT_EQ(sut.oversize(), 0u);
    EXPECT_EQ(bytes(sut), "UNSVAL\xff" + text);
}

TEST(MessageWriter, StringOf256BytesIsCutToNothing) {
    const std::string text(256, 'x');
    const MessageWriter sut = MessageWriter("UNSVAL").string(text);
    EXPECT_EQ(sut.oversize(), 256u);
    EXPECT_TRUE(sut.fits());
    EXPECT_EQ(bytes(sut), "UNSVAL\0"s);
}

TEST(MessageWriter, StringOf300BytesIsCutTo44) {
    EXPECT_EQ(bytes(MessageWriter("SUBSCR").string(std::string(300, 'x'))),
              "SUBSCR\x2c" + std::string(44, 'x'));
}

TEST(MessageWriter, ParametersFollowTheName) {
    FIDParameterList parameters;
    parameters.add("to", "5");
    EXPECT_EQ(bytes(MessageWriter("SNDFDP").string("MOVE").parameters(parameters)),
              "SNDFDP\x04MOVE\x01\x02to\x01"
              "5"s);
}

TEST(MessageWriter, SixStringsOf1008BytesFit) {
    MessageWriter sut("SETCFG");
    sut.int32(1);
    for (int index = 0; index < 6; ++index)
        sut.string(std::string(168, 'x'));
    EXPECT_TRUE(sut.fits());
    EXPECT_EQ(sut.length(), 1024u);
}

TEST(MessageWriter, OneByteMoreDoesNotFitAndIsNotWritten) {
    MessageWriter sut("SETCFG");
    sut.int32(1);
    for (int index = 0; index < 5; ++index)
        sut.string(std::string(168, 'x'));
    sut.string(std::string(169, 'x'));
    EXPECT_FALSE(sut.fits());
    EXPECT_LE(sut.length(), 1024u);
}

TEST(MessageWriter, WhatFollowsATextThatDidNotFitIsNotWrittenEither) {
    MessageWriter sut("SETCFG");
    for (int index = 0; index < 4; ++index)
        sut.string(std::string(255, 'x'));
    const std::size_t length = sut.length();
    sut.string("y").int32(1).parameters(FIDParameterList());
    EXPECT_FALSE(sut.fits());
    EXPECT_EQ(sut.length(), length);
}

TEST(MessageWriter, FirstTooLongTextIsTheOneReported) {
    const std::string first(300, 'x');
    const std::string second(400, 'y');
    MessageWriter sut("SETVAL");
    sut.string(first).string(second);
    EXPECT_EQ(sut.oversize(), 300u);
}

TEST(MessageWriter, SubjectIsTheFirstText) {
    const std::string name = "LAMP";
    const std::string value = "on";
    MessageWriter sut("SETVAL");
    sut.string(name).string(value);
    EXPECT_EQ(sut.subject(), "LAMP");
}

TEST(MessageWriter, EmptyFirstTextIsTheSubject) {
    const std::string name;
    const std::string value = "on";
    MessageWriter sut("SETVAL");
    sut.string(name).string(value);
    EXPECT_EQ(sut.subject(), "");
}

TEST(MessageWriter, ParametersNeverExceed1024Bytes) {
    FIDParameterList list;
    for (int count = 0; count < 10; ++count)
        list.add(std::string(200, 'n'), std::string(200, 'v'));
    MessageWriter sut("DSPFID");
    sut.string(std::string(255, 'f')).parameters(list);
    EXPECT_TRUE(sut.fits());
    EXPECT_EQ(sut.length(), 6u + 256u + 1u + 402u);
}

TEST(MessageWriter, ParametersThatDoNotFitLeaveTheListWhole) {
    FIDParameterList list;
    list.add("a", "b");
    for (int count = 0; count < 3; ++count)
        list.add(std::string(255, 'n'), std::string(255, 'v'));
    MessageWriter sut("DSPFID");
    sut.string("F").parameters(list);
    MessageReader reader(sut.data(), sut.length());
    reader.string();
    EXPECT_EQ(reader.parameters().size(), 2u);
}

}  // namespace
