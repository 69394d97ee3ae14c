#include "GarbageSender.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdlib>
#include <set>
#include <string>

#include "LogFile.h"
#include "TemporaryDirectory.h"
#include "sal/MessageQueue.h"

namespace {

TEST(GarbageSender, MessagesFitTheQueue) {
    GarbageSender sut(1);
    for (int i = 0; i < 1000; ++i) {
        const auto length = sut.message().size();
        ASSERT_GE(length, 1U);
        ASSERT_LE(length, 1024U);
    }
}

TEST(GarbageSender, SameSeedGivesTheSameMessages) {
    GarbageSender sut(7);
    GarbageSender other(7);
    for (int i = 0; i < 100; ++i)
        ASSERT_EQ(sut.message(), other.message());
}

TEST(GarbageSender, OtherSeedGivesOtherMessages) {
    EXPECT_NE(GarbageSender(1).message(), GarbageSender(2).message());
}

TEST(GarbageSender, KnownCodesAreAmongThem) {
    GarbageSender sut(1);
    std::set<std::string> codes;
    for (int i = 0; i < 1000; ++i) {
        const auto bytes = sut.message();
        if (bytes.size() > 6)
            codes.insert(std::string(bytes.begin(), bytes.begin() + 6));
    }
    for (const char* code : {"SETVAL", "DSPFID", "SYSCMD", "DEINIT"})
        EXPECT_TRUE(codes.contains(code)) << code;
}

TEST(GarbageSender, MessagesGoIntoTheDriversQueueToTheHost) {
    const TemporaryDirectory directory;
    ::setenv("MFD_QUEUE_DIR", directory.path().c_str(), 1);
    sal::MessageQueue queue;
    ASSERT_TRUE(queue.create("BAD_OUTQ", 16, 1024, 0));
    EXPECT_TRUE(GarbageSender(3).send("BAD", 2));
    GarbageSender expected(3);
    for (int i = 0; i < 2; ++i) {
        std::array<unsigned char, 1024> buffer{};
        const int length = queue.receive(buffer.data(), static_cast<int>(buffer.size()), 0);
        ASSERT_GT(length, 0);
        EXPECT_EQ(std::vector<unsigned char>(buffer.begin(), buffer.begin() + length), expected.message());
    }
    ::unsetenv("MFD_QUEUE_DIR");
}

TEST(GarbageSender, WithoutAQueueItSaysSo) {
    const TemporaryDirectory directory;
    LogFile log;
    ::setenv("MFD_QUEUE_DIR", directory.path().c_str(), 1);
    EXPECT_FALSE(GarbageSender(1).send("NOBODY", 1));
    ::unsetenv("MFD_QUEUE_DIR");
}

}  // namespace
