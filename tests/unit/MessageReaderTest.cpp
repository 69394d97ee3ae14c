#include "MessageReader.h"

#include <gmock/gmock.h>

#include <string>
#include <vector>

#include "GoldenFrame.h"

using namespace std::string_literals;

namespace {

struct Bytes {
    std::string bytes;
};

/// Keeps what it reads.
class Reader : private Bytes, public protocol::MessageReader {
public:
    explicit Reader(const std::string& message)
        : Bytes{message}, MessageReader(reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size()) {}
    Reader(const Reader&) = delete;
};

Reader goldenReader(const std::string& name) {
    return Reader(goldenText(name));
}

TEST(MessageReader, CodeIsTheFirstSixBytes) {
    EXPECT_TRUE(goldenReader("SUBSCR").hasCode("SUBSCR"));
    EXPECT_FALSE(goldenReader("SUBSCR").hasCode("SUBSCS"));
    EXPECT_FALSE(goldenReader("SUBSCR").hasCode("subscr"));
}

TEST(MessageReader, ShortCodeIsNone) {
    EXPECT_FALSE(Reader("DEINI").hasCode("DEINIT"));
    EXPECT_FALSE(Reader("").hasCode("DEINIT"));
}

TEST(MessageReader, ReadsSetConfiguration) {
    Reader sut = goldenReader("SETCFG");
    EXPECT_EQ(sut.int32(), 3);
    std::vector<std::string> texts;
    for (int count = 0; count < 6; ++count)
        texts.push_back(sut.string());
    EXPECT_THAT(texts, testing::ElementsAre("AXIS1", "axis1", "192.0.2.11", "eth0", "192.0.2.10",
                                            "/srv/nvram/AXIS1"));
}

TEST(MessageReader, ReadsParameters) {
    Reader sut = goldenReader("SNDFDP");
    EXPECT_EQ(sut.string(), "MOVE");
    const FIDParameterList parameters = sut.parameters();
    EXPECT_THAT(std::vector(parameters.begin(), parameters.end()),
                testing::ElementsAre(testing::Pair("to", "12.5"), testing::Pair("speed", "3")));
}

TEST(MessageReader, CountZeroIsAnEmptyList) {
    Reader sut = goldenReader("SNDFDP-no-parameters");
    sut.string();
    EXPECT_TRUE(sut.parameters().empty());
}

TEST(MessageReader, NegativeNumber) {
    EXPECT_EQ(Reader(std::string("SETCFG\xfe\xff\xff\xff", 10)).int32(), -2);
}

TEST(MessageReader, StringEndsAtItsFirstZeroByte) {
    Reader sut(std::string("SUBSCR\5AB\0CD\1X", 14));
    EXPECT_EQ(sut.string(), "AB");
}

TEST(MessageReader, FieldBehindAZeroByteIsReadAtItsPlace) {
    Reader sut(std::string("SUBSCR\5AB\0CD\1X", 14));
    sut.string();
    EXPECT_EQ(sut.string(), "X");
}

TEST(MessageReader, StringOf255Bytes) {
    Reader sut("SUBSCR\xff" + std::string(255, 'x'));
    EXPECT_EQ(sut.string(), std::string(255, 'x'));
}

TEST(MessageReader, BytesBehindAShortMessageReadAsZero) {
    Reader sut(std::string("SUBSCR\5AB", 9));
    EXPECT_EQ(sut.string(), "AB");
    EXPECT_EQ(sut.string(), "");
    EXPECT_EQ(sut.int32(), 0);
}

TEST(MessageReader, StringMayEndAtTheLastByte) {
    // 6 + 3 * 256 + 250: the last string's 249 bytes are the message's last.
    const std::string full = "SUBSCR" + ("\xff" + std::string(255, 'a')) + ("\xff" + std::string(255, 'b')) +
                             ("\xff" + std::string(255, 'c')) + ("\xf9" + std::string(249, 'd'));
    ASSERT_EQ(full.size(), 1024u);
    Reader sut(full);
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
    Reader sut(full);
    sut.string();
    sut.string();
    sut.string();
    EXPECT_EQ(sut.string(), "");
}

TEST(MessageReader, NumberThatCrossesTheEndIsZero) {
    const std::string full = "SUBSCR" + ("\xff" + std::string(255, 'a')) + ("\xff" + std::string(255, 'b')) +
                             ("\xff" + std::string(255, 'c')) + ("\xf6" + std::string(246, 'd')) + "\1\1\1";
    ASSERT_EQ(full.size(), 1024u);
    Reader sut(full);
    for (int count = 0; count < 4; ++count)
        sut.string();
    EXPECT_EQ(sut.int32(), 0);
}

TEST(MessageReader, FieldsBehindOneThatCrossesTheEndAreEmpty) {
    const std::string full = "SUBSCR" + ("\xff" + std::string(255, 'a')) + ("\xff" + std::string(255, 'b')) +
                             ("\xff" + std::string(255, 'c')) + ("\xfa" + std::string(249, '\1'));
    Reader sut(full);
    for (int count = 0; count < 4; ++count)
        sut.string();
    EXPECT_EQ(sut.string(), "");
    EXPECT_EQ(sut.int32(), 0);
    EXPECT_TRUE(sut.parameters().empty());
}

TEST(MessageReader, PairThatIsNotWholeIsLeftOut) {
    Reader sut(std::string("SNDFDP\1M\2\1a\1b\1c\5d", 17));
    sut.string();
    const FIDParameterList parameters = sut.parameters();
    EXPECT_THAT(std::vector(parameters.begin(), parameters.end()),
                testing::ElementsAre(testing::Pair("a", "b")));
}

TEST(MessageReader, MissingCountIsAnEmptyList) {
    Reader sut(std::string("SNDFDP\1M", 8));
    sut.string();
    EXPECT_TRUE(sut.parameters().empty());
}

TEST(MessageReader, MessageLongerThanTheBufferIsCut) {
    Reader sut("SUBSCR\3abc" + std::string(5000, '\xff'));
    EXPECT_EQ(sut.string(), "abc");
}

TEST(MessageReader, TakesFieldsInOrder) {
    Reader sut(
        "SETVAX\x01"
        "A\x2a\x00\x00\x00\x00\x00\xc0\x3f\x02\x07"s);
    EXPECT_EQ(sut.string(), "A");
    EXPECT_EQ(sut.int32(), 42);
    EXPECT_EQ(sut.float32(), 1.5F);
    EXPECT_TRUE(sut.bool8());
    EXPECT_EQ(sut.count8(), 7u);
}

TEST(MessageReader, FieldsAfterTheMessageReadAsEmpty) {
    Reader sut("SETVAL");
    EXPECT_EQ(sut.string(), "");
    EXPECT_EQ(sut.int32(), 0);
    EXPECT_EQ(sut.float32(), 0.0F);
    EXPECT_FALSE(sut.bool8());
    EXPECT_EQ(sut.count8(), 0u);
}

TEST(MessageReader, NumberOfAShortMessageIsFilledUpWithZeros) {
    Reader sut("SETVAI\1A\x2a\1"s);
    EXPECT_EQ(sut.string(), "A");
    EXPECT_EQ(sut.int32(), 0x12a);
    EXPECT_EQ(sut.int32(), 0);
}

TEST(MessageReader, StringIsReadIntoATextThatIsThere) {
    Reader sut("SETVAL\2AB\0"s);
    std::string text = "a former one";
    sut.string(text);
    EXPECT_EQ(text, "AB");
    sut.string(text);
    EXPECT_EQ(text, "");
}

TEST(MessageReader, BytesAfterTheMessageAreNotItsOwn) {
    const std::string buffer = "SUBSCR\5AB\xff\xff\xff\xff";
    protocol::MessageReader sut(reinterpret_cast<const unsigned char*>(buffer.data()), 9);
    EXPECT_EQ(sut.string(), "AB");
    EXPECT_EQ(sut.int32(), 0);
    EXPECT_TRUE(sut.parameters().empty());
}

}  // namespace
