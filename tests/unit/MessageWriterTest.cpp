#include "MessageWriter.h"

#include <gtest/gtest.h>

#include <string>

#include "MessageReader.h"

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

TEST(MessageWriter, TextOf255BytesIsSendable) {
    MessageWriter sut("UNSVAL");
    sut.string(std::string(255, 'x'));
    EXPECT_TRUE(sut.sendable());
    EXPECT_EQ(sut.length(), 262u);
}

TEST(MessageWriter, TextOf256BytesIsNotSendable) {
    MessageWriter sut("UNSVAL");
    sut.string(std::string(256, 'x'));
    EXPECT_FALSE(sut.sendable());
    EXPECT_EQ(sut.oversize(), 256u);
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
    EXPECT_TRUE(sut.sendable());
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
