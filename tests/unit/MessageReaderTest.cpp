#include "MessageReader.h"

#include <gmock/gmock.h>

#include <string>
#include <vector>

#include "GoldenFrame.h"

namespace {

MessageReader reader(const std::string& bytes) {
    return {reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size()};
}

MessageReader goldenReader(const std::string& name) {
    return reader(goldenText(name));
}

TEST(MessageReader, CodeIsTheFirstSixBytes) {
    EXPECT_EQ(goldenReader("SUBSCR").code(), "SUBSCR");
}

TEST(MessageReader, ShortCodeIsPaddedWithZeroBytes) {
    EXPECT_EQ(reader("DEI").code(), std::string("DEI\0\0\0", 6));
}

TEST(MessageReader, EmptyMessageHasNoCode) {
    EXPECT_EQ(reader("").code(), std::string(6, '\0'));
}

TEST(MessageReader, ReadsSetConfiguration) {
    MessageReader sut = goldenReader("SETCFG");
    EXPECT_EQ(sut.int32(), 3);
    std::vector<std::string> texts;
    for (int count = 0; count < 6; ++count)
        texts.push_back(sut.string());
    EXPECT_THAT(texts, testing::ElementsAre("AXIS1", "axis1", "192.0.2.11", "eth0", "192.0.2.10",
                                            "/srv/nvram/AXIS1"));
}

TEST(MessageReader, ReadsParameters) {
    MessageReader sut = goldenReader("SNDFDP");
    EXPECT_EQ(sut.string(), "MOVE");
    const FIDParameterList parameters = sut.parameters();
    EXPECT_THAT(std::vector(parameters.begin(), parameters.end()),
                testing::ElementsAre(testing::Pair("to", "12.5"), testing::Pair("speed", "3")));
}

TEST(MessageReader, CountZeroIsAnEmptyList) {
    MessageReader sut = goldenReader("SNDFDP-no-parameters");
    sut.string();
    EXPECT_TRUE(sut.parameters().empty());
}

TEST(MessageReader, NegativeNumber) {
    EXPECT_EQ(reader(std::string("SETCFG\xfe\xff\xff\xff", 10)).int32(), -2);
}

TEST(MessageReader, StringEndsAtItsFirstZeroByte) {
    MessageReader sut = reader(std::string("SUBSCR\5AB\0CD\1X", 14));
    EXPECT_EQ(sut.string(), "AB");
}

TEST(MessageReader, FieldBehindAZeroByteIsReadAtItsPlace) {
    MessageReader sut = reader(std::string("SUBSCR\5AB\0CD\1X", 14));
    sut.string();
    EXPECT_EQ(sut.string(), "X");
}

TEST(MessageReader, StringOf255Bytes) {
    MessageReader sut = reader("SUBSCR\xff" + std::string(255, 'x'));
    EXPECT_EQ(sut.string(), std::string(255, 'x'));
}

TEST(MessageReader, BytesBehindAShortMessageReadAsZero) {
    MessageReader sut = reader(std::string("SUBSCR\5AB", 9));
    EXPECT_EQ(sut.string(), "AB");
    EXPECT_EQ(sut.string(), "");
    EXPECT_EQ(sut.int32(), 0);
}

TEST(MessageReader, StringMayEndAtTheLastByte) {
    // 6 + 3 * 256 + 250: the last string's 249 bytes are the message's last.
    const std::string full = "SUBSCR" + ("\xff" + std::string(255, 'a')) + ("\xff" + std::string(255, 'b')) +
                             ("\xff" + std::string(255, 'c')) + ("\xf9" + std::string(249, 'd'));
    ASSERT_EQ(full.size(), 1024u);
    MessageReader sut = reader(full);
    sut.string();
    sut.string();
    sut.string();
    EXPECT_EQ(sut.string(), std::string(249, 'd'));
    EXPECT_EQ(sut.string(), "");
}

TEST(MessageReader, StringThatCrossesTheEndIsEmpty) {
    const std::string full = "SUBSCR" + ("\xff" + std::string(255, 'a')) + ("\xff" + std::string(255, 'b')) +
                             ("\xff" + std::string(255, 'c')) + ("\xfa" + std::string(249, 'd'));
    ASSERT_EQ(full.size(), 1024u);
    MessageReader sut = reader(full);
    sut.string();
    sut.string();
    sut.string();
    EXPECT_EQ(sut.string(), "");
}

TEST(MessageReader, NumberThatCrossesTheEndIsZero) {
    const std::string full = "SUBSCR" + ("\xff" + std::string(255, 'a')) + ("\xff" + std::string(255, 'b')) +
                             ("\xff" + std::string(255, 'c')) + ("\xf6" + std::string(246, 'd')) + "\1\1\1";
    ASSERT_EQ(full.size(), 1024u);
    MessageReader sut = reader(full);
    for (int count = 0; count < 4; ++count)
        sut.string();
    EXPECT_EQ(sut.int32(), 0);
}

TEST(MessageReader, FieldsBehindOneThatCrossesTheEndAreEmpty) {
    const std::string full = "SUBSCR" + ("\xff" + std::string(255, 'a')) + ("\xff" + std::string(255, 'b')) +
                             ("\xff" + std::string(255, 'c')) + ("\xfa" + std::string(249, '\1'));
    MessageReader sut = reader(full);
    for (int count = 0; count < 4; ++count)
        sut.string();
    EXPECT_EQ(sut.string(), "");
    EXPECT_EQ(sut.int32(), 0);
    EXPECT_TRUE(sut.parameters().empty());
}

TEST(MessageReader, PairThatIsNotWholeIsLeftOut) {
    MessageReader sut = reader(std::string("SNDFDP\1M\2\1a\1b\1c\5d", 17));
    sut.string();
    const FIDParameterList parameters = sut.parameters();
    EXPECT_THAT(std::vector(parameters.begin(), parameters.end()),
                testing::ElementsAre(testing::Pair("a", "b")));
}

TEST(MessageReader, MissingCountIsAnEmptyList) {
    MessageReader sut = reader(std::string("SNDFDP\1M", 8));
    sut.string();
    EXPECT_TRUE(sut.parameters().empty());
}

TEST(MessageReader, MessageLongerThanTheBufferIsCut) {
    MessageReader sut = reader("SUBSCR\3abc" + std::string(5000, '\xff'));
    EXPECT_EQ(sut.string(), "abc");
}

}  // namespace
