#include "QueueMaker.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace {

using sal::QueueMaker;

/// Without a mark handed to this process.
class QueueMakerTest : public testing::Test {
protected:
    QueueMakerTest() { ::unsetenv("MFD_QUEUE_MAKER"); }
    ~QueueMakerTest() override { ::unsetenv("MFD_QUEUE_MAKER"); }

    static void hand(const std::string& text) { ::setenv("MFD_QUEUE_MAKER", text.c_str(), 1); }
};

/// The exit code of a forked child that runs the body.
template <class Body>
int inChild(Body body) {
    const pid_t pid = ::fork();
    if (pid == 0)
        ::_exit(body());
    int status = 0;
    ::waitpid(pid, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

constexpr const char* g_malformed =
    " is not 16 hexadecimal digits, a colon and a number; a process that is started by hand needs none";

}  // namespace

TEST_F(QueueMakerTest, NumbersTheQueuesOfAProcess) {
    const QueueMaker::Mark first = QueueMaker::next();
    const QueueMaker::Mark second = QueueMaker::next();
    EXPECT_NE(0u, first.maker);
    EXPECT_EQ(first.maker, second.maker);
    EXPECT_EQ(first.number + 1, second.number);
}

TEST_F(QueueMakerTest, HandsAChildItsLastMark) {
    const QueueMaker::Mark last = QueueMaker::next();
    char expected[64];
    std::snprintf(expected, sizeof expected, "%016llx:%llu", static_cast<unsigned long long>(last.maker),
                  static_cast<unsigned long long>(last.number));
    EXPECT_EQ(expected, QueueMaker::forChild());
}

TEST_F(QueueMakerTest, ForgottenMakerHandsOnNothingAndIsAnotherNext) {
    const QueueMaker::Mark before = QueueMaker::next();
    EXPECT_EQ(0, inChild([&] {
                  QueueMaker::forget();
                  if (QueueMaker::forChild())
                      return 1;
                  const QueueMaker::Mark after = QueueMaker::next();
                  return after.maker != before.maker && after.number == 1 ? 0 : 2;
              }));
}

TEST_F(QueueMakerTest, ProcessThatWasHandedNothingMayOpenAny) {
    EXPECT_EQ("", QueueMaker::refusal({1, 1}));
    hand("");
    EXPECT_EQ("", QueueMaker::refusal({1, 1}));
}

TEST_F(QueueMakerTest, ProcessMayOpenWhatWasMadeBeforeItWasStarted) {
    hand("00000000000000ab:12");
    EXPECT_EQ("", QueueMaker::refusal({0xab, 12}));
    EXPECT_EQ("", QueueMaker::refusal({0xab, 1}));
}

TEST_F(QueueMakerTest, LaterQueueIsRefused) {
    hand("00000000000000ab:12");
    EXPECT_EQ("it was made for a process that was started later than this one, which has been replaced",
              QueueMaker::refusal({0xab, 13}));
}

TEST_F(QueueMakerTest, QueueOfAnotherMakerIsRefused) {
    hand("00000000000000ab:12");
    EXPECT_EQ("it was made by another host than the one that started this process",
              QueueMaker::refusal({0xac, 1}));
}

TEST_F(QueueMakerTest, LargestMarkIsRead) {
    hand("ffffffffffffffff:18446744073709551615");
    EXPECT_EQ("", QueueMaker::refusal({~std::uint64_t{0}, ~std::uint64_t{0}}));
}

TEST_F(QueueMakerTest, KnowsWhetherItWasHandedAMark) {
    EXPECT_FALSE(QueueMaker::isHanded());
    hand("me");
    EXPECT_FALSE(QueueMaker::isHanded());
    hand("00000000000000ab:12");
    EXPECT_TRUE(QueueMaker::isHanded());
}

TEST_F(QueueMakerTest, MalformedMarkIsRefusedWithItsText) {
    for (const char* pText :
         {"x", "ab:12", "00000000000000ab", "00000000000000ab:", "00000000000000ab;12", "00000000000000ab:0",
          "00000000000000ab:-1", "00000000000000ab:12 ", "0000000000000000:12", "00000000000000xy:12",
          "00000000000000ab:18446744073709551616", "000000000000000ab:12"}) {
        hand(pText);
        EXPECT_EQ("MFD_QUEUE_MAKER=" + std::string(pText) + g_malformed, QueueMaker::refusal({0xab, 1}));
    }
}
