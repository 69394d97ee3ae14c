#include "Following.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "HangGuard.h"
#include "TemporaryDirectory.h"

namespace {

class FollowingTest : public testing::Test {
protected:
    FollowingTest() : m_fd(::open(m_directory.path("out").c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600)) {}
    ~FollowingTest() override { ::close(m_fd); }

    std::string output() const { return m_directory.read("out"); }

    const TemporaryDirectory m_directory;
    const int m_fd;
    int m_looks = 0;
    StateStore m_store;
    Following m_sut{m_store, m_fd, [this] { ++m_looks; }};
};

}  // namespace

TEST_F(FollowingTest, PrintsWhatMatchesFromTheStartToTheStop) {
    m_store.setStateValueInt("A.X", 1);
    m_sut.start("A.*");
    m_store.setStateValueInt("A.X", 2);
    m_store.setStateValueInt("B.X", 3);
    EXPECT_TRUE(eventually([&] { return output() == "A.X = 2\n"; })) << output();
    EXPECT_TRUE(m_sut.stop());
    EXPECT_GT(m_looks, 0);
    m_store.setStateValueInt("A.X", 4);
    EXPECT_EQ("A.X = 2\n", output());
}

TEST_F(FollowingTest, AnotherPatternTakesThePlaceOfTheFormer) {
    m_sut.start("A.*");
    m_sut.start("B.*");
    m_store.setStateValueInt("A.X", 1);
    m_store.setStateValueInt("B.X", 2);
    EXPECT_TRUE(eventually([&] { return output() == "B.X = 2\n"; })) << output();
}

TEST_F(FollowingTest, StopSaysWhetherAnythingWasFollowed) {
    EXPECT_FALSE(m_sut.stop());
    m_sut.start("");
    EXPECT_TRUE(m_sut.stop());
    EXPECT_FALSE(m_sut.stop());
}
