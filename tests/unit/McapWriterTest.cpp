#include "McapWriter.h"

#include <gtest/gtest.h>

#include <cstdio>

namespace {

class McapWriterTest : public testing::Test {
protected:
    std::string hex() const {
        std::string text;
        for (const char c : m_file) {
            char digits[3];
            std::snprintf(digits, sizeof digits, "%02x", static_cast<unsigned char>(c));
            text += digits;
        }
        return text;
    }

    std::string m_file;
    McapWriter m_sut{[this](std::string_view bytes) { m_file += bytes; }, "test"};
};

}  // namespace

// The bytes were made by hand after the format's description, and read by the reader of its makers.
TEST_F(McapWriterTest, FileIsWhatTheFormatAsksFor) {
    const auto schema = m_sut.addSchema("mf.exit", "jsonschema", "{}");
    const auto channel = m_sut.addChannel(schema, "/LAMP/exit", "json");
    m_sut.addMessage(channel, 7, 2000, R"({"a":1})");
    m_sut.addMessage(channel, 8, 1000, "{}");
    m_sut.end();
    EXPECT_EQ(
        "894d434150300d0a010c0000000000000000000000040000007465737406c000000000000000e803000000000000d007"
        "00000000000098000000000000008295cdcf0000000098000000000000000321000000000000000100070000006d662e"
        "657869740a0000006a736f6e736368656d61020000007b7d041e00000000000000000001000a0000002f4c414d502f65"
        "786974040000006a736f6e00000000051d00000000000000000007000000d007000000000000d0070000000000007b22"
        "61223a317d051800000000000000000008000000e803000000000000e8030000000000007b7d07260000000000000000"
        "0020000000d0070000000000005100000000000000e80300000000000077000000000000000f04000000000000000000"
        "00000321000000000000000100070000006d662e657869740a0000006a736f6e736368656d61020000007b7d041e0000"
        "0000000000000001000a0000002f4c414d502f65786974040000006a736f6e000000000b380000000000000002000000"
        "00000000010001000000000000000000000001000000e803000000000000d0070000000000000a000000000002000000"
        "00000000084a00000000000000e803000000000000d0070000000000001d00000000000000c9000000000000000a0000"
        "000000e6000000000000002f0000000000000000000000980000000000000098000000000000000e1100000000000000"
        "0322010000000000002a000000000000000e1100000000000000044c0100000000000027000000000000000e11000000"
        "000000000b730100000000000041000000000000000e110000000000000008b401000000000000530000000000000002"
        "14000000000000002201000000000000070200000000000098da671e894d434150300d0a",
        hex());
}

TEST_F(McapWriterTest, FileOfNothingHasASummary) {
    m_sut.end();
    EXPECT_EQ("894d434150300d0a", hex().substr(0, 16));
    EXPECT_EQ("894d434150300d0a", hex().substr(hex().size() - 16));
    EXPECT_EQ(0u, m_sut.channels());
}

TEST_F(McapWriterTest, ChunksEndAtAMegabyte) {
    const auto channel = m_sut.addChannel(m_sut.addSchema("s", "jsonschema", "{}"), "/t", "json");
    const std::string data(100'000, 'x');
    for (std::uint32_t i = 0; i < 25; ++i)
        m_sut.addMessage(channel, i, i, data);
    EXPECT_GT(m_file.size(), 2'000'000u);
    EXPECT_LT(m_file.size(), 2'300'000u);
    m_sut.end();
    EXPECT_GT(m_file.size(), 2'500'000u);
}
